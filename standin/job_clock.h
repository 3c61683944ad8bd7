// The clock of the jobs: seconds that the control file may make short.
#ifndef KUPDATE_STANDIN_JOB_CLOCK_H_
#define KUPDATE_STANDIN_JOB_CLOCK_H_

#include <chrono>
#include <mutex>

namespace standin {

/// Runs at the speed given with each reading; never goes back. May be used by several threads.
class JobClock {
 public:
  /// Job seconds since the clock was made; the time since the last reading counts `factor` fold.
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
