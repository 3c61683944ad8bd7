#include "executor/job_policy.h"

#include <gtest/gtest.h>

#include "testing/table.h"

namespace {

constexpr std::uint64_t kNow = 2'000'000'000;
constexpr std::uint64_t kDay = 86400;
constexpr wchar_t kProgram[] = L"C:\\e.exe";

JobFacts Job(std::string id, JobState state, std::uint64_t created, std::uint64_t modified,
             const std::wstring& arguments = {}) {
  JobFacts job;
  job.id = std::move(id);
  job.state = state;
  job.created = created;
  job.modified = modified;
  if (!arguments.empty()) {
    job.notifyProgram = kProgram;
    job.notifyCommandLine = kProgram + (L" " + arguments);
  }
  return job;
}

JobFacts WithBytes(JobFacts job, std::uint64_t bytes) {
  job.bytesTransferred = bytes;
  return job;
}

std::wstring Check(const std::wstring& file) {
  return L"--appid a --update-check --file \"" + file + L"\" --job {1}";
}
constexpr wchar_t kPing[] = L"--stat-callback 3 --appid a --job {1}";

// The ids of the jobs to end, one after the other.
std::string Ended(const std::vector<JobFacts>& jobs) {
  std::string ids;
  const std::vector<OwnJob> own = JobsOf(jobs, L"c:\\E.EXE");
  for (const std::size_t place : JobsToEnd(own, kNow)) ids += own[place].facts.id;
  return ids;
}

}  // namespace

TEST(JobPolicy, EndsWhatWasLeftBehind) {
  const std::uint64_t limit = kNow - kDay;
  std::vector<JobFacts> foreign = {Job("x", JobState::kError, 1, 1, kPing)};
  foreign[0].notifyProgram = L"C:\\other.exe";
  const Table<std::vector<JobFacts>, std::string> table = {
      {"in error for a day and more", {Job("a", JobState::kError, 1, limit - 1)}, "a"},
      {"in error for a day", {Job("a", JobState::kError, 1, limit)}, ""},
      {"never started", {Job("a", JobState::kSuspended, 1, 1)}, "a"},
      {"a ping of a dead executor", {Job("a", JobState::kTransferred, 1, 1, kPing)}, "a"},
      {"still trying", {Job("a", JobState::kTransientError, 1, 1)}, ""},
      {"the clock was set back a year", {Job("a", JobState::kError, 1, kNow + 365 * kDay)}, "a"},
      {"another program's", foreign, ""},
      {"more than it may, and goes on",
       {WithBytes(Job("a", JobState::kTransferring, kNow, kNow, kPing), kMaxAnswerBytes + 1),
        WithBytes(Job("b", JobState::kTransferring, kNow, kNow), kMaxAnswerBytes + 1),
        WithBytes(Job("c", JobState::kTransferring, kNow, kNow), kMaxFeedBytes + 1),
        WithBytes(Job("d", JobState::kTransferred, kNow, kNow, kPing), kMaxAnswerBytes + 1)},
       "ac"},
      {"checks into one file, by age",
       {Job("a", JobState::kQueued, 5, kNow, Check(L"F")),
        Job("b", JobState::kQueued, 9, kNow, Check(L"f")),
        Job("c", JobState::kQueued, 9, kNow, Check(L"other")),
        Job("d", JobState::kQueued, 7, kNow, Check(L"F")), Job("e", JobState::kQueued, 99, kNow)},
       "ad"},
      {"checks of one second",
       {Job("a", JobState::kQueued, 5, kNow, Check(L"F")),
        Job("b", JobState::kQueued, 5, kNow, Check(L"F"))},
       "a"},
      {"pings do not replace each other",
       {Job("a", JobState::kQueued, 5, kNow, kPing), Job("b", JobState::kQueued, 6, kNow, kPing)},
       ""},
  };
  table.Expect(Ended);
}

TEST(JobPolicy, KeepsTwentyJobsAtMost) {
  std::vector<JobFacts> jobs = {Job("p", JobState::kQueued, 1, kNow, kPing),
                                Job("c", JobState::kQueued, 2, kNow, Check(L"F")),
                                Job("n", JobState::kQueued, 3, kNow)};
  while (jobs.size() < 20) jobs.push_back(Job("x", JobState::kQueued, 50, kNow, kPing));
  for (const char* const want : {"", "n", "cn", "pcn"}) {
    EXPECT_EQ(Ended(jobs), want);
    jobs.push_back(Job("x", JobState::kQueued, 50, kNow, kPing));
  }
}
