// The locks that the executor shares with hosts and with other executors.
#ifndef KUPDATE_EXECUTOR_EXECUTOR_NAMES_H_
#define KUPDATE_EXECUTOR_EXECUTOR_NAMES_H_

#include <string>

#include "util/text.h"

/// Held by a host for each of its calls, and by the executor while it changes the statistics.
inline std::wstring StatisticsMutexName(const std::string& appId) {
  return L"STATISTIC{2B8F4B48-C2C5-4985-B7EB-B8818DDBBEC4}-" + WidenUtf8(appId);
}

/// Held by the executor alone, from start to end of a check or an install. Under it the one above
/// is not taken before the result is signalled: a host may hold it while it waits for that.
inline std::wstring CheckMutexName(const std::string& appId) {
  return L"KUPDATE-CHECK-" + WidenUtf8(appId);
}

#endif  // KUPDATE_EXECUTOR_EXECUTOR_NAMES_H_
