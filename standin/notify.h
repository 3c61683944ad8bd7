// The program that starts when a job is done.
#ifndef KUPDATE_STANDIN_NOTIFY_H_
#define KUPDATE_STANDIN_NOTIFY_H_

#include "standin/job.h"
#include "standin/service.h"

namespace standin {

/// Starts the job's notify program if the notice of `run` is due, the job has a program and its
/// flags name the job's state. Blocks until the notice is no longer due: a program that cannot be
/// started, or ends with anything but 0, starts again after kRetryDelaySeconds. The program runs in
/// the system folder, without a window and without our handles. Journals "notify" at each start, or
/// "problem" when the start fails, and "notify_exit" at each end.
void DeliverNotice(Service& service, Job& job, Job::Run run);

}  // namespace standin

#endif  // KUPDATE_STANDIN_NOTIFY_H_
