// The checks and the installation that hosts ask for.
#include <optional>
#include <utility>

#include "appinfo/app_info2.h"
#include "controller/executor_path.h"
#include "controller/executor_wait.h"
#include "controller/guarded.h"
#include "controller/host_record.h"
#include "controller/scheduled_jobs.h"
#include "controller/updater_controller.h"
#include "layout/command_line.h"
#include "layout/names.h"
#include "util/clock.h"
#include "util/handle.h"
#include "util/process.h"
#include "util/text.h"

namespace {

#define LOG_INSTALL(level) \
  LogAs("TUpdaterController::DownloadAndInstallSilentUpdate", __LINE__, level)

// Starts the executor and waits for its answer; nothing, after a line in the log, when it gave
// none. The event exists before the executor runs, so no signal is lost.
std::optional<std::int32_t> InstallByExecutor(const std::string& appId) {
  const std::wstring eventName = ResultEventName(appId);
  const UniqueHandle event = JustUtil::CreateEventW(eventName);
  if (!event) {
    LOG_INSTALL("E:") << "Can't create event with name: " << eventName;
    return {};
  }
  const std::wstring executor = ExecutorToStart();
  const std::wstring commandLine = SilentUpdateCommandLine(executor, WidenUtf8(appId));
  LOG_INSTALL("D:") << "Run: " << commandLine;
  UniqueHandle process;
  const std::uint32_t error = TEnvironment::Execute(executor, commandLine, &process);
  LOG_INSTALL("D:") << "Updater started, code: " << error;
  if (error != 0) return {};
  const InstallWait wait = WaitForInstallation(appId, event, process);
  LOG_INSTALL("D:") << "End of waiting." << wait.result;
  if (wait.code) {
    LOG_INSTALL("D:") << "ExitCode: " << *wait.code;
  } else {
    LOG_INSTALL("E:") << "The executor ended without an answer." << kOtherCode << wait.exitCode;
  }
  return wait.code;
}

}  // namespace

bool TUpdaterController::IsUpdateAvailable(const char* appId, const HostRelease& host,
                                           const char* operation, std::int32_t* status) {
  bool done = false;
  Guarded(LOG_PLACE, [&] {
    // First of all: after a step that fails, an older result must not be installed.
    hostCheck_.ForgetUpdate();
    const std::string id = Required(appId, "AppId is NULL");
    Required(host.versionUrl, "VersionUrl is NULL");
    Required(host.platform, "Platform is NULL");
    const std::string step = Required(operation, "Operation is NULL");
    TAppInfo2 store(id);
    const StoreChanges changes(store);
    WriteRelease(store, host);
    WriteChannel(store, host.release, WriteLocalRecord(id, host, /*isStart=*/false));
    store.SaveChanges();
    const std::string versionUrl = store.VersionUrl();
    hostCheck_.Choose(id, versionUrl);
    LOG_D << "AppId: " << id;
    LOG_D << "Operation: " << step;
    LOG_D << "VersionUrl: " << versionUrl;
    LOG_D << "Version: " << ReleaseText(host);
    done = RunOperation(store, step, status);
    return Ended::kOut;
  });
  return done;
}

bool TUpdaterController::RunOperation(TAppInfo2& store, const std::string& operation,
                                      std::int32_t* status) {
  if (operation == "start") return hostCheck_.Start();
  if (operation == "stop") return hostCheck_.Stop();
  if (operation != "check") {
    LogAs("TUpdaterController::IsUpdateAvailable", __LINE__, "E:")
        << "Unknown operation: " << operation;
    return false;
  }
  if (!status && hostCheck_.HasDownload())
    LogAs("TUpdaterController::IsUpdateAvailable", __LINE__, "D:") << "Status == NULL.";
  const std::optional<CheckStatus> result = hostCheck_.Check(store);
  if (result && status) *status = static_cast<std::int32_t>(*result);
  return result.has_value();
}

bool TUpdaterController::IsUpgradeAvailable(const char* appId, std::int32_t waitMilliseconds) {
  bool available = false;
  Guarded(LOG_PLACE, [&] {
    TAppInfo2& store = Record(appId);
    // Before the job, whose executor may signal before this thread waits.
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
    // Only now: a report that failed must not cost the host the answer to its check.
    jobs.RethrowPingFailure();
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
    ScheduleUpdaterJob(store, statisticsLock_, NowSeconds()).RethrowPingFailure();
    return Ended::kOut;
  });
}

bool TUpdaterController::DownloadAndInstallSilentUpdate(std::int32_t* exitCode) {
  bool done = false;
  Guarded(LOG_PLACE, [&] {
    if (!hostCheck_.HasFoundUpdate()) {
      LOG_E << "No update available. Why you call it??";
      return Ended::kLeft;
    }
    if (hostCheck_.AppId().empty()) {
      LOG_E << "You should call IsUpdateAvailable before DownloadAndInstallSilentUpdate";
      return Ended::kLeft;
    }
    const std::optional<std::int32_t> code = InstallByExecutor(hostCheck_.AppId());
    if (!code) return Ended::kLeft;
    if (exitCode) *exitCode = *code;
    done = true;
    return Ended::kOut;
  });
  return done;
}
