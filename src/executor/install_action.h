// Installing the update that a host's check has found.
#ifndef KUPDATE_EXECUTOR_INSTALL_ACTION_H_
#define KUPDATE_EXECUTOR_INSTALL_ACTION_H_

#include <string>

struct ExecutorCommand;

/// "--silent-update-check": installs the update, writes "DistroExitCode" and signals, on every way
/// out. Holds the application's check lock from start to end. The codes are those of
/// RunSilentUpdate.
/// @return kExitDone: the host has its answer; kExitNoAnswer; kExitBusy: nothing was done.
int RunInstallAction(const ExecutorCommand& command);

/// Writes "DistroExitCode" and the answer, and signals. A host reads a code that is absent as a
/// success when this process ends with 0, so this is for every way out, also an unforeseen one.
/// Throws nothing.
/// @return the exit code of the process: kExitDone or kExitNoAnswer
int FinishInstall(const std::string& appId, int code) noexcept;

#endif  // KUPDATE_EXECUTOR_INSTALL_ACTION_H_
