// A list of jobs as clients see it.
#ifndef KUPDATE_STANDIN_COM_ENUM_JOBS_H_
#define KUPDATE_STANDIN_COM_ENUM_JOBS_H_

#include <memory>
#include <vector>

#include "standin/job.h"
#include "standin/service.h"

struct IEnumBackgroundCopyJobs;

namespace standin {

/// The list as it is now. The caller owns one reference to the result.
IEnumBackgroundCopyJobs* NewEnumJobsObject(Service& service,
                                           std::vector<std::shared_ptr<Job>> jobs);

}  // namespace standin

#endif  // KUPDATE_STANDIN_COM_ENUM_JOBS_H_
