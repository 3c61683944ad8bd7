#include "executor/install_action.h"

#include "executor/app_files.h"
#include "executor/executor_command.h"
#include "executor/executor_names.h"
#include "executor/result_signal.h"
#include "install/silent_update.h"
#include "update/upd_info.h"
#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/mutex.h"

namespace {

constexpr char kExitCode[] = "DistroExitCode";

// What the stores say from now on.
void WriteCode(const std::string& appId, int code) {
  LOG_I << "ExitCode: " << code;
  TUpdInfo(appId).WriteNumber(kExitCode, code);
  if (IsInstalled(code) && IsRegistered(appId)) {
    TAppInfo2(appId).WriteFlag("UpgradeAvailable", false);
  }
}

}  // namespace

int RunInstallAction(const ExecutorCommand& command) {
  Mutex lock(CheckMutexName(command.appId));
  const LockScope scope(&lock);
  // Should this process die, nobody takes an older code for its own.
  TUpdInfo(command.appId).RemoveValue(kExitCode);
  FinishInstall(command.appId, RunSilentUpdate(command.appId));
  return 0;
}

void FinishInstall(const std::string& appId, int code) noexcept {
  try {
    WriteCode(appId, code);
  } catch (...) {
    LOG_E << "Can't write the exit code.";
  }
  SignalResult(appId);
}
