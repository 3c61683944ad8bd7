// The transfer service, as the library and the executor use it. Each function enters COM on the
// calling thread and leaves it again; none waits for a transfer. A failing call is in the log.
#ifndef KUPDATE_TRANSFER_TRANSFER_H_
#define KUPDATE_TRANSFER_TRANSFER_H_

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "transfer/job.h"

/// Thrown by these functions when a call of the service fails.
class TransferError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One download that goes on when its process is gone.
struct JobOrder {
  std::string url;    ///< UTF-8
  std::wstring file;  ///< full path; the file appears when the job is completed
  JobPurpose purpose = JobPurpose::kHostFeed;
  std::uint32_t timeoutSeconds = 0;  ///< without progress, until the service gives up; 0: 14 days
  std::wstring program = {};    ///< full path; started when the job has ended; empty: no program
  std::wstring arguments = {};  ///< its arguments; the job's id is added
};

/// Creates, configures and starts a job. Ends abandoned jobs of ours.
/// @return the job's id, with braces; empty, and logged, when the service cannot be reached, as
///         from a process of low integrity, and when there are as many jobs of ours as there may
///         be.
/// Throws TransferError.
std::string StartJob(JobOrder order);

struct JobProgress {
  JobState state = JobState::kError;
  std::uint64_t bytes = 0;  ///< transferred so far; asked only while the job is in work
};

/// The state of a job. Throws TransferError, also for a job that is gone.
/// @param jobId  with braces
JobProgress AskJob(const std::string& jobId);

/// Completes a job that has transferred, which hands its file over; cancels any other one, and one
/// whose file cannot be handed over. Throws TransferError when the job is gone or the file is lost.
void FinishJob(const std::string& jobId);

enum class JobEnd {
  kCompleted,  ///< its file was handed over
  kCancelled,  ///< its file is gone
  kGone,       ///< another process ended it, before or during the call
  kAlive,      ///< it could be neither completed nor cancelled, or the service not be asked
};

struct EndedJob {
  JobEnd end = JobEnd::kAlive;
  /// The server had answered, so it was heard even when the file is lost.
  bool transferred = false;
};

/// Ends a job so that its outcome is certain, even when another process ends it at the same time.
/// @param jobId  with braces; a text that is no id names a job that is gone
EndedJob EndJob(const std::string& jobId) noexcept;

/// The current user's jobs with our display name. A job that cannot be asked, for example because
/// it has just ended, is left out. Throws TransferError when the service cannot be asked at all.
std::vector<JobFacts> ListOwnJobs();

#endif  // KUPDATE_TRANSFER_TRANSFER_H_
