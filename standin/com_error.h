// A job's error as clients see it.
#ifndef KUPDATE_STANDIN_COM_ERROR_H_
#define KUPDATE_STANDIN_COM_ERROR_H_

#include "standin/job.h"
#include "standin/lifetime.h"

struct IBackgroundCopyError;

namespace standin {

/// The caller owns one reference to the result.
IBackgroundCopyError* NewErrorObject(Lifetime& lifetime, const JobError& error);

}  // namespace standin

#endif  // KUPDATE_STANDIN_COM_ERROR_H_
