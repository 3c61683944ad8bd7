#include "stat/stat_ctrl.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "appinfo/app_info2.h"
#include "testing/fake_locker.h"
#include "testing/log_capture.h"
#include "testing/maker_home.h"
#include "testing/table.h"
#include "util/clock.h"
#include "util/text.h"

namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

constexpr char kBase[] = "http://h/?os=win";

std::string Today() {
  const LocalTime now = LocalNow().value();
  return DateText(now.day, now.month, now.year);
}

class CountingLocker final : public TLocker {
 public:
  bool Lock() override { return ++depth == 1; }
  void Unlock() override {
    if (whileLocked) whileLocked();
    --depth;
  }
  int depth = 0;
  std::function<void()> whileLocked;  // called last
};

// One application's statistics, worked on under a lock that must be free again in the end.
class TStatCtrlTest : public testing::Test {
 protected:
  TStatCtrlTest() { app_.Write("ReportUrl", "http://h/report"); }
  ~TStatCtrlTest() override { EXPECT_EQ(locker_.depth, 0); }

  fs::path File(const std::string& name) const { return home_.AppFolder("app") / name; }
  std::string Statistics() const { return ReadBytes(File("statistics.xml")); }
  // The address of the next block without its first date; empty when there is none.
  std::string NextUrl(const std::string& base = kBase) {
    const auto ping = statistics_.GetPingUrl(base);
    return ping ? ping->url.substr(0, ping->url.find("&fd=")) : "";
  }

  const MakerHome home_;
  TAppInfo2 app_{"app"};
  CountingLocker locker_;
  TStatCtrl statistics_{"app", &locker_};
};

}  // namespace

TEST_F(TStatCtrlTest, ARefusedLockPostponesEveryOperation) {
  RefusingLocker refusing;
  TStatCtrl refused("app", &refusing);
  const LogCapture capture;
  refused.AddState(AppState::kInstall);
  refused.AddOptionalParam("a");
  refused.AddAction("a");
  refused.SetUniqueParam("a=b");
  EXPECT_EQ(refused.GetUniqueParam("a"), "");
  EXPECT_EQ(refused.LastState(), AppState::kDayuse);
  EXPECT_EQ(refused.LastParam(), "");
  EXPECT_FALSE(refused.GetPingUrl(kBase));
  refused.Rollback(0);
  EXPECT_EQ(capture.Lines(),
            (Texts{"E:TStatCtrl::AddState: Lock error, postpone add state .",
                   "E:TStatCtrl::AddOptionalParam: Lock error, postpone add optional param .",
                   "E:TStatCtrl::AddAction: Lock error, postpone add action .",
                   "E:TStatCtrl::SetUniqueParam: Lock error, postpone set unique param .",
                   "E:TStatCtrl::GetUniqueParam: Lock error, postpone get unique param .",
                   "E:TStatCtrl::LastState: Lock error, postpone get last state .",
                   "E:TStatCtrl::LastParam: Lock error, postpone get last param .",
                   "E:TStatCtrl::GetPingUrl: Lock error, postpone get ping url .",
                   "E:TStatCtrl::Rollback: Lock error, postpone rollback ."}));
}

TEST_F(TStatCtrlTest, AnUnreadableFileIsNotWrittenOver) {
  fs::create_directories(File("statistics.xml"));
  const LogCapture capture;
  statistics_.AddState(AppState::kInstall);
  EXPECT_FALSE(statistics_.GetPingUrl(kBase));
  EXPECT_TRUE(capture.Has("E:TStatCtrl::AddState: Read error, postpone add state ."));
  EXPECT_TRUE(fs::is_directory(File("statistics.xml")));
}

TEST_F(TStatCtrlTest, AnUnknownStateFailsOnce) {
  const std::string unknown = "<statistics><last-state>x</last-state></statistics>";
  WriteBytes(File("statistics.xml"), unknown);
  EXPECT_THROW(statistics_.LastState(), std::invalid_argument);
  EXPECT_EQ(ReadBytes(File("statistics.xml.bak")), unknown);
  EXPECT_EQ(statistics_.LastState(), AppState::kDayuse);
}

TEST_F(TStatCtrlTest, ABlockMovesIntoItsFileUnderTheLock) {
  statistics_.AddState(AppState::kInstall);
  statistics_.AddOptionalParam("a=1");
  statistics_.SetUniqueParam("n=v");
  std::string written;
  locker_.whileLocked = [&] { written = Statistics(); };
  statistics_.AddState(AppState::kUninstall);
  EXPECT_EQ(written, Statistics());
  const auto ping = statistics_.GetPingUrl(kBase);
  ASSERT_TRUE(ping);
  EXPECT_EQ(written, Statistics());
  EXPECT_EQ(ping->url, std::string(kBase) + "&stat=install&a=1&n=v&fd=" + Today());
  EXPECT_EQ(ping->firstState, AppState::kInstall);
  const std::string block = ReadBytes(File("in_work_0.xml"));
  EXPECT_NE(block.find(">n=v<"), block.npos);
  EXPECT_NE(block.find("<ts>" + Today() + "</ts>"), block.npos);
  EXPECT_EQ(Statistics().find(">n=v<"), std::string::npos);
  EXPECT_EQ(statistics_.LastParam(), "a=1");
  // Of another state than install the first date is the day of the user's id, where there is one.
  EXPECT_EQ(statistics_.GetPingUrl(kBase)->url, std::string(kBase) + "&stat=uninstall");
  WriteBytes(home_.File("ui"), "");
  statistics_.AddState(AppState::kDayuse);
  EXPECT_EQ(statistics_.GetPingUrl(kBase)->url, std::string(kBase) + "&stat=dayuse&fd=" + Today());
}

TEST_F(TStatCtrlTest, TheQueryJoinsTheBaseWithinItsLimit) {
  const std::string long1013(1013, 'x');
  const std::string tooLong = "BaseUrl too long.";
  const Table<std::string, std::string> table = {
      {"http://h/?os=win", "http://h/?os=win&stat=dayuse"},
      {"http://h/&os=win", "http://h/&os=win&stat=dayuse"},
      {"http://h/?", "http://h/?stat=dayuse"},
      {"http://h/?a&", "http://h/?a&stat=dayuse"},
      {"file:///log", "file:///logstat=dayuse"},
      {long1013, long1013 + "stat=dayuse"},
      {long1013 + "x", tooLong},
      {std::string(65536 + 10, 'x'), tooLong},
  };
  statistics_.AddOptionalParam("a=1");
  EXPECT_EQ(NextUrl(), "") << "nothing is sent without a state";
  WriteBytes(File("statistics.xml"), "");
  table.Expect([&](const std::string& base) -> std::string {
    statistics_.AddState(AppState::kDayuse);
    try {
      return NextUrl(base);
    } catch (const std::runtime_error& error) {
      return NextUrl() == std::string(kBase) + "&stat=dayuse" ? error.what() : "lost";
    }
  });
}

TEST_F(TStatCtrlTest, WaitingBlocksAreNeverOverwritten) {
  for (int id = 0; id <= 100; ++id) {
    WriteBytes(File("in_work_" + std::to_string(id) + ".xml"), "a block");
  }
  statistics_.AddState(AppState::kInstall);
  const std::string before = Statistics();
  EXPECT_FALSE(statistics_.GetPingUrl(kBase));
  EXPECT_EQ(Statistics(), before);
  EXPECT_EQ(ReadBytes(File("in_work_100.xml")), "a block");
  fs::remove(File("in_work_100.xml"));
  EXPECT_EQ(statistics_.GetPingUrl(kBase)->id, 100);
}

TEST_F(TStatCtrlTest, SendStatSendsAllThatWaits) {
  const std::string full(1000, 'x');  // nothing goes behind it
  statistics_.AddState(AppState::kInstall);
  for (const char* const param : {"1", "2", "3"}) statistics_.AddOptionalParam(param + full);
  app_.WriteFlag("Remove", true);
  std::string sent;
  int count = 0;
  const PingSender send = [&](const std::string& appId, const PingBlock& block) {
    EXPECT_EQ(appId, "app");
    EXPECT_EQ(locker_.depth, 0);
    EXPECT_TRUE(block.url.starts_with("http://h/report?krsoft=app&ui={"));
    const std::string query = block.url.substr(block.url.find("&stat=") + 6);
    sent += query.substr(0, query.find('x')) + " ";
    return ++count != 2;
  };
  // The second block is refused: it waits again and is sent the next time.
  TStatCtrl::SendStat(app_, &locker_, 1'700'000'000, send);
  EXPECT_EQ(sent, "install&1 uninstall&2 ");
  EXPECT_EQ(app_.Read("LastPingTime"), "1700000000");
  EXPECT_TRUE(fs::exists(File("in_work_0.xml")));
  EXPECT_FALSE(fs::exists(File("in_work_1.xml")));
  app_.WriteFlag("Remove", false);
  TStatCtrl::SendStat(app_, &locker_, 1'700'000'000, send);
  EXPECT_EQ(sent, "install&1 uninstall&2 uninstall&2 dayuse&3 ");
}
