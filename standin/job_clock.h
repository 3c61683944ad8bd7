// The clock of the jobs: the control file may make its seconds shorter.
#ifndef KUPDATE_STANDIN_JOB_CLOCK_H_
#define KUPDATE_STANDIN_JOB_CLOCK_H_

#include <chrono>
#include <mutex>

namespace standin {

/// Each reading gives the speed since the last one. Never goes back. Several threads may use it.
class JobClock {
 public:
  /// Job seconds since the clock was made. The time since the last reading counts `factor` times.
  double Seconds(double factor) {
    const std::lock_guard lock(mutex_);
    const auto now = std::chrono::steady_clock::now();
    seconds_ += std::chrono::duration<double>(now - last_).count() * factor;
    last_ = now;
    return seconds_;
  }

 private:
  std::mutex mutex_;
  std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
  double seconds_ = 0;
};

}  // namespace standin

#endif  // KUPDATE_STANDIN_JOB_CLOCK_H_
