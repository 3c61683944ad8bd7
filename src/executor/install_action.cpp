#include "executor/install_action.h"

#include "appinfo/local_record.h"
#include "executor/rendezvous.h"
#include "executor/run.h"
#include "install/silent_update.h"
#include "layout/command_line.h"
#include "layout/keys.h"
#include "update/upd_info.h"
#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/process.h"

namespace {

// Writes the outcome into the stores; false when the host cannot learn it.
bool WriteCode(const std::string& appId, int code) {
  LOG_I << "ExitCode: " << code;
  TUpdInfo(appId).WriteNumber(key::kDistroExitCode, code);
  if (IsInstalled(code) && IsLiving(appId))
    TAppInfo2(appId).WriteFlag(key::kUpgradeAvailable, false);
  // Last: from here on the host that started this run takes the code for its own.
  if (WriteAnswer(appId, InstallAnswer{OwnRunId(), code})) return true;
  LOG_E << "The answer to the host cannot be stored.";
  return false;
}

}  // namespace

int RunInstallAction(const ExecutorCommand& command) {
  FileLock lock = ExecutorLock(command.appId);
  const LockScope scope(&lock);
  if (!scope) {
    // Nothing is written, because the other executor writes the answer.
    LOG_E << "Another executor works for the application, no installation.";
    return kExitBusy;
  }
  // If this process dies, no host takes an older code for its own.
  TUpdInfo(command.appId).RemoveValue(key::kDistroExitCode);
  return FinishInstall(command.appId, RunSilentUpdate(command.appId));
}

int FinishInstall(const std::string& appId, int code) noexcept {
  bool isStored = false;
  try {
    isStored = WriteCode(appId, code);
  } catch (...) {
    LOG_E << "Can't write the exit code.";
  }
  SignalResult(appId);
  return isStored ? kExitDone : kExitNoAnswer;
}
