#include "executor/job_policy.h"

#include "layout/command_line.h"
#include "util/clock.h"
#include "util/text.h"

namespace {

// An executor may end such a job earlier than a host may, after a day instead of a month, because
// it also confirms or takes back the block of a report.
bool IsStale(const JobFacts& job, std::uint64_t now) {
  const bool standsStill = job.state == JobState::kError || job.state == JobState::kTransferred ||
                           job.state == JobState::kSuspended;
  return standsStill && IsOlderThan(job.modified, now, kSecondsPerDay);
}

JobPurpose PurposeOf(const OwnJob& job) {
  switch (job.command.kind) {
    case CommandKind::kStatCallback:
      return JobPurpose::kReport;
    case CommandKind::kUpdateCheck:
      return JobPurpose::kCheck;
    default:
      return JobPurpose::kHostFeed;
  }
}

// The program of a transferred job judges its size.
bool IsEndless(const OwnJob& job) {
  return job.facts.state != JobState::kTransferred &&
         IsTooLarge(PurposeOf(job), job.facts.bytesTransferred);
}

// Of two jobs made in one second the later one in the list counts as newer.
bool IsNewer(const std::vector<OwnJob>& jobs, std::size_t a, std::size_t b) {
  const std::uint64_t createdA = jobs[a].facts.created;
  const std::uint64_t createdB = jobs[b].facts.created;
  return createdA > createdB || (createdA == createdB && a > b);
}

bool IsReplaced(const std::vector<OwnJob>& jobs, std::size_t index) {
  const ExecutorCommand& command = jobs[index].command;
  if (command.kind != CommandKind::kUpdateCheck) return false;
  for (std::size_t other = 0; other < jobs.size(); ++other) {
    const ExecutorCommand& otherCommand = jobs[other].command;
    if (otherCommand.kind == CommandKind::kUpdateCheck && IsNewer(jobs, other, index) &&
        EqualsIgnoreCase(otherCommand.file, command.file)) {
      return true;
    }
  }
  return false;
}

// Reports are worth most: one that is ended must be sent once more, while a check comes again every
// day.
int Worth(const OwnJob& job) {
  if (job.command.kind == CommandKind::kStatCallback) return 2;
  return job.command.kind == CommandKind::kUpdateCheck ? 1 : 0;
}

// The least wanted of the jobs that are not marked. At least one is not marked.
std::size_t LeastWanted(const std::vector<OwnJob>& jobs, const std::vector<bool>& marked) {
  std::size_t least = jobs.size();
  for (std::size_t i = 0; i < jobs.size(); ++i) {
    if (marked[i]) continue;
    if (least == jobs.size() || Worth(jobs[i]) < Worth(jobs[least]) ||
        (Worth(jobs[i]) == Worth(jobs[least]) && IsNewer(jobs, least, i))) {
      least = i;
    }
  }
  return least;
}

}  // namespace

std::vector<OwnJob> JobsOf(const std::vector<JobFacts>& jobs, std::wstring_view program) {
  std::vector<OwnJob> list;
  for (const JobFacts& job : jobs) {
    if (!job.notifyProgram.empty() && !EqualsIgnoreCase(job.notifyProgram, program)) continue;
    list.push_back({job, ParseExecutorCommand(job.notifyCommandLine, job.notifyProgram)});
  }
  return list;
}

std::vector<std::size_t> JobsToEnd(const std::vector<OwnJob>& jobs, std::uint64_t now) {
  std::vector<bool> marked(jobs.size());
  std::size_t kept = 0;
  for (std::size_t i = 0; i < jobs.size(); ++i) {
    marked[i] = IsStale(jobs[i].facts, now) || IsEndless(jobs[i]) || IsReplaced(jobs, i);
    if (!marked[i]) ++kept;
  }
  for (; kept > kMaxOwnJobs; --kept) marked[LeastWanted(jobs, marked)] = true;
  std::vector<std::size_t> places;
  for (std::size_t i = 0; i < jobs.size(); ++i) {
    if (marked[i]) places.push_back(i);
  }
  return places;
}
