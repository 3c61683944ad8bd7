// Fetching over https, and over http where that is allowed.
#ifndef KUPDATE_INSTALL_DOWNLOAD_H_
#define KUPDATE_INSTALL_DOWNLOAD_H_

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

struct DownloadRules {
  std::uint64_t maxBytes = 0;      ///< what is longer is given up as soon as that shows
  bool allowHttp = false;          ///< else https alone, redirections included
  unsigned timeoutSeconds = 3600;  ///< for all of it; a server silent for a minute ends it sooner
};

enum class DownloadOutcome {
  kDone,     ///< everything that the server announced has come
  kFailed,   ///< refused address, no connection, bad certificate, another status than 200, cut off
  kTooLong,  ///< more than the limit
  kNotTaken  ///< `take` refused
};

/// Fetches `url` on the calling thread, through the user's proxy, without cookies and log-ons, and
/// follows up to five redirections. Every failure is logged with its cause. Does not throw beyond
/// what `take` and memory do.
/// @param take  gets the content piece by piece; false gives up
DownloadOutcome Download(const std::string& url, const DownloadRules& rules,
                         const std::function<bool(std::string_view)>& take);

#endif  // KUPDATE_INSTALL_DOWNLOAD_H_
