// The transfer of one job, on a thread of its own.
#ifndef KUPDATE_STANDIN_TRANSFER_H_
#define KUPDATE_STANDIN_TRANSFER_H_

#include <memory>

#include "standin/job.h"
#include "standin/service.h"

namespace standin {

/// Starts a thread that downloads the job's files one after the other until all are there, the job
/// has failed, or `run` is over. It journals "transient_error", "transferred" and "error". Then it
/// delivers the notice of the run, or the one that was still due when the last server ended. The
/// job fails if the system gives no thread.
void StartTransfer(Service& service, const std::shared_ptr<Job>& job, Job::Run run);

}  // namespace standin

#endif  // KUPDATE_STANDIN_TRANSFER_H_
