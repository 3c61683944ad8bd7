// What every part of the server shares.
#ifndef KUPDATE_STANDIN_SERVICE_H_
#define KUPDATE_STANDIN_SERVICE_H_

#include <string>

#include "standin/control.h"
#include "standin/job_clock.h"
#include "standin/job_store.h"
#include "standin/journal.h"
#include "standin/lifetime.h"

namespace standin {

/// One per process. Outlives all transfers, notify programs and client objects.
struct Service {
  /// @param folder  where journal and control file are, with a trailing "\"
  explicit Service(const std::wstring& folder)
      : journal(folder + L"journal.jsonl"), control(folder + L"control.txt", journal) {}

  /// The time of the jobs, at the speed the control file gives.
  double JobSeconds() { return clock.Seconds(control.ClockFactor()); }

  Journal journal;
  Control control;
  JobStore jobs;
  JobClock clock;
  Lifetime lifetime;
};

}  // namespace standin

#endif  // KUPDATE_STANDIN_SERVICE_H_
