// The parts of the executor that need no Windows.
#include <gtest/gtest.h>

#include <filesystem>

#include "executor/block_confirm.h"
#include "executor/job_policy.h"
#include "executor/status_report.h"
#include "layout/file_names.h"
#include "stat/stat_holder.h"
#include "testing/data_home.h"
#include "testing/table.h"
#include "util/file_lock.h"

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kNow = 2'000'000'000, kDay = 86400;
constexpr wchar_t kPing[] = L"--stat-callback 3 --appid a --job {1}";
constexpr wchar_t kCheck[] = L"--appid a --update-check --file \"F\" --job {1}";
constexpr wchar_t kSameCheck[] = L"--appid a --update-check --file \"f\" --job {1}";
constexpr wchar_t kOtherCheck[] = L"--appid a --update-check --file \"other\" --job {1}";

JobFacts Job(std::string id, JobState state, std::uint64_t created, std::uint64_t modified,
             const std::wstring& arguments = {}, std::uint64_t bytes = 0) {
  const std::wstring program = arguments.empty() ? L"" : L"C:\\e.exe";
  return {std::move(id), state, program, program + L" " + arguments, created, modified, 0, bytes};
}

// The ids of the jobs to end, one after the other.
std::string Ended(const std::vector<JobFacts>& jobs) {
  std::string ids;
  const std::vector<OwnJob> own = JobsOf(jobs, L"c:\\E.EXE");
  for (const std::size_t place : JobsToEnd(own, kNow)) ids += own[place].facts.id;
  return ids;
}

}  // namespace

TEST(JobPolicy, EndsWhatWasLeftBehind) {
  using enum JobState;
  const std::uint64_t limit = kNow - kDay;
  JobFacts foreign = Job("x", kError, 1, 1, kPing);
  foreign.notifyProgram = L"C:\\other.exe";
  const Table<std::vector<JobFacts>, std::string> table = {
      {"in error for a day and more", {Job("a", kError, 1, limit - 1, kOtherCheck)}, "a"},
      {"in error for a day", {Job("a", kError, 1, limit, kOtherCheck)}, ""},
      {"never started", {Job("a", kSuspended, 1, 1)}, "a"},
      {"a ping of a dead executor", {Job("a", kTransferred, 1, 1, kPing)}, "a"},
      {"still trying", {Job("a", kTransientError, 1, 1)}, ""},
      {"the clock was set back a year", {Job("a", kError, 1, kNow + 365 * kDay)}, "a"},
      {"another program's", {foreign}, ""},
      {"more than it may, and goes on",
       {Job("a", kTransferring, kNow, kNow, kPing, kMaxAnswerBytes + 1),
        Job("b", kTransferring, kNow, kNow, {}, kMaxAnswerBytes + 1),
        Job("c", kTransferring, kNow, kNow, {}, kMaxFeedBytes + 1),
        Job("d", kTransferred, kNow, kNow, kPing, kMaxAnswerBytes + 1)},
       "ac"},
      {"checks into one file, by age",
       {Job("a", kQueued, 5, kNow, kCheck), Job("b", kQueued, 9, kNow, kSameCheck),
        Job("c", kQueued, 9, kNow, kOtherCheck), Job("d", kQueued, 7, kNow, kCheck),
        Job("e", kQueued, 99, kNow)},
       "ad"},
      {"checks of one second",
       {Job("a", kQueued, 5, kNow, kCheck), Job("b", kQueued, 5, kNow, kCheck)},
       "a"},
      {"pings do not replace each other",
       {Job("a", kQueued, 5, kNow, kPing), Job("b", kQueued, 6, kNow, kPing)},
       ""},
  };
  table.Expect(Ended);
}

TEST(JobPolicy, KeepsTwentyJobsAtMost) {
  const JobFacts young = Job("x", JobState::kQueued, 50, kNow, kPing);
  std::vector<JobFacts> jobs(17, young);
  jobs.push_back(Job("p", JobState::kQueued, 1, kNow, kPing));
  jobs.push_back(Job("c", JobState::kQueued, 2, kNow, kCheck));
  jobs.push_back(Job("n", JobState::kQueued, 3, kNow));
  for (const char* const want : {"", "n", "cn", "pcn"}) {
    EXPECT_EQ(Ended(jobs), want);
    jobs.push_back(young);
  }
}

TEST(JobList, WhatNobodyComesForIsAbandoned) {
  using enum JobState;
  constexpr std::uint64_t kMonth = 30 * kDay;
  const Table<JobFacts, bool> table = {
      {"a host's, of a day", Job({}, kError, kNow - kDay, kNow), false},
      {"a host's, older", Job({}, kTransferring, kNow - kDay - 1, kNow), true},
      {"a host's of the future", Job({}, kQueued, kNow + kDay + 1, kNow), true},
      {"failed a month ago", Job({}, kError, 1, kNow - kMonth, kPing), false},
      {"failed before", Job({}, kError, 1, kNow - kMonth - 1, kPing), true},
      {"transferred before", Job({}, kTransferred, 1, kNow - kMonth - 1, kPing), true},
      {"never started", Job({}, kSuspended, 1, kNow - kMonth - 1, kPing), true},
      {"still tried", Job({}, kTransientError, 1, 1, kPing), false},
  };
  table.Expect([](const JobFacts& job) { return IsAbandoned(job, kNow); });
}

TEST(BlockConfirm, KeepsTheFirstDayThatWasConfirmed) {
  const DataHome home;
  const fs::path folder = home.AppFolder("app");
  const auto put = [&](const char* name, AppState state, const std::string& date) {
    TStatHolder holder;
    holder.AddState(state);
    holder.SetFirstDate(date);
    holder.SetConfirmed(true);
    EXPECT_TRUE(holder.Save((folder / name).string()));
  };
  using Dates = std::pair<const char*, const char*>;  // confirmed before, and of the block
  const Table<Dates, std::string> table = {
      {"first block", {"", "05.03.2011"}, "05.03.2011"},
      {"later block", {"05.03.2011", "06.03.2011"}, "05.03.2011"},
      {"block without a day", {"", ""}, "none"},
  };
  table.Expect([&](const Dates& dates) -> std::string {
    put("statistics.xml", AppState::kUninstall, dates.first);
    put("in_work_3.xml", AppState::kDayuse, dates.second);
    EXPECT_EQ(ConfirmBlock("app", 3, nullptr), AppState::kDayuse);
    EXPECT_EQ(ConfirmBlock("app", 3, nullptr), std::nullopt) << "it is gone";
    TStatHolder statistics;
    EXPECT_TRUE(statistics.Load((folder / "statistics.xml").string()) && statistics.HasStates());
    return statistics.Confirmed() ? statistics.GetFirstDate(AppState::kDayuse) : "none";
  });
  FileLock refusing("", 0);
  put("in_work_3.xml", AppState::kDayuse, "05.03.2011");
  EXPECT_EQ(ConfirmBlock("app", 3, &refusing), std::nullopt);
  const Table<std::string, std::optional<int>> names = {
      {"in_work_0.xml", 0},   {"in_work_100.xml", 100}, {"in_work_101.xml", {}},
      {"in_work_-1.xml", {}}, {"in_work_07.xml", {}},   {"in_work_7.xml.new", {}},
  };
  names.Expect(BlockIdOfFile);
}

TEST(StatusReport, ReadsAsTextAndAsJson) {
  AppStatus app;
  app.id = "my \"app\"\\\n";
  app.version = "1.2.3.4";
  app.channel = "beta";
  app.nextCheck = 951'868'740;  // 29 February 2000
  app.nextPing = 5;
  app.blocksInWork = {0, 12};
  app.lastError = "E:\xFF";
  const JobStatus job = {"{1}", "BG_JOB_STATE_ERROR", "ping", "b", 0, 0x80190194};
  const StatusReport report = {"C:\\e.exe", "1.0.0.0", "nothing", false, {app}, {job}};
  EXPECT_EQ(ReadableStatus(report, 10),
            "C:\\e.exe 1.0.0.0\n"
            "  installs          nothing\n"
            "  transfer service  does not answer\n"
            "\nApplication \"my \"app\"\\\n\"\n"
            "  version           1.2.3.4\n"
            "  channel           beta\n"
            "  executor          the default one\n"
            "  next check        2000-02-29 23:59 UTC\n"
            "  next ping         due now\n"
            "  update found      -\n"
            "  statistics wait   no\n"
            "  blocks in work    0, 12\n"
            "  last error        E:\xFF\n"
            "\nJob {1}\n"
            "  purpose           ping of b\n"
            "  state             BG_JOB_STATE_ERROR\n"
            "  created           1970-01-01 00:00 UTC\n"
            "  error             0x80190194\n");
  EXPECT_EQ(
      JsonStatus(report),
      R"({"program":"C:\\e.exe","version":"1.0.0.0","trust":"nothing",)"
      R"("serviceAnswers":false,"applications":[{"id":"my \"app\"\\\u000a",)"
      R"("version":"1.2.3.4","channel":"beta","removed":false,"executor":"",)"
      R"("nextCheck":951868740,"nextPing":5,"update":"","statisticsWait":false,"blocksInWork":[0,12],)"
      "\"lastError\":\"E:\xEF\xBF\xBD\"}],\"jobs\":[{\"id\":\"{1}\",\"purpose\":\"ping\","
      R"("appId":"b","state":"BG_JOB_STATE_ERROR","created":0,"error":2149122452}]})"
      "\n");
}

TEST(StatusReport, TheLastErrorIsOneThatMatters) {
  const Table<std::string_view, std::string> table = {
      {"Log started at: 05.03.2011\n10:00:00 I:F(1): no E: here\n", ""},
      {"10:00:00 E:F(1): first\n10:00:01 E:G(2): last\n10:00:02 D:F(1): x\n", "E:G(2): last"},
      {"10:00:00 E:F(1): cut", "E:F(1): cut"},
      {"10:00:00 E:F(1): real\n10:00:01 E:R(5): Can't open key:  a\n"
       "10:00:01 E:R(5): Can't open file:  a\n",
       "E:F(1): real"},
  };
  table.Expect(LastErrorIn);
}
