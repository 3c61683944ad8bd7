// The jobs that this program's family has in the transfer service.
#ifndef KUPDATE_TRANSFER_JOB_LIST_H_
#define KUPDATE_TRANSFER_JOB_LIST_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "transfer/bits_completion.h"

/// How many of the 60 jobs that the service grants a user are ours at most.
inline constexpr std::size_t kMaxOwnJobs = 20;

/// What the service tells of one job. Times are seconds since 1970-01-01 UTC.
struct JobFacts {
  std::string id;  ///< with braces
  JobState state = JobState::kQueued;
  std::wstring notifyProgram;      ///< empty: none is started
  std::wstring notifyCommandLine;  ///< the program included
  std::uint64_t created = 0;
  std::uint64_t modified = 0;
  std::uint32_t error = 0;  ///< the service's code; 0 when the job has met no error
};

/// The current user's jobs with our display name. A job that cannot be asked, as one that ends
/// meanwhile, is left out. COM must be initialised on the thread. Throws _com_error when the
/// service cannot be asked at all.
std::vector<JobFacts> ListOwnJobs();

#endif  // KUPDATE_TRANSFER_JOB_LIST_H_
