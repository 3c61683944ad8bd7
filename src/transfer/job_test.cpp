#include "transfer/job.h"

#include <gtest/gtest.h>

#include "testing/table.h"

TEST(JobList, WhatNobodyComesForIsAbandoned) {
  constexpr std::uint64_t kNow = 2'000'000'000, kDay = 86400, kMonth = 30 * kDay;
  struct Case {
    const wchar_t* program;
    JobState state;
    std::uint64_t created, modified;
  };
  const Table<Case, bool> table = {
      {"a host's, of a day", {L"", JobState::kError, kNow - kDay, kNow}, false},
      {"a host's, older", {L"", JobState::kTransferring, kNow - kDay - 1, kNow}, true},
      {"a host's of the future", {L"", JobState::kQueued, kNow + kDay + 1, kNow}, true},
      {"failed a month ago", {L"e", JobState::kError, 1, kNow - kMonth}, false},
      {"failed before", {L"e", JobState::kError, 1, kNow - kMonth - 1}, true},
      {"transferred before", {L"e", JobState::kTransferred, 1, kNow - kMonth - 1}, true},
      {"never started", {L"e", JobState::kSuspended, 1, kNow - kMonth - 1}, true},
      {"still tried", {L"e", JobState::kTransientError, 1, 1}, false},
  };
  table.Expect([&](const Case& c) {
    JobFacts job;
    job.notifyProgram = c.program;
    job.state = c.state;
    job.created = c.created;
    job.modified = c.modified;
    return IsAbandoned(job, kNow);
  });
}
