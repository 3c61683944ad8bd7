#include "controller/executor.h"

#include <string>

#include "appinfo/app_info2.h"
#include "controller/updater_controller.h"
#include "layout/command_line.h"
#include "layout/file_names.h"
#include "layout/folders.h"
#include "stat/stat_ctrl.h"
#include "transfer/bits_transfer.h"
#include "transfer/com_apartment.h"
#include "util/critical_section.h"
#include "util/diag_log.h"
#include "util/files.h"
#include "util/log_line.h"
#include "util/system.h"
#include "util/text.h"

namespace {

constexpr std::uint32_t kCheckTimeoutSeconds = 82800;   // 23 hours
constexpr std::uint32_t kDayuseTimeoutSeconds = 86400;  // a day: the next one says the same

struct ExecutorPaths {
  CriticalSection guard;
  std::wstring execName;
  std::wstring legacyExecName;
};

// Computed on first need. Under the guard.
const std::wstring& LegacyExecName(ExecutorPaths& paths) {
  if (paths.legacyExecName.empty()) {
    // Without its folder it would be looked for in the host's current directory.
    paths.legacyExecName = DefaultExecutorPath();
  }
  return paths.legacyExecName;
}

ExecutorPaths& Paths() {
  static ExecutorPaths& paths = *new ExecutorPaths;  // leaked: the process's end is no time to work
  return paths;
}

bool IsExecutorUnused(const std::wstring& executor) {
  ExecutorPaths& paths = Paths();
  std::wstring defaultExecutor;
  {
    const CriticalScope scope(paths.guard);
    defaultExecutor = LegacyExecName(paths);
  }
  return TAppInfo2::IsApplicationListEmpty(executor, defaultExecutor);
}

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
    const ComApartment apartment;
    TBitsTransfer transfer(block.url, resultFile, JobPurpose::kReport);
    if (block.firstState == AppState::kDayuse) transfer.SetTimeout(kDayuseTimeoutSeconds);
    transfer.NotifyCmdLine(executor, PingArguments(id, block.id, suicide));
    transfer.Work();
    return transfer.Added();
  } catch (...) {
    return false;  // the failing call is in the log
  }
}

}  // namespace

void TUpdaterController::SetExecutorPath(const wchar_t* path) {
  ExecutorPaths& paths = Paths();
  const CriticalScope scope(paths.guard);
  paths.execName = path ? path : L"";
  LOG_I << "Now Exec name:" << paths.execName;
}

std::wstring TUpdaterController::NamedExecutor() {
  ExecutorPaths& paths = Paths();
  const CriticalScope scope(paths.guard);
  return paths.execName;
}

std::wstring TUpdaterController::GetExecutorPath() {
  ExecutorPaths& paths = Paths();
  const CriticalScope scope(paths.guard);
  if (!paths.execName.empty()) {
    LOG_D << "Exec name" << paths.execName;
    return paths.execName;
  }
  LOG_D << "Legacy Exec name" << LegacyExecName(paths);
  return paths.legacyExecName;
}

std::wstring FreshTempFile(const std::wstring& name) {
  std::wstring path = GetTempFolder();
  if (path.empty() || name.find_first_of(L"\\/") != name.npos) return {};
  path += name;
  FileSystem::DeleteFile(NarrowUtf8(path));
  return path;
}

std::wstring ExecutorToStart() {
  std::wstring path = TUpdaterController::GetExecutorPath();
  if (path.empty() || !IsElevatedUnderUac() || !CanOthersReplace(path)) return path;
  LOG_E << "The executor is refused, for this process is elevated and others can replace it:"
        << path;
  return {};
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
  const ComApartment apartment;
  TBitsTransfer transfer(url, resultFile, JobPurpose::kCheck);
  transfer.SetTimeout(kCheckTimeoutSeconds);
  transfer.NotifyCmdLine(executor, UpdateCheckArguments(WidenUtf8(store.AppId()), resultFile));
  store.SaveChanges();
  transfer.Work();
  return transfer.JobId();
}

bool LaunchPing(const std::string& appId, const PingBlock& block) noexcept {
  return Launch(appId, block, Removal::kNo);
}

bool LaunchLastPing(const std::string& appId, const PingBlock& block) noexcept {
  return Launch(appId, block, Removal::kWhenUnused);
}
