#include "controller/host_check.h"

#include <stdexcept>
#include <utility>

#include "appinfo/app_info2.h"
#include "controller/scheduled_jobs.h"
#include "layout/file_names.h"
#include "layout/folders.h"
#include "transfer/transfer.h"
#include "update/feed_file.h"
#include "update/upd_info.h"
#include "util/clock.h"
#include "util/diag_log.h"
#include "util/files.h"
#include "util/log_line.h"
#include "util/text.h"

namespace {

constexpr std::uint32_t kFeedTimeoutSeconds = 86400;  // 1 day

// All steps of a check log under the name of the operation that hosts call.
LogLine LogStep(const char* level, int line) {
  return LogAs("TUpdaterController::IsUpdateAvailable", line, level);
}
#define STEP_D LogStep("D:", __LINE__)
#define STEP_E LogStep("E:", __LINE__)

bool KeepFeed(const std::string& appId, const std::string& feedFile) {
  const std::wstring folder = GetUpdaterLocalFolder(appId, CreateFolder::kYes);
  return !folder.empty() && FileSystem::CopyFile(feedFile, NarrowUtf8(folder) + kFeedFile);
}

}  // namespace

void HostCheck::Choose(std::string appId, std::string versionUrl) {
  appId_ = std::move(appId);
  versionUrl_ = std::move(versionUrl);
}

bool HostCheck::Start() {
  if (!jobId_.empty()) {
    // A process has one download at a time.
    STEP_D << "We already wait for update.";
    return true;
  }
  if (versionUrl_.empty()) {
    STEP_E << "You should specify VersionUrl to rss.";
    return false;
  }
  StartDownload();
  return true;
}

bool HostCheck::Stop() {
  if (jobId_.empty()) {
    STEP_E << "Nothing to stop! No Job started!";
    return false;
  }
  if (EndDownload()) return true;
  STEP_E << "Error in StopJob.";
  return false;
}

std::optional<CheckStatus> HostCheck::Check(TAppInfo2& store) {
  if (!HasDownload()) {
    STEP_E << "Job not started!";
    return {};
  }
  const CheckStatus download = DownloadStatus();
  if (download == CheckStatus::kInWork) {
    STEP_D << "Job in work.";
    return download;
  }
  if (download == CheckStatus::kJobFailed) STEP_E << "Job failed.";
  // A transferred job must be completed to hand its file over. For a failed job the host gets the
  // same answer whether it can be ended or not.
  if (!EndDownload()) {
    STEP_E << "Error in StopJob.";
    if (download != CheckStatus::kJobFailed) return {};
  }
  if (download == CheckStatus::kJobFailed) return download;
  return EvaluateFeed(store);
}

CheckStatus HostCheck::EvaluateFeed(TAppInfo2& store) {
  const bool found = TUpdInfo(appId_).Evaluate(store, LoadFeed(feedFile_), NowSeconds());
  // The same words for both outcomes, because people look for them in logs.
  STEP_D << "Update available.";
  if (!found) return CheckStatus::kNoUpdate;
  updateFound_ = true;
  if (KeepFeed(appId_, feedFile_)) {
    STEP_D << "Rss copied.";
  } else {
    STEP_E << "Can't copy Rss.";
  }
  return CheckStatus::kFound;
}

void HostCheck::StartDownload() {
  const std::wstring feedFile = FreshTempFile(HostFeedFile(appId_));
  if (feedFile.empty()) throw std::runtime_error("No folder for version.rss.");
  jobId_ = StartJob({.url = versionUrl_, .file = feedFile, .timeoutSeconds = kFeedTimeoutSeconds});
  if (jobId_.empty()) {
    throw std::runtime_error("Error happened while try to download version.rss.");
  }
  LogAs("TUpdaterController::StartJob", __LINE__, "D:") << "JobId: " << jobId_;
  feedFile_ = NarrowUtf8(feedFile);
  jobAppId_ = appId_;
}

// The job is forgotten even when it cannot be ended, so that "start" always works again.
bool HostCheck::EndDownload() {
  try {
    FinishJob(std::exchange(jobId_, std::string()));
    return true;
  } catch (...) {
    return false;  // the failing call is in the log
  }
}

// The state of the download alone: kFound says that the feed has arrived.
CheckStatus HostCheck::DownloadStatus() const {
  try {
    const JobProgress job = AskJob(jobId_);
    if (job.state == JobState::kTransferred) return CheckStatus::kFound;
    if (!IsInWork(job.state)) return CheckStatus::kJobFailed;
    if (!IsTooLarge(JobPurpose::kHostFeed, job.bytes)) return CheckStatus::kInWork;
    LogAs("TUpdaterController::CurrentJobState", __LINE__, "E:")
        << "The feed is too large, its download is given up.";
  } catch (...) {
    // A job that cannot be asked is lost; why is in the log.
  }
  return CheckStatus::kJobFailed;
}
