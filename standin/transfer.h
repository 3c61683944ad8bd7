// The transfer of one job, on a thread of its own.
#ifndef KUPDATE_STANDIN_TRANSFER_H_
#define KUPDATE_STANDIN_TRANSFER_H_

#include <memory>

#include "standin/job.h"
#include "standin/service.h"

namespace standin {

/// Starts a thread that downloads the job's files one after the other until they are all there, the
/// job has failed, or `run` is over. It journals "transient_error", "transferred" and "error", and
/// then delivers the notice that the run leaves due, or had left due when the last server ended.
/// Where there is no thread to be had the job fails.
void StartTransfer(Service& service, const std::shared_ptr<Job>& job, Job::Run run);

}  // namespace standin

#endif  // KUPDATE_STANDIN_TRANSFER_H_
