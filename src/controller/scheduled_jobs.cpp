#include "controller/scheduled_jobs.h"

#include <string>
#include <utility>

#include "appinfo/app_info2.h"
#include "appinfo/local_record.h"
#include "controller/executor_path.h"
#include "layout/command_line.h"
#include "layout/file_names.h"
#include "layout/keys.h"
#include "stat/stat_ctrl.h"
#include "transfer/transfer.h"
#include "util/diag_log.h"
#include "util/files.h"
#include "util/folders.h"
#include "util/log_line.h"
#include "util/process.h"
#include "util/text.h"

namespace {

// 23 hours: a check without progress ends before the next one is due.
constexpr std::uint32_t kCheckTimeoutSeconds = 82800;
// A day: the next report of a day of use says the same. Other states have the default, 14 days.
constexpr std::uint32_t kDayuseTimeoutSeconds = 86400;

enum class Removal { kNo, kWhenUnused };

bool Launch(const std::string& appId, const PingBlock& block, Removal removal) noexcept {
  try {
    const std::wstring id = WidenUtf8(appId);
    const std::wstring resultFile = FreshTempFile(ReportAnswerFile(appId));
    const std::wstring executor = ExecutorToStart();
    if (resultFile.empty() || executor.empty()) {
      LOG_E << "No folder for the ping.";
      return false;
    }
    const bool suicide = removal == Removal::kWhenUnused &&
                         block.firstState == AppState::kUninstall && IsExecutorUnused(executor);
    JobOrder order{.url = block.url, .file = resultFile, .purpose = JobPurpose::kReport};
    if (block.firstState == AppState::kDayuse) order.timeoutSeconds = kDayuseTimeoutSeconds;
    order.program = executor;
    order.arguments = PingArguments(id, block.id, suicide);
    return !StartJob(std::move(order)).empty();
  } catch (...) {
    return false;  // the failing call is in the log
  }
}

// Whether the application is removed. Where it has a local record, that decides, because any
// process of the user can write the mark in the store.
bool IsRemoved(const TAppInfo2& store) {
  const std::optional<LocalRecord> record = ReadLocalRecord(store.AppId());
  return record ? record->removed : store.IsRemoved();
}

// A report address that is too long must not keep a program from ever updating itself.
std::exception_ptr SendDuePing(TAppInfo2& store, TLocker* statisticsLock, std::uint64_t now) {
  try {
    TStatCtrl::SendStat(store, statisticsLock, now, LaunchPing);
    return {};
  } catch (...) {
    return std::current_exception();
  }
}

}  // namespace

std::wstring FreshTempFile(const std::wstring& name) {
  std::wstring path = GetTempFolder();
  if (path.empty() || name.find_first_of(L"\\/") != name.npos) return {};
  path += name;
  // An old file must not pass for the one that the new job brings.
  FileSystem::DeleteFile(NarrowUtf8(path));
  return path;
}

std::string CheckUpdate(TAppInfo2& store) {
  const std::wstring resultFile = FreshTempFile(ScheduledFeedFile(store.AppId()));
  const std::wstring executor = ExecutorToStart();
  LOG_I << "KupdateExecutablePath: " << executor;
  const std::string url = store.VersionUrl();
  if (url.empty()) {
    LOG_E << "VersionUrl is empty";
    return {};
  }
  if (resultFile.empty() || executor.empty()) {
    LOG_E << "No folder for the check.";
    return {};
  }
  // The service may start the executor before this function returns.
  store.SaveChanges();
  return StartJob({.url = url,
                   .file = resultFile,
                   .purpose = JobPurpose::kCheck,
                   .timeoutSeconds = kCheckTimeoutSeconds,
                   .program = executor,
                   .arguments = UpdateCheckArguments(WidenUtf8(store.AppId()), resultFile)});
}

bool LaunchPing(const std::string& appId, const PingBlock& block) noexcept {
  return Launch(appId, block, Removal::kNo);
}

bool LaunchLastPing(const std::string& appId, const PingBlock& block) noexcept {
  return Launch(appId, block, Removal::kWhenUnused);
}

ScheduledJobs ScheduleUpdaterJob(TAppInfo2& store, TLocker* statisticsLock, std::uint64_t now) {
  LOG_I << "*** >>> ScheduleUpdaterJob >>> ***";
  LOG_I << "Name: " << HostProgramName();
  // A removed application reports once more and then looks for updates no more.
  if (IsRemoved(store)) {
    TStatCtrl::SendStat(store, statisticsLock, now, LaunchLastPing);
    return {};
  }
  const bool isPingDue = store.ShouldPing(now) && !store.Read(key::kReportUrl).empty();
  const bool isCheckDue = store.ShouldCheck(now);
  // Both times are noted before the report is sent, in the order of the work: so the file is
  // written once.
  if (isPingDue) store.RecordPing(now);
  if (isCheckDue) store.UpdateLastCheckTime(now);
  ScheduledJobs jobs;
  if (isPingDue) jobs.pingFailure = SendDuePing(store, statisticsLock, now);
  if (isCheckDue) jobs.check = CheckUpdate(store);
  LOG_I << "*** <<< ScheduleUpdaterJob <<< ***";
  return jobs;
}
