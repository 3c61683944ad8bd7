#include "controller/executor_path.h"

#include "appinfo/app_info2.h"
#include "controller/updater_controller.h"
#include "layout/folders.h"
#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/mutex.h"
#include "util/system.h"

namespace {

struct ExecutorPaths {
  CriticalSection guard;
  std::wstring execName;
  std::wstring legacyExecName;
};

// Computed on first need. The caller holds the guard.
const std::wstring& LegacyExecName(ExecutorPaths& paths) {
  if (paths.legacyExecName.empty()) {
    // Empty without its folder: a bare name would be looked for in the host's current directory.
    paths.legacyExecName = DefaultExecutorPath();
  }
  return paths.legacyExecName;
}

ExecutorPaths& Paths() {
  static ExecutorPaths& paths = *new ExecutorPaths;  // leaked: the process's end is no time to work
  return paths;
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

std::wstring ExecutorToStart() {
  std::wstring path = TUpdaterController::GetExecutorPath();
  if (path.empty() || !IsElevatedUnderUac() || !CanOthersReplace(path)) return path;
  LOG_E << "The executor is refused, for this process is elevated and others can replace it:"
        << path;
  return {};
}

bool IsExecutorUnused(const std::wstring& executor) {
  ExecutorPaths& paths = Paths();
  std::wstring defaultExecutor;
  // The guard is given back before the lists are read, which takes many file operations.
  {
    const CriticalScope scope(paths.guard);
    defaultExecutor = LegacyExecName(paths);
  }
  return TAppInfo2::IsApplicationListEmpty(executor, defaultExecutor);
}
