// The part of job_list.h that asks the service nothing.
#include "transfer/job_list.h"

namespace {

constexpr std::uint64_t kDay = 86400;
constexpr std::uint64_t kMaxSecondsOfHostJob = kDay;
constexpr std::uint64_t kMaxSecondsUntouched = 30 * kDay;

std::uint64_t Between(std::uint64_t a, std::uint64_t b) { return a > b ? a - b : b - a; }

}  // namespace

bool IsAbandoned(const JobFacts& job, std::uint64_t now) {
  if (job.notifyProgram.empty()) return Between(job.created, now) > kMaxSecondsOfHostJob;
  const bool standsStill = job.state == JobState::kError || job.state == JobState::kTransferred ||
                           job.state == JobState::kSuspended;
  return standsStill && Between(job.modified, now) > kMaxSecondsUntouched;
}
