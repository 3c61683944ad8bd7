#include "appinfo/app_info.h"

#include <gtest/gtest.h>

#include "appinfo/app_info2.h"
#include "appinfo/local_record.h"
#include "layout/folders.h"
#include "testing/data_home.h"
#include "testing/log_capture.h"
#include "testing/table.h"
#include "util/file_lock.h"
#include "util/registry.h"
#include "util/text.h"

namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kHour = 3600, kDay = 24 * kHour, kNow = 1'700'000'000;

class TAppInfoTest : public testing::Test {
 protected:
  std::string File() const {
    std::string text = ReadBytes(path_);
    std::erase(text, '\r');
    return text;
  }

  const DataHome home_;
  const fs::path path_ = home_.AppFolder("app") / "appinfo.xml";
  TAppInfo2 store_{"app"};
};

}  // namespace

TEST_F(TAppInfoTest, FirstWriteMakesTheFileAndValuesSurvive) {
  store_.RemoveValue("Locale");
  EXPECT_FALSE(fs::exists(path_));
  store_.Write("Locale", "ru#\"'<&>\r");
  store_.WriteNumber("VerMajor", -1);
  EXPECT_EQ(File(),
            "<?xml  version=\"1.0\" encoding=\"utf-8\"?>\n<appinfo>\n"
            "  <Locale>ru&#x23;&quot;&apos;&lt;&amp;&gt;&#xD;</Locale>\n"
            "  <VerMajor>-1</VerMajor>\n</appinfo>\n");
  EXPECT_EQ(store_.Locale(), "ru#\"'<&>\r");
  EXPECT_EQ(store_.VerMajor(), 65535);
  store_.RemoveValue("Locale");
  EXPECT_FALSE(store_.IsValueExist("Locale"));
  EXPECT_TRUE(store_.IsValueExist("VerMajor"));
  EXPECT_EQ(TAppInfo("..").Path(), "");
}

TEST_F(TAppInfoTest, ARefusedLockPostponesEveryOperation) {
  struct LockedOut : TAppInfo2 {
    LockedOut() : TAppInfo2("app", std::make_unique<FileLock>("", 0)) {}
  } refused;
  WriteBytes(path_, "<appinfo><Locale>old</Locale></appinfo>");
  const std::string before = File();
  const LogCapture log;
  refused.Write("Locale", "new");
  refused.RemoveValue("Locale");
  EXPECT_EQ(refused.Read("Locale"), "");
  EXPECT_FALSE(refused.IsValueExist("Locale"));
  EXPECT_EQ(File(), before);
  EXPECT_TRUE(log.Has("IsValueExist: Lock error, postpone file write."));
}

TEST_F(TAppInfoTest, ADamagedFileIsKeptAsideAndItsWholeValuesStay) {
  const Table<std::string, std::string> table = {
      {"empty", "", ""},
      {"no XML", std::string("\xFF\xFE<\0a\0>\0", 8), " kept aside"},
      {"no root", "<!-- a > b --><appinfo/>", " kept aside"},
      {"cut in a value", "<appinfo><first>1</first><second>2", "1 kept aside"},
      {"too large", std::string(kMaxStoreBytes + 1, ' '), " kept aside"},
  };
  table.Expect([&](const std::string& content) {
    fs::remove(path_.string() + ".bak");
    WriteBytes(path_, content);
    store_.Write("third", "3");
    EXPECT_EQ(store_.Read("third"), "3");
    const std::string backup = ReadBytes(path_.string() + ".bak");
    return store_.Read("first") + (!backup.empty() && backup == content ? " kept aside" : backup);
  });
}

TEST_F(TAppInfoTest, GatheredChangesAreSavedAtOnce) {
  {
    const StoreChanges changes(store_), inner(store_);
    store_.Write("Locale", "ru");
    store_.WriteFlag("Remove", true);
    store_.RemoveValue("Locale");
    store_.Write("Locale", "de");
    EXPECT_EQ(store_.Locale(), "de");
    EXPECT_FALSE(fs::exists(path_));
    EXPECT_TRUE(store_.SaveChanges());
    EXPECT_EQ(TAppInfo2("app").Locale(), "de");
    store_.Write("Platform", "x");
    EXPECT_EQ(TAppInfo2("app").Platform(), "");
  }
  EXPECT_EQ(TAppInfo2("app").Platform(), "x");
  const std::string unusual = "<appinfo>\n<Locale>de</Locale></appinfo>";
  WriteBytes(path_, unusual);
  store_.Write("Locale", "de");
  store_.RemoveValue("Platform");
  EXPECT_EQ(ReadBytes(path_), unusual) << "a value that stands there is not written";
}

TEST_F(TAppInfoTest, DebugAddressWinsWhereTheUserAllowsIt) {
  store_.Write("VersionUrl", "http://a/");
  store_.Write("Debug_VersionUrl", "http://b/");
  const wchar_t* const key = L"Software\\Krelix";
  for (const std::uint32_t allowed : {0u, 1u}) {
    EXPECT_EQ(store_.VersionUrl(), "http://a/");
    JustUtil::WriteIntToRegistry(key, L"AllowDebugFeed", allowed);
  }
  EXPECT_EQ(store_.VersionUrl(), "http://b/");
  JustUtil::RemoveValue(key, L"AllowDebugFeed");
}

// check_schedule_test.cpp has the rule.
TEST_F(TAppInfoTest, ShouldCheckReadsAndRepairsTheTimes) {
  store_.WriteNumber("LastCheckTime", kNow - kDay + 60);
  EXPECT_FALSE(store_.ShouldCheck(kNow));
  store_.WriteNumber("LastCheckTime", kNow - kDay);
  EXPECT_TRUE(store_.ShouldCheck(kNow));
  store_.WriteNumber("NextCheckTime", kNow + 151 * kDay);
  EXPECT_FALSE(store_.ShouldCheck(kNow));
  EXPECT_EQ(store_.StoredCheckTimes().next, kNow + 150 * kDay);
  store_.ForgetCheckTimes();
  EXPECT_TRUE(store_.ShouldCheck(kNow));
}

TEST_F(TAppInfoTest, ShouldPingAndRecordPing) {
  EXPECT_TRUE(store_.ShouldPing(kNow));
  using Ping = std::pair<const char*, std::int64_t>;  // the period and the last ping
  const Table<Ping, bool> table = {
      {"no period, a day ago", {"", kNow - kDay}, false},
      {"no period, over a day ago", {"", kNow - kDay - 1}, true},
      {"last ping in the future", {"", kNow + 1}, true},
      {"short period is an hour", {"60", kNow - kHour}, false},
      {"negative period is an hour", {"-5", kNow - kHour - 1}, true},
  };
  table.Expect([&](const Ping& ping) {
    if (*ping.first) store_.Write("PingStatPeriod", ping.first);
    store_.WriteNumber("LastPingTime", ping.second);
    return store_.ShouldPing(kNow);
  });
  EXPECT_EQ(store_.RecordPing(kNow), AppState::kDayuse);
  EXPECT_EQ(store_.Read("LastPingTime") + " " + store_.Read("NextPingTime"),
            "1700000000 1700003600");
  store_.WriteFlag("Remove", true);
  EXPECT_EQ(store_.RecordPing(kNow), AppState::kUninstall);
  store_.ForgetPingTimes();
  EXPECT_TRUE(store_.ShouldPing(kNow));
}

TEST_F(TAppInfoTest, IsApplicationListEmpty) {
  home_.AppFolder("folder-without-record");
  const std::wstring executor = L"C:\\e.exe", standard = L"C:\\default.exe";
  const auto isEmpty = [&](const std::wstring& program) {
    return TAppInfo2::IsApplicationListEmpty(program, standard);
  };
  using App = std::pair<const char*, const char*>;  // its mark of removal and its executor
  const Table<App, bool> stores = {
      {"removed", {"1", "C:\\e.exe"}, true},
      {"no path, a mark that is not 1", {"2", ""}, false},
      {"the same path, other case", {"0", "c:\\E.exe"}, false},
      {"another path", {"0", "C:\\other.exe"}, true},
  };
  stores.Expect([&](const App& app) {
    store_.Write("Remove", app.first);
    store_.Write("UpdaterPath", app.second);
    return isEmpty(executor);
  });
  EXPECT_FALSE(isEmpty(L"C:\\Default.exe"));
  store_.Write("Remove", "1");
  EXPECT_TRUE(isEmpty(standard));
  // A mark that any process may have made: the local record knows better.
  const Table<LocalRecord, bool> records = {
      {"not removed", {}, false},
      {"another path", {0, "", "C:\\other.exe"}, true},
      {"removed", {0, "", "", true, true}, true},
  };
  records.Expect([&](const LocalRecord& local) {
    EXPECT_TRUE(ChangeLocalRecord("app", [&](LocalRecord& record) { record = local; }));
    return isEmpty(executor);
  });
  for (const char* const id : {"\xD0\xB6", ""}) {
    TAppInfo other(id);
    other.Write("Remove", "0");
    EXPECT_FALSE(isEmpty(standard)) << id;
    other.Write("Remove", "1");
  }
}

TEST_F(TAppInfoTest, ALocalRecordSurvivesAndAnAnswerIsTakenByItsOwnerOnly) {
  EXPECT_FALSE(ReadLocalRecord("app") || IsLiving("app"));
  const LocalRecord whole{0x0001'0002'0003'FFFF, "win64", "C:\\<e>.exe", true, false};
  EXPECT_TRUE(ChangeLocalRecord("app", [&](LocalRecord& record) { record = whole; }));
  EXPECT_EQ(ReadLocalRecord("app"), whole);
  EXPECT_TRUE(IsLiving("app"));
  EXPECT_TRUE(WriteAnswer("app", CheckAnswer{"{1}", true}));
  EXPECT_TRUE(WriteAnswer("app", InstallAnswer{"run", -1004}));
  EXPECT_EQ(ReadCheckAnswer("app", "{1}"), true);
  EXPECT_EQ(ReadCheckAnswer("app", "{2}"), std::nullopt);
  EXPECT_EQ(ReadInstallAnswer("app", "run"), -1004);
  EXPECT_EQ(ReadInstallAnswer("app", ""), std::nullopt);
  const auto path = NativePath(NarrowUtf8(GetUpdaterLocalFolder("app", CreateFolder::kNo)));
  WriteBytes(path / "local.xml", "<appinfo><VerMa");
  EXPECT_FALSE(ReadLocalRecord("app"));
  EXPECT_TRUE(IsLiving("app")) << "in doubt";
}
