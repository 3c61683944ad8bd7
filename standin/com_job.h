// A job as clients see it.
#ifndef KUPDATE_STANDIN_COM_JOB_H_
#define KUPDATE_STANDIN_COM_JOB_H_

#include <memory>

#include "standin/job.h"
#include "standin/service.h"

struct IBackgroundCopyJob;

namespace standin {

/// The caller owns one reference to the result, which also offers IBackgroundCopyJob2 unless the
/// control file withholds it, and IBackgroundCopyJob5 when that offers it, at the moment a client
/// asks.
IBackgroundCopyJob* NewJobObject(Service& service, std::shared_ptr<Job> job);

}  // namespace standin

#endif  // KUPDATE_STANDIN_COM_JOB_H_
