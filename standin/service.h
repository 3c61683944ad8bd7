// What every part of the server shares.
#ifndef KUPDATE_STANDIN_SERVICE_H_
#define KUPDATE_STANDIN_SERVICE_H_

#include <algorithm>
#include <string>

#include "standin/control.h"
#include "standin/job_clock.h"
#include "standin/job_store.h"
#include "standin/journal.h"
#include "standin/lifetime.h"
#include "util/clock.h"

namespace standin {

inline constexpr wchar_t kJobFileName[] = L"jobs.txt";

/// How long the service waits before it tries something again: a transfer that was interrupted, a
/// notify program that was not content.
inline constexpr double kRetryDelaySeconds = 600;

// How late a waiting thread may notice that it need not wait, or that the clock has been changed.
inline constexpr double kMaxNapMilliseconds = 50;

/// One per process. Outlives all transfers, notify programs and client objects.
struct Service {
  /// @param folder  where journal, control file and jobs are, with a trailing "\"
  explicit Service(const std::wstring& folder)
      : journal(folder + L"journal.jsonl"),
        control(folder + L"control.txt", journal),
        jobs(folder + kJobFileName) {}

  /// The time of the jobs, at the speed and as late as the control file says.
  double JobSeconds() { return clock.Seconds(control.ClockFactor()) + control.LaterSeconds(); }

  /// To be called after every change of a job and before anyone is told of it.
  void SaveJobs() {
    if (!jobs.Save()) journal.Problem("the jobs cannot be written to their file");
  }
  /// Waits, at the jobs' clock, until that time or, looking often, until `goesOn` says no.
  /// @return what `goesOn` said last
  template <class Condition>
  bool WaitUntil(double jobSeconds, Condition goesOn) {
    for (;;) {
      if (!goesOn()) return false;
      const double left = jobSeconds - JobSeconds();
      if (left <= 0) return true;
      const double milliseconds = left * 1000 / control.ClockFactor();
      SleepMilliseconds(static_cast<unsigned>(std::clamp(milliseconds, 1.0, kMaxNapMilliseconds)));
    }
  }

  Journal journal;
  Control control;
  JobStore jobs;
  JobClock clock;
  Lifetime lifetime;
};

}  // namespace standin

#endif  // KUPDATE_STANDIN_SERVICE_H_
