// The update check that a host drives, the wait for the executor's own check, and the silent
// install.
#include <stdexcept>
#include <utility>

#include "appinfo/app_info2.h"
#include "controller/command_line.h"
#include "controller/executor.h"
#include "controller/guarded.h"
#include "controller/host_record.h"
#include "controller/updater_controller.h"
#include "transfer/bits_completion.h"
#include "transfer/bits_transfer.h"
#include "transfer/com_apartment.h"
#include "update/feed_file.h"
#include "update/upd_info.h"
#include "util/clock.h"
#include "util/event.h"
#include "util/files.h"
#include "util/folders.h"
#include "util/process.h"
#include "util/text.h"

namespace {

constexpr std::uint32_t kFeedTimeoutSeconds = 86400;  // 1 day
// How long an executor's answer may lag behind its end.
constexpr std::uint32_t kLateAnswerMilliseconds = 30000;

constexpr std::int32_t kStatusInWork = 0;
constexpr std::int32_t kStatusFound = 1;
constexpr std::int32_t kStatusNoUpdate = 2;
constexpr std::int32_t kStatusJobFailed = 3;

constexpr char kExitCode[] = "DistroExitCode";

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
  return !folder.empty() && FileSystem::CopyFile(feedFile, NarrowUtf8(folder) + "version.rss");
}

// Waits for the executor's answer. A dead executor must not hang its host for ever, so the wait
// ends with the process too; an answer given just before that still counts.
std::uint32_t WaitForAnswer(const UniqueHandle& event, const UniqueHandle& process) {
  const std::uint32_t result = JustUtil::WaitForEither(event, process, kWaitForever);
  return result == 1 ? JustUtil::WaitFor(event, kLateAnswerMilliseconds) : result;
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
    WriteRelease(store, host);
    WriteChannel(store, host.release);
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
  LOG_E << "Unknown operation: " << operation;
  return false;
}

bool TUpdaterController::Start() {
  if (!jobId_.empty()) {
    LOG_D << "We already wait for update.";
    return true;
  }
  if (versionUrl_.empty()) {
    LOG_E << "You should specify VersionUrl to rss.";
    return false;
  }
  StartJob();
  return true;
}

bool TUpdaterController::Stop() {
  if (jobId_.empty()) {
    LOG_E << "Nothing to stop! No Job started!";
    return false;
  }
  if (StopJob()) return true;
  LOG_E << "Error in StopJob.";
  return false;
}

bool TUpdaterController::Check(TAppInfo2& store, std::int32_t* status) {
  if (jobId_.empty() || jobAppId_ != appId_) {
    LOG_E << "Job not started!";
    return false;
  }
  if (!status) LOG_D << "Status == NULL.";
  const JobState state = CurrentJobState();
  if (JobInWork(state)) {
    LOG_D << "Job in work.";
    Deliver(kStatusInWork, status);
    return true;
  }
  if (JobFailed(state)) {
    LOG_E << "Job failed.";
    Deliver(kStatusJobFailed, status);
    if (!StopJob()) LOG_E << "Error in StopJob.";
    return true;
  }
  if (!StopJob()) {
    LOG_E << "Error in StopJob.";
    return false;
  }
  return EvaluateFeed(store, status);
}

bool TUpdaterController::EvaluateFeed(TAppInfo2& store, std::int32_t* status) {
  const bool found = TUpdInfo(appId_).Evaluate(store, LoadFeed(feedFile_), NowSeconds());
  // The same words for both outcomes: those who read the logs look for them.
  LOG_D << "Update available.";
  if (!found) {
    Deliver(kStatusNoUpdate, status);
    return true;
  }
  updateFound = true;
  Deliver(kStatusFound, status);
  if (KeepFeed(appId_, feedFile_)) {
    LOG_D << "Rss copied.";
  } else {
    LOG_E << "Can't copy Rss.";
  }
  return true;
}

void TUpdaterController::StartJob() {
  const std::wstring feedFile = FreshTempFile(WidenUtf8(appId_) + L"-version.rss");
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
    return TBitsTransferCompletion::CreateWorker(jobId_)->GetJobState();
  } catch (...) {
    return JobState::kError;  // a job that cannot be asked is lost; why is in the log
  }
}

bool TUpdaterController::IsUpgradeAvailable(const char* appId, std::int32_t waitMilliseconds) {
  bool available = false;
  Guarded(LOG_PLACE, [&] {
    TAppInfo2 store(Required(appId, "AppId is NULL"));
    const UniqueHandle event = JustUtil::CreateEventW(ResultEventName(WidenUtf8(store.AppId())));
    if (!event) return Ended::kLeft;
    store.ForgetCheckTimes();
    store.ForgetPingTimes();
    ScheduleUpdaterJob(store, statisticsLock_, NowSeconds());
    LOG_I << "Try to wait for update during " << waitMilliseconds << "ms.";
    const std::uint32_t result = JustUtil::WaitFor(
        event, waitMilliseconds < 0 ? kWaitForever : static_cast<std::uint32_t>(waitMilliseconds));
    LOG_D << "End of waiting." << result;
    if (result == kWaitSignalled) available = store.ReadNumber("UpgradeAvailable") != 0;
    if (result == kWaitTimeout) LOG_D << "WAIT_TIMEOUT";
    if (result == kWaitAbandoned) LOG_D << "WAIT_ABANDONED";
    return Ended::kOut;
  });
  return available;
}

void TUpdaterController::ForceUpdateCheck(const char* appId, bool needDialog) {
  Guarded(LOG_PLACE, [&] {
    TAppInfo2 store(Required(appId, "AppId is NULL"));
    store.ForgetCheckTimes();
    store.ForgetPingTimes();
    store.SetNeedDialogArterCheck(needDialog);
    ScheduleUpdaterJob(store, statisticsLock_, NowSeconds());
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
    const std::wstring eventName = ResultEventName(WidenUtf8(appId));
    const UniqueHandle event = JustUtil::CreateEventW(eventName);
    if (!event) {
      LOG_E << "Can't create event with name: " << eventName;
      return Ended::kLeft;
    }
    const std::wstring executor = GetExecutorPath();
    const std::wstring commandLine = SilentUpdateCommandLine(executor, WidenUtf8(appId));
    LOG_D << "Run: " << commandLine;
    TUpdInfo update(appId);
    update.RemoveValue(kExitCode);  // an older one must not be taken for the answer
    UniqueHandle process;
    const std::uint32_t error = TEnvironment::Execute(executor, commandLine, &process);
    LOG_D << "Updater started, code: " << error;
    if (error != 0) return Ended::kLeft;
    std::uint32_t result = kWaitFailed;
    do {
      result = WaitForAnswer(event, process);
      // A check of the same application signals the same event; without a code the executor is still at work.
    } while (result == kWaitSignalled && !update.IsValueExist(kExitCode) &&
             JustUtil::WaitFor(process, 0) == kWaitTimeout);
    LOG_D << "End of waiting." << result;
    // Another host that waits for the same application may have taken the signal.
    if (result != kWaitSignalled && !update.IsValueExist(kExitCode)) {
      LOG_E << "The executor ended without an answer.";
      return Ended::kLeft;
    }
    const std::int64_t code = update.ReadNumber(kExitCode);
    LOG_D << "ExitCode: " << code;
    if (exitCode) *exitCode = static_cast<std::int32_t>(code);
    done = true;
    return Ended::kOut;
  });
  return done;
}
