// kupdate-exec.exe as the transfer service and hosts meet it: what it does with each outcome of a
// job, and what it answers.
#include <gtest/gtest.h>

#include <ctime>

#include "appinfo/app_info2.h"
#include "executor/executor_test_client.h"
#include "util/text.h"

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

using Executor = ExecutorTest;

fs::path FeedFile(const Host& host) {
  return TempFolder() / WidenUtf8("kupdate-versioninfo-" + host.appId + ".xml");
}

constexpr char kNoDialog[] = "I:DropDialog: Not shown, though a dialog was asked for:  ";

}  // namespace

TEST_F(Executor, AnswersEveryOutcomeOfACheck) {
  const std::string newer = Publish("newer.rss", FeedWith("2.0.0.0"));
  const std::string same = Publish("same.rss", FeedWith("1.0.0.0"));
  const struct {
    const char* label;
    std::string feedUrl;
    const char* control;
    const char* upgrade;  // afterwards; it was not written before
    const char* news;     // of the dialog that is not shown
    bool isScheduled;
  } cases[] = {
      {"newer", newer, "", "1", "an update is available", true},
      {"none newer", same, "", "0", "there is no update", true},
      {"bad version", Publish("bad.rss", FeedWith("two")), "", "0", "the check failed", false},
      {"completion refused", newer, "fail Complete 0x80070005", "0", "the check failed", false},
      {"job gone", newer, "vanish all", "", nullptr, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const DataHome home;
    TransferService service;
    Host host("my app");
    host.feedUrl = c.feedUrl;
    host.Start();
    const std::wstring arguments = ArgumentsOfNewestJob(service);
    TAppInfo2(host.appId).SetNeedDialogArterCheck(true);
    service.Control(c.control);
    const ResultEvent result(host.appId);
    const LogCapture log(RoamingFolder() / "kupdate-exec-my app.log");
    const std::int64_t before = std::time(nullptr);
    EXPECT_EQ(RunExecutor(arguments), 0u);
    EXPECT_TRUE(result.IsSignalled());
    EXPECT_EQ(host.Record("UpgradeAvailable"), c.upgrade);
    const std::int64_t next = ParseInt64(host.Record("NextCheckTime")) - before - 86400;
    EXPECT_EQ(next >= 0 && next <= 3700, c.isScheduled) << next;
    EXPECT_FALSE(fs::exists(FeedFile(host)));
    EXPECT_EQ(host.Record("NeedDialogArterCheck"), c.news ? "0" : "1");
    EXPECT_TRUE(!c.news || log.Has(kNoDialog + std::string(c.news)));
  }
}

TEST_F(Executor, DoesNotBringARecordBackToLife) {
  const TransferService service;
  Host host("left");
  host.feedUrl = Publish("newer.rss", FeedWith("2.0.0.0"));
  host.Start();
  const std::wstring arguments = ArgumentsOfNewestJob(service);
  fs::remove(host.File("appinfo.xml"));
  fs::remove_all(LocalFolder() / host.appId);
  EXPECT_EQ(RunExecutor(arguments), 0u);
  EXPECT_FALSE(fs::exists(host.File("appinfo.xml")));
  EXPECT_FALSE(fs::exists(LocalFolder() / host.appId));
  EXPECT_FALSE(fs::exists(FeedFile(host)));
}

TEST_F(Executor, AnswersAnInstallWithoutAnUpdate) {
  const Host host("app");
  home_.AppFolder(host.appId);
  WriteBytes(host.File("updinfo.xml"), "<appinfo><DistroExitCode>0</DistroExitCode></appinfo>");
  const ResultEvent result(host.appId);
  EXPECT_EQ(RunExecutor(L" --appid app --silent-update-check"), 0u);
  EXPECT_TRUE(result.IsSignalled());
  EXPECT_EQ(ValueOf(host.File("updinfo.xml"), "DistroExitCode"), "-1001");
}

TEST_F(Executor, TellsPeople) {
  const TransferService service;
  Host host("status app");
  host.feedUrl = HttpUrl("slow/none");
  host.Start();
  ArgumentsOfNewestJob(service);
  const struct {
    const wchar_t* arguments;
    const char* want;
  } cases[] = {
      {L"--help", "--silent-update-check"},
      {L"--version", "kupdate-exec 1."},
      {L"--status", "TEST BUILD. Updates need a manifest signed with one of these keys: "},
      {L"--status", "Application \"status app\""},
      {L"--status", "check of status app"},
      {L"--status --appid status app --json", "{\"program\":"},
      {L"--status --appid status app --json", "\"purpose\":\"check\",\"appId\":\"status app\""},
      {L"--status --appid other --json", "\"applications\":[],\"jobs\":[]"},
  };
  for (const auto& c : cases) {
    const std::string text = OutputOf(c.arguments);
    EXPECT_NE(text.find(c.want), std::string::npos) << c.want << " is not in " << text;
  }
  EXPECT_EQ(RunExecutor(L"--update-check"), 2u);
  EXPECT_EQ(RunExecutor(L" --job {00000000-0000-0000-0000-000000000001}"), 0u);
}
