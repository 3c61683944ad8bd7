// The frame of the controller's operations.
#ifndef KUPDATE_CONTROLLER_GUARDED_H_
#define KUPDATE_CONTROLLER_GUARDED_H_

#include <string_view>

#include "util/diag_log.h"
#include "util/log_line.h"

/// The place that the frame lines of an operation name.
struct LogPlace {
  std::string_view function;
  int line;
};
#define LOG_PLACE (LogPlace{FunctionName(__PRETTY_FUNCTION__), __LINE__})

inline LogLine LogAt(const LogPlace& place, const char* level) {
  return LogAs(place.function, place.line, level);
}

/// The result of a body: the operation came to its end, which is logged, or was left before.
enum class Ended { kOut, kLeft };

/// Runs one operation between "in" and "out". Whatever `body` throws ends here, with a line in the
/// log.
template <class Body>
void Guarded(const LogPlace& place, Body&& body) noexcept {
  try {
    LogAt(place, "I:") << "in";
    if (body() == Ended::kOut) LogAt(place, "I:") << "out";
  } catch (...) {
    LogAt(place, "D:") << "Unhandled exception.";
  }
}

#endif  // KUPDATE_CONTROLLER_GUARDED_H_
