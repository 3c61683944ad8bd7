#include "stat/stat_ctrl.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "appinfo/app_info2.h"
#include "testing/fake_locker.h"
#include "testing/log_capture.h"
#include "testing/maker_home.h"
#include "testing/table.h"
#include "util/clock.h"
#include "util/mutex.h"
#include "util/text.h"

namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;
using std::chrono_literals::operator""s;

constexpr char kBase[] = "http://h/?os=win";

std::string Today() {
  const LocalTime now = LocalNow().value();
  return DateText(now.day, now.month, now.year);
}

class TStatCtrlTest : public testing::Test {
 protected:
  fs::path File(const std::string& name) const { return home_.AppFolder("app") / name; }
  std::string Statistics() const { return ReadBytes(File("statistics.xml")); }
  // The address of the next block without its first date; empty when there is none.
  std::string NextUrl(const std::string& base = kBase) {
    const auto ping = statistics_.GetPingUrl(base);
    return ping ? ping->url.substr(0, ping->url.find("&fd=")) : "";
  }

  const MakerHome home_;
  Mutex mutex_{L"kupdate-unit-test-statistics"};
  TStatCtrl statistics_{"app", &mutex_};
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

TEST_F(TStatCtrlTest, AnUnknownStateFailsOnce) {
  const std::string unknown = "<statistics><last-state>x</last-state></statistics>";
  WriteBytes(File("statistics.xml"), unknown);
  WriteBytes(File("statistics.xml.bak"), "an older one");
  EXPECT_THROW(statistics_.LastState(), std::invalid_argument);
  EXPECT_EQ(ReadBytes(File("statistics.xml.bak")), unknown);
  EXPECT_EQ(statistics_.LastState(), AppState::kDayuse);
}

TEST_F(TStatCtrlTest, AnAddressHasItsFirstDate) {
  const std::string base = std::string(kBase) + "&stat=";
  statistics_.AddState(AppState::kInstall);
  statistics_.AddState(AppState::kUninstall);
  EXPECT_EQ(statistics_.GetPingUrl(kBase)->url, base + "install&fd=" + Today());
  EXPECT_NE(ReadBytes(File("in_work_0.xml")).find("<ts>" + Today() + "</ts>"), std::string::npos);
  // Of another state than install it is the day of the user's id, where there is one.
  EXPECT_EQ(statistics_.GetPingUrl(kBase)->url, base + "uninstall");
  WriteBytes(home_.File("ui"), "");
  const auto sinceNoon = std::chrono::system_clock::now().time_since_epoch() - 1'299'326'400s;
  fs::last_write_time(home_.File("ui"), fs::file_time_type::clock::now() - sinceNoon);
  statistics_.AddState(AppState::kDayuse);
  EXPECT_EQ(statistics_.GetPingUrl(kBase)->url, base + "dayuse&fd=05.03.2011");
}

TEST_F(TStatCtrlTest, TheQueryJoinsTheBaseWithinItsLimit) {
  const std::string long1013(1013, 'x');
  const std::string tooLong = "BaseUrl too long.";
  const Table<std::string, std::string> table = {
      {"http://h/?os=win", "http://h/?os=win&stat=dayuse"},
      {"http://h/&os=win", "http://h/&os=win&stat=dayuse"},
      {"http://h/?", "http://h/?stat=dayuse"},
      {"http://h/?a&", "http://h/?a&stat=dayuse"},
      {"http://h/?a?", "http://h/?a?&stat=dayuse"},
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
  fs::remove(File("in_work_100.xml"));
  EXPECT_EQ(statistics_.GetPingUrl(kBase)->id, 100);
}

TEST_F(TStatCtrlTest, SendStatSendsAllThatWaits) {
  const std::string full(1000, 'x');  // nothing goes behind it
  TAppInfo2 app("app");
  app.Write("ReportUrl", "http://h/report");
  app.WriteFlag("Remove", true);
  statistics_.AddState(AppState::kInstall);
  for (const char* const param : {"1", "2", "3"}) statistics_.AddOptionalParam(param + full);
  std::string sent;
  const PingSender send = [&](const std::string&, const PingBlock& block) {
    const std::string query = block.url.substr(block.url.find("&stat=") + 6);
    sent += query.substr(0, query.find('x')) + " ";
    return sent != "install&1 uninstall&2 ";
  };
  // The second block is refused: it waits again and is sent the next time.
  TStatCtrl::SendStat(app, &mutex_, 1'700'000'000, send);
  app.WriteFlag("Remove", false);
  TStatCtrl::SendStat(app, &mutex_, 1'700'000'000, send);
  EXPECT_EQ(sent, "install&1 uninstall&2 uninstall&2 dayuse&3 ");
}
