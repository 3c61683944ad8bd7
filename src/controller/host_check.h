// The check for updates that a host drives itself, step by step.
#ifndef KUPDATE_CONTROLLER_HOST_CHECK_H_
#define KUPDATE_CONTROLLER_HOST_CHECK_H_

#include <cstdint>
#include <optional>
#include <string>

class TAppInfo2;

/// The state of a check, by the numbers that hosts get.
enum class CheckStatus : std::int32_t { kInWork = 0, kFound = 1, kNoUpdate = 2, kJobFailed = 3 };

/// Knows the feed's download, the file it goes to, and what the last check found. Lives as long as
/// the process. Used by one thread at a time. Steps that fail log why.
class HostCheck {
 public:
  /// Forgets what the last check found.
  void ForgetUpdate() { updateFound_ = false; }
  /// Names the application and the feed of the next steps. A download that runs goes on.
  void Choose(std::string appId, std::string versionUrl);

  /// Starts the download of the feed, unless one runs. False without an address; throws when the
  /// download does not start.
  bool Start();
  /// Gives the download up. False without one, and when it cannot be ended; it is forgotten then.
  bool Stop();
  /// Looks at the download and, once it is there, evaluates the feed.
  /// @param store  the application's record
  /// @return nothing when no download for this application runs, or when its file is lost. Throws
  ///         for a feed that cannot be read.
  std::optional<CheckStatus> Check(TAppInfo2& store);

  /// Whether a download for the chosen application was started and not ended.
  bool HasDownload() const { return !jobId_.empty() && jobAppId_ == appId_; }
  /// Whether the last check found an update: only then is there something to install.
  bool HasFoundUpdate() const { return updateFound_; }
  /// The application that was chosen last; may be empty.
  const std::string& AppId() const { return appId_; }

 private:
  void StartDownload();
  bool EndDownload();
  CheckStatus DownloadStatus() const;
  CheckStatus EvaluateFeed(TAppInfo2& store);

  std::string appId_;
  std::string versionUrl_;
  std::string jobId_;     // of the download; empty without one
  std::string jobAppId_;  // the application that it is for
  std::string feedFile_;  // where it goes, UTF-8
  bool updateFound_ = false;
};

#endif  // KUPDATE_CONTROLLER_HOST_CHECK_H_
