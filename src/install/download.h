// Fetching over https and http.
#ifndef KUPDATE_INSTALL_DOWNLOAD_H_
#define KUPDATE_INSTALL_DOWNLOAD_H_

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

/// The limits of a download. They hold whatever the server does: threads of the system talk to it,
/// and the calling thread stops waiting for them in time.
struct DownloadRules {
  std::uint64_t maxBytes = 0;      ///< a longer content is given up as soon as that shows
  unsigned timeoutSeconds = 3600;  ///< for all of it, redirections included
  /// In each such time 1 KiB must come for each of its seconds. The head of an answer may take
  /// twice as long.
  unsigned paceSeconds = 60;
};

enum class DownloadOutcome {
  kDone,     ///< everything that the server announced has come
  kFailed,   ///< refused address, no connection, bad certificate, another status than 200, cut off,
             ///< too slow
  kTooLong,  ///< more than the limit
  kNotTaken  ///< `take` refused
};

/// Fetches `url`, through the user's proxy, without cookies and log-ons, and follows up to five
/// redirections. Every failure is logged with its cause. Throws std::runtime_error where the system
/// lacks the functions for that; else nothing beyond what `take` and memory do.
/// @param take  gets the content piece by piece, on the calling thread; false gives up
DownloadOutcome Download(const std::string& url, const DownloadRules& rules,
                         const std::function<bool(std::string_view)>& take);

#endif  // KUPDATE_INSTALL_DOWNLOAD_H_
