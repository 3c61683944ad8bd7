// The work after the transfer of a report.
#ifndef KUPDATE_EXECUTOR_PING_ACTION_H_
#define KUPDATE_EXECUTOR_PING_ACTION_H_

#include <string>

struct ExecutorCommand;

/// "--stat-callback": ends the job, then confirms its block or takes it back.
/// @return the exit code: 1 when the job could not be ended and nothing was touched, else 0.
int RunPingAction(const ExecutorCommand& command);

/// Confirms a delivered block; takes back one that was not delivered. Then forgets a removed
/// application whose uninstall was delivered; where it was not and a report is due, sends it once
/// more, since no host will. Takes the statistics lock for each step and holds it across no call to
/// the transfer service. Throws nothing.
void SettleBlock(const std::string& appId, int blockId, bool delivered) noexcept;

#endif  // KUPDATE_EXECUTOR_PING_ACTION_H_
