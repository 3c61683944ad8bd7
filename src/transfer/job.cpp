#include "transfer/job.h"

#include <iterator>

#include "util/clock.h"

namespace {

constexpr std::uint64_t kMaxSecondsOfHostJob = kSecondsPerDay;
// A month, because a delivered report may wait that long for its executor. With a week, reports
// were ended before the executor had confirmed them, and were sent twice.
constexpr std::uint64_t kMaxSecondsUntouched = 30 * kSecondsPerDay;

}  // namespace

const char* JobStateName(JobState state) {
  static constexpr const char* kNames[] = {
      "BG_JOB_STATE_QUEUED",      "BG_JOB_STATE_CONNECTING",   "BG_JOB_STATE_TRANSFERRING",
      "BG_JOB_STATE_SUSPENDED",   "BG_JOB_STATE_ERROR",        "BG_JOB_STATE_TRANSIENT_ERROR",
      "BG_JOB_STATE_TRANSFERRED", "BG_JOB_STATE_ACKNOWLEDGED", "BG_JOB_STATE_CANCELLED"};
  const auto index = static_cast<unsigned>(state);
  return index < std::size(kNames) ? kNames[index] : "unknown state";
}

bool IsAbandoned(const JobFacts& job, std::uint64_t now) {
  if (job.notifyProgram.empty()) return IsOlderThan(job.created, now, kMaxSecondsOfHostJob);
  const bool standsStill = job.state == JobState::kError || job.state == JobState::kTransferred ||
                           job.state == JobState::kSuspended;
  return standsStill && IsOlderThan(job.modified, now, kMaxSecondsUntouched);
}
