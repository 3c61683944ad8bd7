// The update check that a host drives, the wait for the executor's own check, and the silent
// install.
#include <exception>
#include <stdexcept>
#include <utility>

#include "appinfo/app_info2.h"
#include "controller/executor.h"
#include "controller/executor_wait.h"
#include "controller/guarded.h"
#include "controller/host_record.h"
#include "controller/updater_controller.h"
#include "layout/command_line.h"
#include "layout/file_names.h"
#include "layout/folders.h"
#include "layout/names.h"
#include "transfer/bits_completion.h"
#include "transfer/bits_transfer.h"
#include "transfer/com_apartment.h"
#include "update/feed_file.h"
#include "update/upd_info.h"
#include "util/clock.h"
#include "util/event.h"
#include "util/files.h"
#include "util/process.h"
#include "util/text.h"

namespace {

constexpr std::uint32_t kFeedTimeoutSeconds = 86400;  // 1 day
constexpr std::int32_t kStatusInWork = 0;
constexpr std::int32_t kStatusFound = 1;
constexpr std::int32_t kStatusNoUpdate = 2;
constexpr std::int32_t kStatusJobFailed = 3;

// The steps of a check log as the operation that hosts call.
LogLine LogStep(const char* level, int line) {
  return LogAs("TUpdaterController::IsUpdateAvailable", line, level);
}
#define STEP_D LogStep("D:", __LINE__)
#define STEP_E LogStep("E:", __LINE__)

// Whether the last check found an update: only then is there something to install.
bool updateFound = false;

bool JobInWork(JobState state) {
  return state == JobState::kQueued || state == JobState::kConnecting ||
         state == JobState::kTransferring || state == JobState::kSuspended ||
         state == JobState::kTransientError;
}

bool JobFailed(JobState state) { return state != JobState::kTransferred; }

void Deliver(std::int32_t value, std::int32_t* status) {
  if (status) *status = value;
}

bool KeepFeed(const std::string& appId, const std::string& feedFile) {
  const std::wstring folder = GetUpdaterLocalFolder(appId, CreateFolder::kYes);
  return !folder.empty() && FileSystem::CopyFile(feedFile, NarrowUtf8(folder) + kFeedFile);
}

}  // namespace

bool TUpdaterController::IsUpdateAvailable(const char* appId, const HostRelease& host,
                                           const char* operation, std::int32_t* status) {
  bool done = false;
  Guarded(LOG_PLACE, [&] {
    updateFound = false;
    const std::string id = Required(appId, "AppId is NULL");
    Required(host.versionUrl, "VersionUrl is NULL");
    Required(host.platform, "Platform is NULL");
    const std::string step = Required(operation, "Operation is NULL");
    TAppInfo2 store(id);
    const StoreChanges changes(store);
    WriteRelease(store, host);
    WriteChannel(store, host.release);
    store.SaveChanges();
    WriteLocalRecord(id, host, /*isStart=*/false);
    appId_ = id;
    versionUrl_ = store.VersionUrl();
    LOG_D << "AppId: " << appId_;
    LOG_D << "Operation: " << step;
    LOG_D << "VersionUrl: " << versionUrl_;
    LOG_D << "Version: " << ReleaseText(host);
    const ComApartment apartment;
    done = RunOperation(store, step, status);
    return Ended::kOut;
  });
  return done;
}

bool TUpdaterController::RunOperation(TAppInfo2& store, const std::string& operation,
                                      std::int32_t* status) {
  if (operation == "start") return Start();
  if (operation == "stop") return Stop();
  if (operation == "check") return Check(store, status);
  STEP_E << "Unknown operation: " << operation;
  return false;
}

bool TUpdaterController::Start() {
  if (!jobId_.empty()) {
    STEP_D << "We already wait for update.";
    return true;
  }
  if (versionUrl_.empty()) {
    STEP_E << "You should specify VersionUrl to rss.";
    return false;
  }
  StartJob();
  return true;
}

bool TUpdaterController::Stop() {
  if (jobId_.empty()) {
    STEP_E << "Nothing to stop! No Job started!";
    return false;
  }
  if (StopJob()) return true;
  STEP_E << "Error in StopJob.";
  return false;
}

bool TUpdaterController::Check(TAppInfo2& store, std::int32_t* status) {
  if (jobId_.empty() || jobAppId_ != appId_) {
    STEP_E << "Job not started!";
    return false;
  }
  if (!status) STEP_D << "Status == NULL.";
  const JobState state = CurrentJobState();
  if (JobInWork(state)) {
    STEP_D << "Job in work.";
    Deliver(kStatusInWork, status);
    return true;
  }
  if (JobFailed(state)) {
    STEP_E << "Job failed.";
    Deliver(kStatusJobFailed, status);
    if (!StopJob()) STEP_E << "Error in StopJob.";
    return true;
  }
  if (!StopJob()) {
    STEP_E << "Error in StopJob.";
    return false;
  }
  return EvaluateFeed(store, status);
}

bool TUpdaterController::EvaluateFeed(TAppInfo2& store, std::int32_t* status) {
  const bool found = TUpdInfo(appId_).Evaluate(store, LoadFeed(feedFile_), NowSeconds());
  // The same words for both outcomes: those who read the logs look for them.
  STEP_D << "Update available.";
  if (!found) {
    Deliver(kStatusNoUpdate, status);
    return true;
  }
  updateFound = true;
  Deliver(kStatusFound, status);
  if (KeepFeed(appId_, feedFile_)) {
    STEP_D << "Rss copied.";
  } else {
    STEP_E << "Can't copy Rss.";
  }
  return true;
}

void TUpdaterController::StartJob() {
  const std::wstring feedFile = FreshTempFile(HostFeedFile(appId_));
  if (feedFile.empty()) throw std::runtime_error("No folder for version.rss.");
  TBitsTransfer transfer(versionUrl_, feedFile);
  transfer.SetTimeout(kFeedTimeoutSeconds);
  transfer.Work();
  if (!transfer.Added()) {
    throw std::runtime_error("Error happened while try to download version.rss.");
  }
  LOG_D << "JobId: " << transfer.JobId();
  jobId_ = transfer.JobId();
  feedFile_ = NarrowUtf8(feedFile);
  jobAppId_ = appId_;
}

bool TUpdaterController::StopJob() {
  const std::string jobId = std::exchange(jobId_, std::string());
  try {
    TBitsTransferCompletion::CreateWorker(jobId)->Finish();
    return true;
  } catch (...) {
    return false;  // the failing call is in the log
  }
}

JobState TUpdaterController::CurrentJobState() const {
  try {
    const auto job = TBitsTransferCompletion::CreateWorker(jobId_);
    const JobState state = job->GetJobState();
    if (!JobInWork(state) || !IsTooLarge(JobPurpose::kHostFeed, job->BytesTransferred()))
      return state;
    LOG_E << "The feed is too large, its download is given up.";
    return JobState::kError;
  } catch (...) {
    return JobState::kError;  // a job that cannot be asked is lost; why is in the log
  }
}

bool TUpdaterController::IsUpgradeAvailable(const char* appId, std::int32_t waitMilliseconds) {
  bool available = false;
  Guarded(LOG_PLACE, [&] {
    TAppInfo2& store = Record(appId);
    const UniqueHandle event = JustUtil::CreateEventW(ResultEventName(store.AppId()));
    if (!event) return Ended::kLeft;
    store.ForgetCheckTimes();
    store.ForgetPingTimes();
    const ScheduledJobs jobs = ScheduleUpdaterJob(store, statisticsLock_, NowSeconds());
    if (jobs.check.empty()) {
      LOG_E << "No check was queued, so there is no answer to wait for.";
    } else {
      LOG_I << "Try to wait for update during " << waitMilliseconds << "ms.";
      const CheckWait wait = WaitForCheck(store.AppId(), jobs.check, event, waitMilliseconds);
      LOG_D << "End of waiting." << wait.result;
      if (wait.result == kWaitTimeout) LOG_D << "WAIT_TIMEOUT";
      if (wait.result == kWaitAbandoned) LOG_D << "WAIT_ABANDONED";
      available = wait.found;
    }
    if (jobs.pingFailure) std::rethrow_exception(jobs.pingFailure);
    return Ended::kOut;
  });
  return available;
}

void TUpdaterController::ForceUpdateCheck(const char* appId, bool needDialog) {
  Guarded(LOG_PLACE, [&] {
    TAppInfo2& store = Record(appId);
    store.ForgetCheckTimes();
    store.ForgetPingTimes();
    store.SetNeedDialogArterCheck(needDialog);
    const ScheduledJobs jobs = ScheduleUpdaterJob(store, statisticsLock_, NowSeconds());
    if (jobs.pingFailure) std::rethrow_exception(jobs.pingFailure);
    return Ended::kOut;
  });
}

bool TUpdaterController::DownloadAndInstallSilentUpdate(std::int32_t* exitCode) {
  bool done = false;
  Guarded(LOG_PLACE, [&] {
    if (!updateFound) {
      LOG_E << "No update available. Why you call it??";
      return Ended::kLeft;
    }
    if (appId_.empty()) {
      LOG_E << "You should call IsUpdateAvailable before DownloadAndInstallSilentUpdate";
      return Ended::kLeft;
    }
    const std::string appId = appId_;
    const std::wstring eventName = ResultEventName(appId);
    const UniqueHandle event = JustUtil::CreateEventW(eventName);
    if (!event) {
      LOG_E << "Can't create event with name: " << eventName;
      return Ended::kLeft;
    }
    const std::wstring executor = ExecutorToStart();
    const std::wstring commandLine = SilentUpdateCommandLine(executor, WidenUtf8(appId));
    LOG_D << "Run: " << commandLine;
    UniqueHandle process;
    const std::uint32_t error = TEnvironment::Execute(executor, commandLine, &process);
    LOG_D << "Updater started, code: " << error;
    if (error != 0) return Ended::kLeft;
    const InstallWait wait = WaitForInstallation(appId, event, process);
    LOG_D << "End of waiting." << wait.result;
    if (!wait.code) {
      LOG_E << "The executor ended without an answer." << kOtherCode << wait.exitCode;
      return Ended::kLeft;
    }
    LOG_D << "ExitCode: " << *wait.code;
    if (exitCode) *exitCode = *wait.code;
    done = true;
    return Ended::kOut;
  });
  return done;
}
