#include "executor/run.h"

#include "controller/updater_controller.h"
#include "executor/channel_action.h"
#include "executor/check_action.h"
#include "executor/console.h"
#include "executor/housekeeping.h"
#include "executor/install_action.h"
#include "executor/ping_action.h"
#include "executor/rendezvous.h"
#include "executor/status.h"
#include "install/silent_update.h"
#include "layout/command_line.h"
#include "layout/file_names.h"
#include "layout/log_start.h"
#include "transfer/transfer.h"
#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/process.h"
#include "util/system.h"
#include "util/text.h"

namespace {

constexpr char kHelp[] =
    "kupdate-exec: acts on finished transfers and installs updates\n"
    "\n"
    "For people:\n"
    "  kupdate-exec --help\n"
    "  kupdate-exec --version\n"
    "  kupdate-exec --status [--appid ID] [--json]\n"
    "      shows applications, their next checks and reports, waiting data and jobs\n"
    "  kupdate-exec --set-channel beta|release --appid ID\n"
    "      chooses whether the application is offered beta versions\n"
    "\n"
    "For the library and the transfer service:\n"
    "  kupdate-exec --appid ID --update-check --file \"FILE\" --job {JOB}\n"
    "  kupdate-exec [--suicide] --stat-callback N --appid ID --job {JOB}\n"
    "  kupdate-exec --appid ID --silent-update-check\n"
    "  kupdate-exec --job {JOB}\n"
    "\n"
    "Exit codes: 0 done, 1 the job could not be ended, 2 wrong usage, 3 busy,\n"
    "4 an installation's answer could not be stored, 5 the channel was not set.\n";

int RunBareJob(const ExecutorCommand& command) {
  return EndJob(command.jobId).end == JobEnd::kAlive ? kExitJobAlive : kExitDone;
}

int RunAction(const ExecutorCommand& command) {
  switch (command.kind) {
    case CommandKind::kUpdateCheck:
      return RunCheckAction(command);
    case CommandKind::kStatCallback:
      return RunPingAction(command);
    case CommandKind::kSilentUpdate:
      return RunInstallAction(command);
    default:
      return RunBareJob(command);
  }
}

// After any failure: ends the job where that is possible, and wakes a host that waits.
int RescueFrom(const ExecutorCommand& command) noexcept {
  LOG_E << "Unhandled exception.";
  if (command.kind == CommandKind::kSilentUpdate) {
    return FinishInstall(command.appId, kInstallFailed);
  }
  const int code = command.jobId.empty() ? kExitDone : RunBareJob(command);
  if (command.kind == CommandKind::kUpdateCheck && code == kExitDone) SignalResult(command.appId);
  return code;
}

int RunLogged(const ExecutorCommand& command) noexcept {
  int code = kExitDone;
  try {
    StartLog(LogFile(command.appId), {});
    JustUtil::OutBanner();
    // Jobs that this process makes start this program again, wherever it lies.
    TUpdaterController::SetExecutorPath(ModulePath().c_str());
    code = RunAction(command);
  } catch (...) {
    code = RescueFrom(command);
  }
  // After the action, whose answer a host may wait for.
  KeepHouse();
  LOG_I << "Exit code:" << code;
  return code;
}

int Print(const std::string& text) {
  WriteToConsole(ConsoleStream::kOutput, text);
  return kExitDone;
}

int Refuse() {
  WriteToConsole(ConsoleStream::kError, kHelp);
  return kExitUsage;
}

}  // namespace

int RunCommand(const ExecutorCommand& command) noexcept {
  try {
    switch (command.kind) {
      case CommandKind::kNone:
        return Refuse();
      case CommandKind::kHelp:
        return Print(kHelp);
      case CommandKind::kVersion:
        return Print("kupdate-exec " + FileVersionText(ModulePath()) + "\n");
      case CommandKind::kStatus:
        return Print(StatusText(command));
      case CommandKind::kSetChannel:
        return RunChannelAction(command);
      default:
        return RunLogged(command);
    }
  } catch (...) {
    return kExitUsage;  // only a lack of memory leads here
  }
}
