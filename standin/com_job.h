// A job as clients see it.
#ifndef KUPDATE_STANDIN_COM_JOB_H_
#define KUPDATE_STANDIN_COM_JOB_H_

#include <memory>

#include "standin/job.h"
#include "standin/service.h"

struct IBackgroundCopyJob;

namespace standin {

/// The caller owns one reference to the result. It also offers IBackgroundCopyJob2, unless the
/// control file withholds that, and IBackgroundCopyJob5, if the control file offers that. The
/// control file counts as it is when a client asks.
IBackgroundCopyJob* NewJobObject(Service& service, std::shared_ptr<Job> job);

}  // namespace standin

#endif  // KUPDATE_STANDIN_COM_JOB_H_
