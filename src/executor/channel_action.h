// The user's choice of beta versions.
#ifndef KUPDATE_EXECUTOR_CHANNEL_ACTION_H_
#define KUPDATE_EXECUTOR_CHANNEL_ACTION_H_

struct ExecutorCommand;

/// Stores the channel of the command for its application, and prints the result. The next start of
/// the application checks at once.
/// @return the exit code; kExitNotSet for an application that is not registered
int RunChannelAction(const ExecutorCommand& command);

#endif  // KUPDATE_EXECUTOR_CHANNEL_ACTION_H_
