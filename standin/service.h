// The parts that the whole server shares.
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

/// The service's delay before another try: of an interrupted transfer, of a notify program that has
/// failed.
inline constexpr double kRetryDelaySeconds = 600;

// The longest nap of a waiting thread, which notices a changed clock or its end at most so late.
inline constexpr double kMaxNapMilliseconds = 50;

/// One per process. Outlives all transfers, notify programs and client objects.
struct Service {
  /// @param folder  where journal, control file and jobs are, with a trailing "\"
  explicit Service(const std::wstring& folder)
      : journal(folder + L"journal.jsonl"),
        control(folder + L"control.txt", journal),
        jobs(folder + kJobFileName) {}

  /// The time of the jobs, with the speed and the offset of the control file.
  double JobSeconds() { return clock.Seconds(control.ClockFactor()) + control.LaterSeconds(); }

  /// Call it after each change of a job, before a client, a program or the journal shows the
  /// change.
  void SaveJobs() {
    if (!jobs.Save()) journal.Problem("the jobs cannot be written to their file");
  }
  /// Waits until that time of the jobs' clock or until `goesOn` returns false, and asks it often.
  /// @return the last result of `goesOn`
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
