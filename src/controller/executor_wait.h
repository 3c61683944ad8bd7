// Waiting for the executor's answer, apart from the answers to other hosts.
#ifndef KUPDATE_CONTROLLER_EXECUTOR_WAIT_H_
#define KUPDATE_CONTROLLER_EXECUTOR_WAIT_H_

#include <cstdint>
#include <optional>
#include <string>

#include "util/handle.h"

struct CheckWait {
  std::uint32_t result = kWaitTimeout;  ///< kWaitSignalled when the answer came
  bool found = false;
};

/// Waits until the executor has judged the feed of this very job. The answer to an older check,
/// whose executor signals the same event, does not end the wait. When another host takes the
/// signal, the wait ends at most a second later.
/// @param job           the id of the check's job
/// @param milliseconds  negative: without limit
CheckWait WaitForCheck(const std::string& appId, const std::string& job, const UniqueHandle& event,
                       std::int32_t milliseconds);

struct InstallWait {
  std::uint32_t result = kWaitFailed;  ///< 0 after a signal, 1 when the process ended before one
  std::optional<std::int32_t> code;    ///< nothing: the executor ended without an answer
  std::uint32_t exitCode = 0;          ///< of the executor, where there is no code
};

/// Waits, without limit, until the executor has answered or ended.
///
/// Its code counts when the file of answers names its run: no process of low integrity can write
/// that file.
///
///   signal ──> up to 10 s for its end ─┬─> its code is there ──> that code
///   end without a signal ──────────────┘   it still runs ──────> not its signal: wait on
///                                          it ended, exit code not 0 ──> no answer
///                                          it ended, exit code 0 ──> (A) or (B)
///
///   (A) The signal came first: the code in the store, else 0.
///   (B) The end came first: that code once a signal comes within 30 s, else no answer.
///
/// @param process  the executor that was started
InstallWait WaitForInstallation(const std::string& appId, const UniqueHandle& event,
                                const UniqueHandle& process);

#endif  // KUPDATE_CONTROLLER_EXECUTOR_WAIT_H_
