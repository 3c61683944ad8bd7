#include "executor/result_signal.h"

#include "layout/command_line.h"
#include "layout/names.h"
#include "util/diag_log.h"
#include "util/handle.h"
#include "util/log_line.h"
#include "util/text.h"

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
