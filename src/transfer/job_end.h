// Ending a job so that its outcome is certain, whoever else may be ending it.
#ifndef KUPDATE_TRANSFER_JOB_END_H_
#define KUPDATE_TRANSFER_JOB_END_H_

#include <string>

enum class JobEnd {
  kCompleted,  ///< its file was handed over
  kCancelled,  ///< its file is gone
  kGone,       ///< someone ended it before, or meanwhile
  kAlive,      ///< it could be neither completed nor cancelled, or the service not be asked
};

struct EndedJob {
  JobEnd end = JobEnd::kAlive;
  bool transferred =
      false;  ///< the server had answered; so it was heard even when the file is lost
};

/// Completes a job that has transferred; where that fails, and in every other state, cancels it.
/// COM must be initialised on the thread.
/// @param jobId  with braces; a text that is no id names a job that is gone
EndedJob EndJob(const std::string& jobId) noexcept;

#endif  // KUPDATE_TRANSFER_JOB_END_H_
