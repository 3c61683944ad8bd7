#include "executor/rendezvous.h"

#include "layout/file_names.h"
#include "layout/folders.h"
#include "layout/names.h"
#include "util/diag_log.h"
#include "util/handle.h"
#include "util/log_line.h"
#include "util/text.h"

FileLock ExecutorLock(const std::string& appId) {
  constexpr unsigned kWaitMilliseconds = 60'000;
  const std::wstring folder = GetUpdaterLocalFolder(appId, CreateFolder::kYes);
  return FileLock(folder.empty() ? std::string() : NarrowUtf8(folder) + kExecutorLockFile,
                  kWaitMilliseconds);
}

void SignalResult(const std::string& appId) noexcept {
  try {
    // Without a waiting host this makes an event, which goes with its handle.
    const UniqueHandle event = JustUtil::CreateEventW(ResultEventName(appId));
    if (event && JustUtil::Signal(event)) return;
    LOG_E << "Can't signal the result." << kLastError;
  } catch (...) {
    LOG_E << "Can't signal the result.";
  }
}
