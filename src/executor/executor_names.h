// The locks that the executor shares with hosts and with other executors.
#ifndef KUPDATE_EXECUTOR_EXECUTOR_NAMES_H_
#define KUPDATE_EXECUTOR_EXECUTOR_NAMES_H_

#include <string>

#include "util/file_lock.h"
#include "util/folders.h"
#include "util/text.h"

/// Held by a host for each of its calls, and by the executor while it changes the statistics.
inline std::wstring StatisticsMutexName(const std::string& appId) {
  return L"STATISTIC{2B8F4B48-C2C5-4985-B7EB-B8818DDBBEC4}-" + WidenUtf8(appId);
}

/// How long an executor waits for another one that works for the same application. A check that has to
/// give up is started again by the transfer service; a host that wants an installation learns that it is
/// busy.
constexpr unsigned kExecutorWaitMilliseconds = 60'000;

/// Held by the executor alone, from start to end of a check or an install: a file in the local folder,
/// which is made. Under it the one above is not taken before the result is signalled: a host may hold it
/// while it waits for that.
inline FileLock ExecutorLock(const std::string& appId) {
  const std::wstring folder = GetUpdaterLocalFolder(appId, CreateFolder::kYes);
  return FileLock(folder.empty() ? std::string() : NarrowUtf8(folder) + "executor.lock",
                  kExecutorWaitMilliseconds);
}

#endif  // KUPDATE_EXECUTOR_EXECUTOR_NAMES_H_
