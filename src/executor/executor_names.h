// The locks that the executor shares with hosts and with other executors.
#ifndef KUPDATE_EXECUTOR_EXECUTOR_NAMES_H_
#define KUPDATE_EXECUTOR_EXECUTOR_NAMES_H_

#include <string>

#include "layout/file_names.h"
#include "layout/folders.h"
#include "util/file_lock.h"
#include "util/text.h"

/// How long an executor waits for another one that works for the same application. A check that has
/// to give up is started again by the transfer service; a host that wants an installation learns
/// that it is busy.
constexpr unsigned kExecutorWaitMilliseconds = 60'000;

/// Held by the executor alone, from start to end of a check or an install: a file in the local
/// folder, which is made. Under it the one above is not taken before the result is signalled: a
/// host may hold it while it waits for that.
inline FileLock ExecutorLock(const std::string& appId) {
  const std::wstring folder = GetUpdaterLocalFolder(appId, CreateFolder::kYes);
  return FileLock(folder.empty() ? std::string() : NarrowUtf8(folder) + kExecutorLockFile,
                  kExecutorWaitMilliseconds);
}

#endif  // KUPDATE_EXECUTOR_EXECUTOR_NAMES_H_
