// The program that is started when a job is done.
#ifndef KUPDATE_STANDIN_NOTIFY_H_
#define KUPDATE_STANDIN_NOTIFY_H_

#include <cstdint>
#include <memory>

#include "standin/job.h"
#include "standin/service.h"

namespace standin {

/// Starts the job's notify program if it has one and its flags name `reason`
/// (BG_NOTIFY_JOB_TRANSFERRED or BG_NOTIFY_JOB_ERROR). The program runs in the system folder,
/// without a window and without our handles. Journals "notify" at the start, or "problem" when it
/// cannot be started, and "notify_exit" when the program has ended, which nobody waits for.
void StartNotify(Service& service, const std::shared_ptr<Job>& job, std::uint32_t reason);

}  // namespace standin

#endif  // KUPDATE_STANDIN_NOTIFY_H_
