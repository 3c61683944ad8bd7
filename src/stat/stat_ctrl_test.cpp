// Statistics, from what waits to the addresses that carry it.
#include "stat/stat_ctrl.h"

#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <vector>

#include "appinfo/app_info2.h"
#include "testing/data_home.h"
#include "testing/log_capture.h"
#include "testing/table.h"
#include "util/clock.h"
#include "util/file_lock.h"
#include "util/text.h"

namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;
using std::chrono_literals::operator""s;

constexpr char kBase[] = "http://h/?os=win";
const std::string kWholeFile =
    "<?xml  version=\"1.0\" encoding=\"windows-1251\"?>\n<statistics>\n"
    "  <application-states>\n    <state ord=\"1\">install</state>\n"
    "    <state ord=\"2\">uninstall</state>\n  </application-states>\n"
    "  <optional-params>\n    <param ord=\"1\">a=1</param>\n"
    "    <param ord=\"2\">\xD1\x8F&#x23;</param>\n  </optional-params>\n"
    "  <unique-params>\n    <param ord=\"1\">n=v=w</param>\n  </unique-params>\n"
    "  <actions>\n    <action ord=\"1\">&lt;go&gt;</action>\n  </actions>\n"
    "  <last-state>uninstall</last-state>\n  <last-param>p</last-param>\n"
    "  <last-action/>\n  <ts confirmed=\"true\">01.02.2003</ts>\n</statistics>\n";

std::string Today() {
  const LocalTime now = LocalNow().value();
  return DateText(now.day, now.month, now.year);
}

TStatHolder Holder(const Texts& states, const Texts& params = {}, const Texts& unique = {},
                   const Texts& actions = {}) {
  TStatHolder holder;
  for (const std::string& word : states) holder.AddState(TAppStateHolder::Import(word));
  for (const std::string& param : params) holder.AddOptionalParam(param);
  for (const std::string& param : unique) holder.SetUniqueParam(param);
  for (const std::string& action : actions) holder.AddAction(action);
  return holder;
}

// All that waits: the queries of one block per state.
std::string Queries(TStatHolder& holder) {
  std::string queries;
  for (TStatHolder block; holder.ExtractBlock(1000, &block); block = TStatHolder()) {
    queries += (queries.empty() ? "" : " ") + block.MakeQuery();
  }
  return queries;
}

class TStatCtrlTest : public testing::Test {
 protected:
  fs::path File(const std::string& name) const { return home_.AppFolder("app") / name; }
  std::string Statistics() const { return ReadBytes(File("statistics.xml")); }
  void PutStatistics(const std::string& text) const { WriteBytes(File("statistics.xml"), text); }
  std::string Kept() const { return ReadBytes(File("statistics.xml.bak")); }

  const DataHome home_;
  TStatCtrl statistics_{"app", nullptr};
};

}  // namespace

TEST(TStatHolder, AddState) {
  const Table<Texts, std::string> table = {
      {{"install", "install"}, "stat=install last=install"},
      {{"install", "dayuse", "install"}, "stat=install stat=install last=install"},
      {{"dayuse", "uninstall", "dayuse"}, "stat=dayuse stat=uninstall last=dayuse"},
  };
  table.Expect([](const Texts& states) {
    TStatHolder holder = Holder(states);
    return Queries(holder).append(" last=").append(TAppStateHolder::Text(holder.LastState()));
  });
}

TEST(TStatHolder, TheFileIsReadAndWrittenUnchanged) {
  TStatHolder holder, dateless;
  EXPECT_TRUE(holder.ParseXML(kWholeFile));
  EXPECT_EQ(holder.MakeXML(), kWholeFile);
  EXPECT_EQ(holder.GetFirstDate(AppState::kInstall), "01.02.2003");
  holder.SetConfirmed(false);
  EXPECT_EQ(holder.GetFirstDate(AppState::kInstall), Today());
  EXPECT_TRUE(dateless.ParseXML("<statistics><ts confirmed='true'/></statistics>"));
  EXPECT_FALSE(dateless.Confirmed());
  EXPECT_FALSE(TStatHolder().ParseXML("<other/>"));
  EXPECT_EQ(Queries(holder), "stat=install&a=1&\xD1\x8F#&n=v=w&action=<go> stat=uninstall");
}

TEST(TStatHolder, ExtractBlock) {
  const Table<std::int16_t, std::string> table = {
      {"state alone uses it up", 13, "stat=install"},
      {"one left: the item overruns it", 14, "stat=install&a=1"},
      {"one short of a unique parameter", 22, "stat=install&a=1&b=2"},
      {"unique parameters by name", 23, "stat=install&a=1&b=2&y=2"},
      {"one short of an action", 38, "stat=install&a=1&b=2&y=2&z=1"},
      {"an action", 39, "stat=install&a=1&b=2&y=2&z=1&action=go"},
  };
  table.Expect([](std::int16_t budget) {
    TStatHolder holder = Holder({"install"}, {"a=1", "b=2"}, {"z=1", "y=2"}, {"go", "on"});
    TStatHolder block;
    holder.ExtractBlock(budget, &block);
    return block.MakeQuery();
  });
}

TEST_F(TStatCtrlTest, AFileThatIsNotTakenIsKeptAside) {
  const std::string unknown = "<statistics><last-state>x</last-state></statistics>";
  PutStatistics(unknown);
  WriteBytes(File("statistics.xml.bak"), "an older one");
  EXPECT_THROW(statistics_.LastState(), std::invalid_argument);
  EXPECT_EQ(Kept(), unknown);
  EXPECT_EQ(statistics_.LastState(), AppState::kDayuse);

  const std::string cut = kWholeFile.substr(0, kWholeFile.find("</unique-params>"));
  PutStatistics(cut);
  TStatHolder damaged, atLimit, aboveLimit;
  const std::string path = File("statistics.xml").string();
  EXPECT_TRUE(damaged.Load(path));
  EXPECT_EQ(Kept(), cut);
  EXPECT_EQ(Queries(damaged), "stat=install&a=1&\xD1\x8F# stat=uninstall");
  std::string large = kWholeFile;
  large.resize(kMaxStoreBytes, '\n');
  PutStatistics(large);
  EXPECT_TRUE(atLimit.Load(path) && atLimit.HasStates());
  PutStatistics(large + "\n");
  EXPECT_TRUE(aboveLimit.Load(path) && aboveLimit.IsEmpty());
  EXPECT_EQ(Kept().size(), kMaxStoreBytes + 1);
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(TStatCtrlTest, ARefusedLockPostponesEveryOperation) {
  PutStatistics(kWholeFile);
  FileLock refusing("", 0);
  TStatCtrl refused("app", &refusing);
  const LogCapture log;
  refused.AddState(AppState::kInstall);
  refused.AddOptionalParam("a");
  refused.AddAction("a");
  refused.SetUniqueParam("a=b");
  refused.Rollback(0);
  EXPECT_FALSE(refused.GetPingUrl(kBase));
  EXPECT_EQ(refused.GetUniqueParam("n") + refused.LastParam(), "");
  EXPECT_EQ(refused.LastState(), AppState::kDayuse);
  EXPECT_EQ(Statistics(), kWholeFile);
  EXPECT_TRUE(log.Has("Lock error, postpone get last state ."));
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
  const std::string long1013(1013, 'x'), tooLong = "BaseUrl too long.";
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
  EXPECT_FALSE(statistics_.GetPingUrl(kBase)) << "nothing is sent without a state";
  PutStatistics("");
  table.Expect([&](const std::string& base) -> std::string {
    statistics_.AddState(AppState::kDayuse);
    const auto next = [&](const std::string& to) {
      const std::string url = statistics_.GetPingUrl(to)->url;
      return url.substr(0, url.find("&fd="));
    };
    try {
      return next(base);
    } catch (const std::runtime_error& error) {
      return next(kBase) == std::string(kBase) + "&stat=dayuse" ? error.what() : "lost";
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
  TAppInfo2 app("app");
  app.Write("ReportUrl", "http://h/report");
  app.WriteFlag("Remove", true);
  statistics_.AddState(AppState::kInstall);
  // Nothing goes behind one of them.
  for (const char* param : {"1", "2", "3"}) {
    statistics_.AddOptionalParam(param + std::string(1000, 'x'));
  }
  std::string sent;
  const PingSender send = [&](const std::string&, const PingBlock& block) {
    const std::string query = block.url.substr(block.url.find("&stat=") + 6);
    sent += query.substr(0, query.find('x')) + " ";
    return sent != "install&1 uninstall&2 ";
  };
  // The second block is refused: it waits again and is sent the next time.
  TStatCtrl::SendStat(app, nullptr, 1'700'000'000, send);
  app.WriteFlag("Remove", false);
  TStatCtrl::SendStat(app, nullptr, 1'700'000'000, send);
  EXPECT_EQ(sent, "install&1 uninstall&2 uninstall&2 dayuse&3 ");
}
