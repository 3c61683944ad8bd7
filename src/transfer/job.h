// Jobs of the transfer service: their states, and how many, how large and how old ours may be.
#ifndef KUPDATE_TRANSFER_JOB_H_
#define KUPDATE_TRANSFER_JOB_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "util/limits.h"

/// The service's states of a job, by its numbers.
enum class JobState {
  kQueued = 0,
  kConnecting = 1,
  kTransferring = 2,
  kSuspended = 3,
  kError = 4,
  kTransientError = 5,
  kTransferred = 6,
  kAcknowledged = 7,
  kCancelled = 8,
};

/// The state's name for the log, "unknown state" for any other number.
const char* JobStateName(JobState state);

/// Whether it still waits for data, or for a program to resume it.
constexpr bool IsInWork(JobState state) {
  return state == JobState::kQueued || state == JobState::kConnecting ||
         state == JobState::kTransferring || state == JobState::kSuspended ||
         state == JobState::kTransientError;
}
/// Whether the service works on it.
constexpr bool IsOnItsWay(JobState state) {
  return IsInWork(state) && state != JobState::kSuspended;
}
/// Whether it was completed or cancelled.
constexpr bool IsEnded(JobState state) {
  return state == JobState::kAcknowledged || state == JobState::kCancelled;
}

/// The purpose of a job.
enum class JobPurpose {
  kHostFeed,  ///< the feed of a host, which comes back for it; no program is started
  kCheck,     ///< a feed for the executor
  kReport,    ///< a block of statistics; no program reads the answer
};

/// How many jobs that start the executor may be on their way, checks and reports together.
inline constexpr std::size_t kMaxOwnJobs = 20;
/// The last place of these is kept for a check.
inline constexpr std::size_t kMaxReports = kMaxOwnJobs - 1;
/// The most jobs of ours at a time, all purposes and states counted together. The service grants a
/// user 60.
inline constexpr std::size_t kMaxJobsOfAllKinds = 40;

/// How many bytes a job may transfer.
constexpr std::uint64_t MaxBytesOf(JobPurpose purpose) {
  return purpose == JobPurpose::kReport ? kMaxAnswerBytes : kMaxFeedBytes;
}

/// Whether a job has transferred more than it may, so that it is to be ended. A service that knows
/// the limit ends it itself; for other services the programs that look at the job end it.
constexpr bool IsTooLarge(JobPurpose purpose, std::uint64_t bytesTransferred) {
  return bytesTransferred > MaxBytesOf(purpose);
}

/// The service's data of one job. Times are seconds since 1970-01-01 UTC.
struct JobFacts {
  std::string id;  ///< with braces
  JobState state = JobState::kQueued;
  std::wstring notifyProgram;      ///< empty: no program is started
  std::wstring notifyCommandLine;  ///< the program included
  std::uint64_t created = 0;
  std::uint64_t modified = 0;
  std::uint32_t error = 0;             ///< the service's code; 0 when the job has met no error
  std::uint64_t bytesTransferred = 0;  ///< so far
};

/// Whether no program will come for a job any more, so that it may be ended to make room. A job
/// without a notify program counts after a day in any state, because hosts do not live that long.
/// Another one counts when it has ended or was never started, after 30 days: until then its program
/// may still act on it. A time as far in the future counts as long ago: the clock was set back.
/// @param now  seconds since 1970-01-01 UTC
bool IsAbandoned(const JobFacts& job, std::uint64_t now);

#endif  // KUPDATE_TRANSFER_JOB_H_
