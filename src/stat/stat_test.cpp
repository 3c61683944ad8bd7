// Statistics, from what waits to the addresses that carry it, and the identifiers in these.
#include "stat/stat_ctrl.h"

#include <chrono>
#include <cstdlib>
#include <stdexcept>

#include "appinfo/app_info2.h"
#include "stat/clids.h"
#include "stat/uuid.h"
#include "testing/unit_test.h"
#include "util/clock.h"
#include "util/file_lock.h"
#include "util/text.h"

namespace {

using Text = std::string;
using std::chrono_literals::operator""s;

constexpr char kBase[] = "http://h/?os=win";
const Text kWholeFile =
    "<?xml  version=\"1.0\" encoding=\"windows-1251\"?>\n<statistics>\n"
    "  <application-states>\n    <state ord=\"1\">install</state>\n"
    "    <state ord=\"2\">uninstall</state>\n  </application-states>\n"
    "  <optional-params>\n    <param ord=\"1\">a=1</param>\n"
    "    <param ord=\"2\">\xD1\x8F&#x23;</param>\n  </optional-params>\n"
    "  <unique-params>\n    <param ord=\"1\">n=v=w</param>\n  </unique-params>\n"
    "  <actions>\n    <action ord=\"1\">&lt;go&gt;</action>\n  </actions>\n"
    "  <last-state>uninstall</last-state>\n  <last-param>p</last-param>\n"
    "  <last-action/>\n  <ts confirmed=\"true\">01.02.2003</ts>\n</statistics>\n";

Text Today() {
  const LocalTime now = LocalNow().value();
  return DateText(now.day, now.month, now.year);
}

// All that waits: the queries of one block per state.
Text Queries(TStatHolder holder) {
  Text queries;
  for (TStatHolder block; holder.ExtractBlock(1000, &block); block = TStatHolder()) {
    queries += block.MakeQuery() + " ";
  }
  return queries;
}

constexpr char kOddClid[] = "<c><clid1 vid=\"a b\">1&amp;x=\xD1\x8F-._~%</clid1></c>";
Text Clid1(const Text& text) { return "<c><clid1>" + text + "</clid1></c>"; }

struct Statistics : testing::Test {
  fs::path File(const Text& name) const { return home_.AppFolder("app") / name; }
  Text Clids(const fs::path& file, const Text& content) const {
    WriteBytes(file, content);
    return TClids("zonie").ReadClids();
  }

  const DataHome home_;
  const fs::path path_ = File("statistics.xml"), userId_ = home_.File("ui");
  TStatCtrl statistics_{"app", nullptr};
};

}  // namespace

TEST(TStatHolder, KeepsStatesInTheirOrder) {
  using enum AppState;
  const Table<std::vector<AppState>, Text> table = {
      {"install twice", {kInstall, kInstall}, "stat=install last=install"},
      {"install again", {kInstall, kDayuse, kInstall}, "stat=install stat=install last=install"},
      {"dayuse again", {kDayuse, kUninstall, kDayuse}, "stat=dayuse stat=uninstall last=dayuse"}};
  table.Expect([](const std::vector<AppState>& states) {
    TStatHolder holder;
    for (const AppState state : states) holder.AddState(state);
    return Queries(holder).append("last=").append(TAppStateHolder::Text(holder.LastState()));
  });
}

TEST(TStatHolder, TheFileIsReadAndWrittenUnchanged) {
  TStatHolder holder, dateless;
  EXPECT_TRUE(holder.ParseXML(kWholeFile));
  EXPECT_EQ(holder.MakeXML(), kWholeFile);
  EXPECT_EQ(Queries(holder), "stat=install&a=1&\xD1\x8F#&n=v=w&action=<go> stat=uninstall ");
  EXPECT_EQ(holder.GetFirstDate(AppState::kInstall), "01.02.2003");
  holder.SetConfirmed(false);
  EXPECT_EQ(holder.GetFirstDate(AppState::kInstall), Today());
  EXPECT_TRUE(dateless.ParseXML("<statistics><ts confirmed='true'/></statistics>"));
  EXPECT_FALSE(dateless.Confirmed() || TStatHolder().ParseXML("<other/>"));
}

TEST(TStatHolder, ABlockTakesWhatItsBudgetAllows) {
  const Table<std::int16_t, Text> table = {
      {"state alone uses it up", 13, "stat=install"},
      {"one left: the item overruns it", 14, "stat=install&a=1"},
      {"one short of a unique parameter", 22, "stat=install&a=1&b=2"},
      {"unique parameters by name", 23, "stat=install&a=1&b=2&y=2"},
      {"one short of an action", 38, "stat=install&a=1&b=2&y=2&z=1"},
      {"an action", 39, "stat=install&a=1&b=2&y=2&z=1&action=go"}};
  table.Expect([](std::int16_t budget) {
    TStatHolder holder, block;
    holder.AddState(AppState::kInstall);
    for (const char* param : {"a=1", "b=2"}) holder.AddOptionalParam(param);
    for (const char* param : {"z=1", "y=2"}) holder.SetUniqueParam(param);
    for (const char* action : {"go", "on"}) holder.AddAction(action);
    holder.ExtractBlock(budget, &block);
    return block.MakeQuery();
  });
}

TEST_F(Statistics, AFileThatIsNotTakenIsKeptAside) {
  const auto sized = [](std::size_t size) {
    Text text = kWholeFile;
    text.resize(size, '\n');
    return text;
  };
  const Text unknown = "<statistics><last-state>x</last-state></statistics>";
  const Table<Text, Text> table = {
      {"unknown state", unknown, "Unknown state. kept, moved"},
      {"cut", kWholeFile.substr(0, kWholeFile.find("</unique-params>")),
       "stat=install&a=1&\xD1\x8F# stat=uninstall  kept"},
      {"as large as it may be", sized(kMaxStoreBytes),
       "stat=install&a=1&\xD1\x8F#&n=v=w&action=<go> stat=uninstall "},
      {"too large", sized(kMaxStoreBytes + 1), " kept, moved"}};
  table.Expect([&](const Text& content) {
    WriteBytes(path_, content);
    WriteBytes(path_.string() + ".bak", "an older one");
    TStatHolder holder;
    Text read;
    try {
      read = holder.Load(path_.string()) ? Queries(holder) : "failed";
    } catch (const std::invalid_argument& error) {
      read = error.what();
    }
    const bool isKept = ReadBytes(path_.string() + ".bak") == content;
    return read + (isKept ? " kept" : "") + (fs::exists(path_) ? "" : ", moved");
  });
}

TEST_F(Statistics, ARefusedLockPostponesEveryOperation) {
  WriteBytes(path_, kWholeFile);
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
  EXPECT_EQ(ReadBytes(path_), kWholeFile);
  EXPECT_TRUE(log.Has("Lock error, postpone get last state ."));
}

TEST_F(Statistics, AnAddressHasItsFirstDate) {
  const auto next = [&] { return statistics_.GetPingUrl(kBase)->url.substr(sizeof kBase); };
  statistics_.AddState(AppState::kInstall);
  statistics_.AddState(AppState::kUninstall);
  EXPECT_EQ(next(), "stat=install&fd=" + Today());
  EXPECT_NE(ReadBytes(File("in_work_0.xml")).find("<ts>" + Today() + "</ts>"), Text::npos);
  // Of another state than install it is the day of the user's id, where there is one.
  EXPECT_EQ(next(), "stat=uninstall");
  WriteBytes(userId_, "");
  const auto sinceNoon = std::chrono::system_clock::now().time_since_epoch() - 1'299'326'400s;
  fs::last_write_time(userId_, fs::file_time_type::clock::now() - sinceNoon);
  statistics_.AddState(AppState::kDayuse);
  EXPECT_EQ(next(), "stat=dayuse&fd=05.03.2011");
}

TEST_F(Statistics, TheQueryJoinsTheBaseWithinItsLimit) {
  statistics_.AddOptionalParam("a=1");
  EXPECT_FALSE(statistics_.GetPingUrl(kBase)) << "nothing is sent without a state";
  WriteBytes(path_, "");
  const auto behind = [&](const Text& base) {
    const Text url = statistics_.GetPingUrl(base)->url;
    EXPECT_TRUE(url.starts_with(base));
    return url.substr(base.size(), url.find("&fd=") - base.size());
  };
  const auto query = [&](const Text& base) -> Text {
    statistics_.AddState(AppState::kDayuse);
    try {
      return behind(base);
    } catch (const std::runtime_error& error) {
      return behind(kBase) == "&stat=dayuse" ? error.what() : "lost";
    }
  };
  ExpectAll<Text>("&stat=dayuse", {"http://h/?os=win", "http://h/&os=win", "http://h/?a?"}, query);
  ExpectAll<Text>("stat=dayuse", {"http://h/?", "http://h/?a&", "file:///log", Text(1013, 'x')},
                  query);
  ExpectAll<Text>("BaseUrl too long.", {Text(1014, 'x'), Text(65536 + 10, 'x')}, query);
}

TEST_F(Statistics, WaitingBlocksAreNeverOverwritten) {
  for (int id = 0; id <= 100; ++id) {
    WriteBytes(File("in_work_" + std::to_string(id) + ".xml"), "a block");
  }
  statistics_.AddState(AppState::kInstall);
  EXPECT_FALSE(statistics_.GetPingUrl(kBase));
  fs::remove(File("in_work_100.xml"));
  EXPECT_EQ(statistics_.GetPingUrl(kBase)->id, 100);
}

TEST_F(Statistics, SendStatSendsAllThatWaits) {
  TAppInfo2 app("app");
  app.Write("ReportUrl", "http://h/report");
  app.WriteFlag("Remove", true);
  statistics_.AddState(AppState::kInstall);
  // Nothing goes behind one of them.
  for (const char* param : {"1", "2", "3"}) statistics_.AddOptionalParam(param + Text(1000, 'x'));
  Text sent;
  const PingSender send = [&](const Text&, const PingBlock& block) {
    const Text query = block.url.substr(block.url.find("&stat=") + 6);
    sent += query.substr(0, query.find('x')) + " ";
    return sent != "install&1 uninstall&2 ";
  };
  // The second block is refused: it waits again and is sent the next time.
  TStatCtrl::SendStat(app, nullptr, 1'700'000'000, send);
  app.WriteFlag("Remove", false);
  TStatCtrl::SendStat(app, nullptr, 1'700'000'000, send);
  EXPECT_EQ(sent, "install&1 uninstall&2 uninstall&2 dayuse&3 ");
}

TEST_F(Statistics, TheFirstFileWithAnIdentifierCounts) {
  int files = 0;
  // From the last place to the first.
  for (const auto& file : {home_.CommonFile("vendor.xml"), home_.CommonFile("clids-zonie64.xml"),
                           home_.CommonFile("clids-zonie.xml"), home_.File("vendor.xml"),
                           home_.File("clids-zonie64.xml"), home_.File("clids-zonie.xml")}) {
    const Text identifier = std::to_string(++files);
    EXPECT_EQ(Clids(file, Clid1(identifier)), identifier);
  }
  const Table<Text, Text> table = {
      {"no XML", "MZ\x90", "5"},
      {"identifier without text", "<c><clid1 vid=\"3\"/><clid2>2</clid2></c>", "5"},
      {"huge", "<c><clid1>1</clid1>" + Text(2 << 20, ' ') + "</c>", "5"},
      {"cut behind the identifier", "<c><clid1>1</clid1><cl", "5"},
      {"with a sub-identifier", kOddClid, "1&x=\xD1\x8F-._~%-a b"},
      {"empty", "", "5"}};
  table.Expect([&](const Text& content) { return Clids(home_.File("clids-zonie.xml"), content); });
}

TEST_F(Statistics, AnIdentifierThatAnyUserMayWriteIsEncoded) {
  const fs::path common = home_.CommonFile("vendor.xml");
  EXPECT_EQ(Clids(common, kOddClid), "1%26x%3D%D1%8F-._~%25-a%20b");
  EXPECT_EQ(Clids(common, Clid1(Text(85, '+'))), "") << "three characters for each";
}

TEST_F(Statistics, AVendorsParameterIsBounded) {
  const fs::path file = home_.File("vendor-specific-urlparam-app.txt");
  const auto param = [] { return TClids("app").VendorParam(); };
  EXPECT_EQ(param(), "");
  const Table<Text, Text> table = {{"only one mark goes", "?&a=1", "&a=1"},
                                   {"line breaks behind", "&a=1\r\n\r", "a=1"},
                                   {"254 characters", Text(254, 'x'), Text(254, 'x')},
                                   {"254 and a line break", Text(254, 'x') + "\n", ""}};
  table.Expect([&](const Text& content) {
    WriteBytes(file, content);
    return param();
  });
  fs::remove(file);
  fs::create_directories(file);
  EXPECT_EQ(param(), "vendor-url-retr-failed=yes");
}

TEST_F(Statistics, AnAddressNamesApplicationAndUser) {
  const Text id = "{01234567-89AB-CDEF-0123-456789ABCDEF}";
  WriteBytes(userId_, id);
  TAppInfo app("app");
  app.SetVersion(1, 2, 3, 65535);
  app.Write("Platform", "win64");
  const Text rest = "ui=" + id + "&ver=1.2.3.65535&os=win64";
  const Table<const char*, Text> table = {{"", ""},
                                          {"file://x/?a", "file://x/?a"},
                                          {"http://h?", "http://h?krsoft=app&" + rest},
                                          {"http://h/&a", "http://h/&a&krsoft=app&" + rest},
                                          {"http://h", "http://h?krsoft=app&" + rest}};
  const auto address = [&](const char* report) {
    app.Write("ReportUrl", report);
    return app.GetPingUrl();
  };
  table.Expect(address);
  WriteBytes(home_.File("vendor-specific-urlparam-app.txt"), "?v=#\r\n");
  Clids(home_.File("clids-app.xml"), Clid1("12"));
  EXPECT_EQ(address("http://h"), "http://h?krsoft=app&clid=12&" + rest + "&vnd-params=v=#");
}

TEST_F(Statistics, AUsersIdIsMadeOnceAndNeverAgain) {
  const LogCapture log;
  const Text id = TUuid::ReadUniqUserId();
  EXPECT_EQ(id.size(), 38u);
  EXPECT_FALSE(log.Has("E:"));
  EXPECT_EQ(ReadBytes(userId_) + TUuid::ReadUniqUserId(), id + id);
  WriteBytes(userId_, id + "\n");
  EXPECT_EQ(TUuid::ReadUniqUserId() + ReadBytes(userId_), "{none}" + id + "\n");
}

TEST_F(Statistics, AUsersIdThatCannotBeReadOrWrittenIsNotMadeAgain) {
  fs::create_directories(userId_);
  EXPECT_EQ(TUuid::ReadUniqUserId(), "{none}");
  EXPECT_FALSE(TUuid::ProtectValueAlreadyExist());
  const Text path = home_.File("no-folder").string() + "\\deeper\\ui";
  EXPECT_EQ(TUuid::EnsureUniqUserIdExists(path).size(), 38u);
  EXPECT_EQ(TUuid::EnsureUniqUserIdExists(path), "{none}");
}

#ifndef _WIN32  // where the environment names the folder and the mode of the process
TEST_F(Statistics, ProtectedModeAndAMissingFolderWriteNothing) {
  setenv("KUPDATE_PROTECTED_MODE", "1", 1);
  EXPECT_EQ(TUuid::ReadUniqUserId(), "{none}");
  unsetenv("KUPDATE_PROTECTED_MODE");
  EXPECT_FALSE(fs::exists(userId_) || TUuid::ProtectValueAlreadyExist());
  const Text folders = std::getenv("KUPDATE_HOME");
  unsetenv("KUPDATE_HOME");
  EXPECT_EQ(TClids("app").VendorParam(), "");
  setenv("KUPDATE_HOME", folders.c_str(), 1);
}
#endif
