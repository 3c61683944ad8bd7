// kupdate-exec.exe as the transfer service and hosts meet it: what it does with each outcome of a
// job, and what it answers.
#include <gtest/gtest.h>

#include "util/win/windows_lean.h"

#include <ctime>

#include "executor/executor_test_client.h"
#include "util/text.h"

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

using Executor = ExecutorTest;

// Queues a check and returns the executor's arguments for it.
std::wstring QueueCheck(const Host& host, const TransferService& service) {
  host.Start();
  return ArgumentsOfNewestJob(service);
}

fs::path FeedFile(const Host& host) {
  return TempFolder() / fs::u8path("kupdate-versioninfo-" + host.appId + ".xml");
}

}  // namespace

TEST_F(Executor, AnswersEveryOutcomeOfACheck) {
  const struct {
    const char* label;
    std::string feedUrl;
    const char* control;
    const char* upgrade;  // afterwards, where it was not written before
    bool isScheduled;
  } cases[] = {
      {"newer", Publish("newer.rss", FeedWith("2.0.0.0")), "", "1", true},
      {"none newer", Publish("same.rss", FeedWith("1.0.0.0")), "", "0", true},
      {"cut", Publish("cut.rss", FeedWith("2.0.0.0").substr(0, 150)), "", "0", false},
      {"bad version", Publish("bad.rss", FeedWith("two")), "", "0", false},
      {"no feed", HttpUrl("missing.rss"), "", "0", false},
      {"completion refused", Publish("newer.rss", FeedWith("2.0.0.0")), "fail Complete 0x80070005",
       "0", false},
      {"job gone", Publish("newer.rss", FeedWith("2.0.0.0")), "vanish all", "0", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const DataHome home;
    TransferService service;
    Host host("my app");
    host.feedUrl = c.feedUrl;
    const std::wstring arguments = QueueCheck(host, service);
    Dll().forceUpdateCheck("", true);
    service.Control(c.control);
    const ResultEvent result(host.appId);
    const std::int64_t before = std::time(nullptr);
    EXPECT_EQ(RunExecutor(arguments), 0u);
    EXPECT_TRUE(result.IsSignalled());
    EXPECT_EQ(host.Record("UpgradeAvailable"), c.upgrade);
    const std::int64_t next = ParseInt64(host.Record("NextCheckTime")) - before - 86400;
    EXPECT_EQ(next >= 0 && next <= 3700, c.isScheduled) << next;
    EXPECT_FALSE(fs::exists(FeedFile(host)));
  }
}

TEST_F(Executor, TouchesNothingWhenTheJobCanNotBeEnded) {
  TransferService service;
  Host host("stuck");
  host.feedUrl = Publish("newer.rss", FeedWith("2.0.0.0"));
  const std::wstring arguments = QueueCheck(host, service);
  const ResultEvent result(host.appId);
  for (const char* control : {"fail Complete 0x80004005\nfail Cancel 0x80004005",
                              "fail GetJob 0x80070005", "fail CreateInstance 0x80070422"}) {
    SCOPED_TRACE(control);
    service.Control(control);
    EXPECT_EQ(RunExecutor(arguments), 1u);
    EXPECT_FALSE(result.IsSignalled());
    EXPECT_EQ(host.Record("UpgradeAvailable"), "");
  }
  service.Control("");
  EXPECT_EQ(RunExecutor(arguments), 0u) << "started again";
  EXPECT_EQ(host.Record("UpgradeAvailable"), "1");
  EXPECT_EQ(RunExecutor(arguments), 0u) << "and again, with the job gone";
  EXPECT_EQ(host.Record("UpgradeAvailable"), "1");
}

TEST_F(Executor, ShowsNoDialogAndSaysSo) {
  const TransferService service;
  Host host("dialog");
  host.feedUrl = Publish("newer.rss", FeedWith("2.0.0.0"));
  host.Start();
  ArgumentsOfNewestJob(service);
  Dll().forceUpdateCheck(host.appId.c_str(), true);
  EXPECT_EQ(host.Record("NeedDialogArterCheck"), "1");
  EXPECT_EQ(RunExecutor(ArgumentsOfNewestJob(service)), 0u);
  EXPECT_EQ(host.Record("NeedDialogArterCheck"), "0");
  EXPECT_NE(ReadBytes(RoamingFolder() / "kupdate-exec-dialog.log").find("Not shown"),
            std::string::npos);
}

TEST_F(Executor, DoesNotBringARecordBackToLife) {
  const TransferService service;
  Host host("left");
  host.feedUrl = Publish("newer.rss", FeedWith("2.0.0.0"));
  const std::wstring arguments = QueueCheck(host, service);
  fs::remove(host.File("appinfo.xml"));
  const ResultEvent result(host.appId);
  EXPECT_EQ(RunExecutor(arguments), 0u);
  EXPECT_TRUE(result.IsSignalled());
  EXPECT_FALSE(fs::exists(host.File("appinfo.xml")));
}

TEST_F(Executor, SettlesTheBlockOfEveryPing) {
  const struct {
    const char* label;
    std::string reportUrl;
    const char* control;
    unsigned code;
    bool confirmed;
    bool waits;
    bool inWork;
  } cases[] = {
      {"delivered", Publish("report", "ok"), "", 0, true, false, false},
      {"refused by the server", HttpUrl("missing"), "", 0, false, true, false},
      {"file lost", Publish("report", "ok"), "fail Complete 0x80070005", 0, true, false, false},
      {"job gone", Publish("report", "ok"), "vanish all", 0, false, false, true},
      {"neither ended", Publish("report", "ok"), "fail Complete 0x80004005\nfail Cancel 0x80004005",
       1, false, false, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const DataHome home;
    TransferService service;
    Host host("pinging app");
    host.reportUrl = c.reportUrl;
    host.Start();
    const std::wstring arguments = ArgumentsOfNewestJob(service);
    service.Control(c.control);
    EXPECT_EQ(RunExecutor(arguments), c.code);
    EXPECT_EQ(host.Statistics().find("confirmed=\"true\"") != std::string::npos, c.confirmed);
    EXPECT_EQ(host.Statistics().find("<state ") != std::string::npos, c.waits);
    EXPECT_EQ(host.IsInWork(), c.inWork);
    service.Control("");
    RunExecutor(arguments);
  }
}

TEST_F(Executor, LeavesABlockWhoseStatisticsCanNotBeWritten) {
  const TransferService service;
  Host host("read only");
  host.reportUrl = Publish("report", "ok");
  host.Start();
  const std::wstring arguments = ArgumentsOfNewestJob(service);
  fs::remove(host.File("statistics.xml"));
  fs::create_directory(host.File("statistics.xml"));
  EXPECT_EQ(RunExecutor(arguments), 0u);
  EXPECT_TRUE(host.IsInWork());
}

TEST_F(Executor, AnswersAnInstallWithoutAnUpdate) {
  const Host host("app");
  home_.AppFolder(host.appId);
  WriteBytes(host.File("updinfo.xml"),
             "<?xml version=\"1.0\" encoding=\"utf-8\"?><appinfo>"
             "<DistroExitCode>0</DistroExitCode></appinfo>");
  const ResultEvent result(host.appId);
  EXPECT_EQ(RunExecutor(L" --appid app --silent-update-check"), 0u);
  EXPECT_TRUE(result.IsSignalled());
  EXPECT_EQ(ValueOf(host.File("updinfo.xml"), "DistroExitCode"), "-1001");
  const ResultEvent nameless("");
  EXPECT_EQ(RunExecutor(L" --appid  --silent-update-check"), 0u) << "an empty id";
  EXPECT_TRUE(nameless.IsSignalled());
}

TEST_F(Executor, TellsPeople) {
  const TransferService service;
  Host host("status app");
  host.feedUrl = HttpUrl("slow/none");
  host.Start();
  ArgumentsOfNewestJob(service);
  EXPECT_NE(OutputOf(L"--help").find("--silent-update-check"), std::string::npos);
  EXPECT_EQ(OutputOf(L"--version").find("kupdate-exec 1."), 0u);
  const std::string text = OutputOf(L"--status");
  EXPECT_NE(text.find("Application \"status app\""), std::string::npos) << text;
  EXPECT_NE(text.find("check of status app"), std::string::npos) << text;
  const std::string json = OutputOf(L"--status --appid status app --json");
  EXPECT_EQ(json.find("{\"program\":"), 0u) << json;
  EXPECT_NE(json.find("\"purpose\":\"check\",\"appId\":\"status app\""), std::string::npos) << json;
  EXPECT_EQ(OutputOf(L"--status --appid other --json").find("status app"), std::string::npos);
  EXPECT_EQ(RunExecutor(L"--update-check"), 2u);
  EXPECT_EQ(RunExecutor(L" --job {00000000-0000-0000-0000-000000000001}"), 0u);
}
