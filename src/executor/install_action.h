// Installing the update that a host's check has found.
#ifndef KUPDATE_EXECUTOR_INSTALL_ACTION_H_
#define KUPDATE_EXECUTOR_INSTALL_ACTION_H_

#include <string>

struct ExecutorCommand;

/// "--silent-update-check": installs the update, writes "DistroExitCode" and signals, on every way
/// out. Holds the application's check lock from start to end. The codes are those of
/// RunSilentUpdate.
/// @return kExitDone: the result is in the record; kExitBusy: nothing was done.
int RunInstallAction(const ExecutorCommand& command);

/// Writes "DistroExitCode" and signals. A host reads a code that is absent as a success, so this is
/// for every way out, also an unforeseen one. Throws nothing.
void FinishInstall(const std::string& appId, int code) noexcept;

#endif  // KUPDATE_EXECUTOR_INSTALL_ACTION_H_
