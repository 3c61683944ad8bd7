// The signal to a waiting host that a result is there.
#ifndef KUPDATE_EXECUTOR_RESULT_SIGNAL_H_
#define KUPDATE_EXECUTOR_RESULT_SIGNAL_H_

#include <string>

/// Wakes the host that waits for the application's check or install, if there is one. To be called
/// after all writes. Throws nothing; a failure is logged.
void SignalResult(const std::string& appId) noexcept;

#endif  // KUPDATE_EXECUTOR_RESULT_SIGNAL_H_
