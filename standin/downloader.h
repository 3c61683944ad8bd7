// One file over HTTP.
#ifndef KUPDATE_STANDIN_DOWNLOADER_H_
#define KUPDATE_STANDIN_DOWNLOADER_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "standin/codes.h"

namespace standin {

/// Whether the text is an http or https address with a host.
bool IsDownloadUrl(const std::wstring& url);

/// Receives a download. Each function returns false to end it.
struct DownloadSink {
  /// The server sends the file. Receives the size, if the server has given one.
  std::function<bool(std::optional<std::uint64_t>)> begin;
  std::function<bool(const char*, std::size_t)> take;
};

struct DownloadResult {
  enum class Kind {
    kDone,
    kRefused,      ///< another try would get the same answer
    kInterrupted,  ///< worth another try
    kEndedBySink,
  };
  Kind kind = Kind::kDone;
  HResult code = 0;
  int context = 0;   ///< BG_ERROR_CONTEXT
  std::string text;  ///< what happened, in a sentence
};

/// The demands on a server.
enum class ServerRule {
  kStatic,  ///< answer HEAD with the size, and offer ranges, as the real service demands
  kAny,     ///< answer GET
};

/// Gets the whole of `url`, without a proxy, and follows redirections. Blocks; 30 seconds of
/// silence interrupt it.
DownloadResult Download(const std::wstring& url, ServerRule rule, const DownloadSink& sink);

}  // namespace standin

#endif  // KUPDATE_STANDIN_DOWNLOADER_H_
