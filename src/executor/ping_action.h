// What happens when a ping has ended.
#ifndef KUPDATE_EXECUTOR_PING_ACTION_H_
#define KUPDATE_EXECUTOR_PING_ACTION_H_

#include <string>

struct ExecutorCommand;

/// "--stat-callback": ends the job, then settles its block.
/// @return the exit code: 1 when the job could not be ended and nothing was touched, else 0.
int RunPingAction(const ExecutorCommand& command);

/// Confirms a delivered block; takes back one that was not delivered. Then a removed application is
/// forgotten once its uninstall was delivered; or, where it was not and a ping is due, it is
/// reported once more, since no host will. Takes the statistics lock for each step and holds it
/// across none of the transfer service's calls. Throws nothing.
void SettleBlock(const std::string& appId, int blockId, bool delivered) noexcept;

#endif  // KUPDATE_EXECUTOR_PING_ACTION_H_
