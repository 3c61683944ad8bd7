// From a command to an exit code.
#ifndef KUPDATE_EXECUTOR_RUN_H_
#define KUPDATE_EXECUTOR_RUN_H_

struct ExecutorCommand;

/// The exit codes. The transfer service starts a notify program again after any other code than 0
/// while its job is alive, so 0 means that the job of the command is completed, cancelled or gone.
constexpr int kExitDone = 0;
constexpr int kExitJobAlive = 1;  ///< it could be neither completed nor cancelled
constexpr int kExitUsage = 2;     ///< the command line asks for nothing, and names no job
constexpr int kExitBusy = 3;      ///< another executor worked for the application for too long
constexpr int kExitNoAnswer = 4;  ///< an installation has ended, but its answer cannot be stored
constexpr int kExitNotSet = 5;    ///< no such application, or its record could not be written

/// Does what the command asks for. Help, version, status and a choice of channel are printed;
/// everything else is logged, in "kupdate-exec-" and the application id and ".log", and is followed by housekeeping. Throws
/// nothing.
int RunCommand(const ExecutorCommand& command) noexcept;

#endif  // KUPDATE_EXECUTOR_RUN_H_
