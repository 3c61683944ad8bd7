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

/// Where a download goes. Each returns false to end it.
struct DownloadSink {
  /// The server has agreed; its word on the size, if it gave one.
  std::function<bool(std::optional<std::uint64_t>)> begin;
  std::function<bool(const char*, std::size_t)> take;
};

struct DownloadResult {
  enum class Kind {
    kDone,
    kRefused,      ///< asking again would give the same answer
    kInterrupted,  ///< worth another try
    kEndedBySink,
  };
  Kind kind = Kind::kDone;
  HResult code = 0;
  int context = 0;   ///< BG_ERROR_CONTEXT
  std::string text;  ///< what happened, in a sentence
};

/// What a server must be able to do.
enum class ServerRule {
  kStatic,  ///< answer HEAD with the size, and offer ranges, as the real service asks of it
  kAny,     ///< answer GET
};

/// Gets `url` whole, without a proxy, following redirections. Blocks; a server that falls silent is
/// given up after 30 seconds.
DownloadResult Download(const std::wstring& url, ServerRule rule, const DownloadSink& sink);

}  // namespace standin

#endif  // KUPDATE_STANDIN_DOWNLOADER_H_
