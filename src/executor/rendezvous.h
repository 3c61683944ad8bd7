// How executors meet each other and the hosts that wait for them: one lock, one signal.
#ifndef KUPDATE_EXECUTOR_RENDEZVOUS_H_
#define KUPDATE_EXECUTOR_RENDEZVOUS_H_

#include <string>

#include "util/file_lock.h"

/// Held by the executor alone, from start to end of a check or an install: a file in the local
/// folder, which is made. Under it the application's statistics mutex is not taken before the
/// result is signalled: a host may hold that one while it waits for the signal.
///
/// Waits 60 seconds for another executor. A check that has to give up is started again by the
/// transfer service; a host that wants an installation learns that it is busy.
FileLock ExecutorLock(const std::string& appId);

/// Wakes the host that waits for the application's check or install, if there is one. To be called
/// after all writes. Throws nothing; a failure is logged.
void SignalResult(const std::string& appId) noexcept;

#endif  // KUPDATE_EXECUTOR_RENDEZVOUS_H_
