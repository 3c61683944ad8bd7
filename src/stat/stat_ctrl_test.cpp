#include "stat/stat_ctrl.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "appinfo/app_info2.h"
#include "testing/fake_locker.h"
#include "testing/log_capture.h"
#include "testing/maker_home.h"
#include "util/clock.h"
#include "util/mutex.h"
#include "util/text.h"

#ifndef _WIN32
#include <cerrno>

#include "util/posix/file_step.h"
#endif

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
  void Unlock() override { --depth; }
  int depth = 0;
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

TEST_F(TStatCtrlTest, ABlockMovesIntoItsFile) {
  statistics_.AddState(AppState::kInstall);
  statistics_.AddOptionalParam("a=1");
  statistics_.SetUniqueParam("n=v");
  statistics_.AddState(AppState::kUninstall);
  WriteBytes(File("in_work_0.xml"), "a block on its way");
  const auto ping = statistics_.GetPingUrl(kBase);
  ASSERT_TRUE(ping);
  EXPECT_EQ(ping->url, std::string(kBase) + "&stat=install&a=1&n=v&fd=" + Today());
  EXPECT_EQ(ping->firstState, AppState::kInstall);
  EXPECT_EQ(ping->id, 1);
  EXPECT_EQ(ReadBytes(File("in_work_0.xml")), "a block on its way");
  const std::string block = ReadBytes(File("in_work_1.xml"));
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

TEST_F(TStatCtrlTest, TheQueryJoinsTheBase) {
  const struct {
    const char* base;
    const char* want;
  } cases[] = {
      {"http://h/?os=win", "http://h/?os=win&stat=dayuse"},
      {"http://h/&os=win", "http://h/&os=win&stat=dayuse"},
      {"http://h/?os=", "http://h/?os=&stat=dayuse"},
      {"http://h/?", "http://h/?stat=dayuse"},
      {"http://h/?a&", "http://h/?a&stat=dayuse"},
      {"file:///log", "file:///logstat=dayuse"},
  };
  for (const auto& c : cases) {
    statistics_.AddState(AppState::kDayuse);
    EXPECT_EQ(NextUrl(c.base), c.want);
  }
}

TEST_F(TStatCtrlTest, TheBaseIsLimited) {
  statistics_.AddOptionalParam("a=1");
  EXPECT_EQ(NextUrl(), "") << "nothing is sent without a state";
  statistics_.AddState(AppState::kDayuse);
  const std::string before = Statistics();
  for (const std::size_t length : {1014, 1024, 65536 + 10, 1 << 20}) {
    EXPECT_THROW(statistics_.GetPingUrl(std::string(length, 'x')), std::runtime_error) << length;
    EXPECT_EQ(Statistics(), before) << length;
  }
  EXPECT_EQ(NextUrl(std::string(1013, 'x')), std::string(1013, 'x') + "stat=dayuse");
}

TEST_F(TStatCtrlTest, WaitingBlocksAreNeverOverwritten) {
  for (int id = 0; id < 100; ++id) {
    WriteBytes(File("in_work_" + std::to_string(id) + ".xml"), "a block");
  }
  statistics_.AddState(AppState::kInstall);
  EXPECT_EQ(statistics_.GetPingUrl(kBase)->id, 100);
  statistics_.AddState(AppState::kUninstall);
  const std::string before = Statistics();
  const std::string block = ReadBytes(File("in_work_100.xml"));
  EXPECT_FALSE(statistics_.GetPingUrl(kBase));
  EXPECT_EQ(Statistics(), before);
  EXPECT_EQ(ReadBytes(File("in_work_100.xml")), block);
}

#ifndef _WIN32
TEST_F(TStatCtrlTest, WhatCannotBeWrittenIsNotSent) {
  statistics_.AddState(AppState::kInstall);
  statistics_.AddState(AppState::kUninstall);
  const std::string before = Statistics();
  static std::string blocked;
  const auto refuse = [](const char* step, const std::string& path) {
    return std::string_view(step) == "write" && path.find(blocked) != path.npos ? ENOSPC : 0;
  };
  for (const char* file : {"in_work_0.xml", "statistics.xml"}) {
    blocked = file;
    SetFileStepGuard(refuse);
    EXPECT_FALSE(statistics_.GetPingUrl(kBase)) << file;
    SetFileStepGuard(nullptr);
    EXPECT_EQ(Statistics(), before) << file;
    EXPECT_FALSE(fs::exists(File("in_work_0.xml"))) << file;
  }
  ASSERT_TRUE(statistics_.GetPingUrl(kBase));
  SetFileStepGuard(refuse);
  statistics_.Rollback(0);
  SetFileStepGuard(nullptr);
  EXPECT_TRUE(fs::exists(File("in_work_0.xml"))) << "a block that could not be put back stays";
}
#endif

TEST_F(TStatCtrlTest, SendStatSendsAllThatWaits) {
  statistics_.AddState(AppState::kInstall);
  constexpr int kParams = 30;
  const std::string filling(80, 'x');  // three blocks hold them
  for (int i = 0; i < kParams; ++i) {
    statistics_.AddOptionalParam("[" + std::to_string(i) + "]" + filling);
  }
  statistics_.AddOptionalParam("last");
  app_.WriteFlag("Remove", true);
  Texts urls;
  bool refuse = true;
  const PingSender send = [&](const std::string& appId, const PingBlock& block) {
    EXPECT_EQ(appId, "app");
    EXPECT_EQ(locker_.depth, 0);
    urls.push_back(block.url);
    return !refuse || urls.size() != 2;
  };
  // The second block is refused: it waits again and is sent the next time.
  TStatCtrl::SendStat(app_, &locker_, 1'700'000'000, send);
  ASSERT_EQ(urls.size(), 2u);
  EXPECT_EQ(app_.Read("LastPingTime"), "1700000000");
  EXPECT_NE(urls[0].find("?krsoft=app&ui={"), std::string::npos);
  EXPECT_NE(urls[1].find("&stat=uninstall&["), std::string::npos);
  EXPECT_TRUE(fs::exists(File("in_work_0.xml")));
  EXPECT_FALSE(fs::exists(File("in_work_1.xml")));
  refuse = false;
  app_.WriteFlag("Remove", false);
  TStatCtrl::SendStat(app_, &locker_, 1'700'000'000, send);
  ASSERT_EQ(urls.size(), 4u);
  EXPECT_EQ(urls[2], urls[1]);
  EXPECT_NE(urls[3].find("&stat=dayuse&["), std::string::npos);
  // No parameter is lost or sent twice.
  const std::string all = urls[0] + urls[2] + urls[3] + Statistics();
  for (int i = 0; i < kParams; ++i) {
    const std::string param = "[" + std::to_string(i) + "]";
    EXPECT_NE(all.find(param), all.npos) << param;
    EXPECT_EQ(all.find(param), all.rfind(param)) << param;
  }
}

TEST_F(TStatCtrlTest, NoneOfManyWritersIsLost) {
  constexpr int kWriters = 8;
  constexpr int kParams = 20;
  std::vector<std::thread> writers;
  writers.reserve(kWriters);
  for (int writer = 0; writer < kWriters; ++writer) {
    writers.emplace_back([writer] {
      Mutex mutex(L"STATISTIC-of-the-tests");
      TStatCtrl statistics("app", &mutex);
      for (int i = 0; i < kParams; ++i) {
        statistics.SetUniqueParam(std::to_string(writer * kParams + i) + "=x");
      }
    });
  }
  for (std::thread& writer : writers) writer.join();
  for (int i = 0; i < kWriters * kParams; ++i) {
    EXPECT_EQ(statistics_.GetUniqueParam(std::to_string(i)), "x") << i;
  }
}
