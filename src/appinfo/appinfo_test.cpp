// The stored and the local record of an application, its versions, and when it is due.
#include "appinfo/app_info2.h"
#include "appinfo/local_record.h"
#include "appinfo/version_number.h"
#include "layout/folders.h"
#include "testing/unit_test.h"
#include "util/file_lock.h"
#include "util/registry.h"
#include "util/text.h"

namespace {

using Text = std::string;
using Times = std::pair<std::int64_t, std::int64_t>;
constexpr std::int64_t kHour = 3600, kDay = 24 * kHour, kNow = 1'700'000'000;

struct TAppInfoTest : testing::Test {
  Text File() const {
    Text text = ReadBytes(path_);
    std::erase(text, '\r');
    return text;
  }
  // As another process reads it.
  static Text Stored(const char* key) { return TAppInfo("app").Read(key); }

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
  EXPECT_FALSE(store_.IsValueExist("Locale") || !store_.IsValueExist("VerMajor"));
  EXPECT_EQ(TAppInfo("..").Path(), "");
}

TEST_F(TAppInfoTest, ARefusedLockPostponesEveryOperation) {
  struct LockedOut : TAppInfo {
    LockedOut() : TAppInfo("app", std::make_unique<FileLock>("", 0)) {}
  } refused;
  store_.Write("Locale", "old");
  const LogCapture log;
  refused.Write("Locale", "new");
  refused.RemoveValue("Locale");
  EXPECT_FALSE(refused.IsValueExist("Locale"));
  EXPECT_EQ(refused.Read("Locale") + Stored("Locale"), "old");
  EXPECT_TRUE(log.Has("IsValueExist: Lock error, postpone file write."));
}

TEST_F(TAppInfoTest, ADamagedFileIsKeptAsideAndItsWholeValuesStay) {
  const Table<Text, Text> table = {
      {"empty", "", ""},
      {"no XML", Text("\xFF\xFE<\0a\0>\0", 8), " kept aside"},
      {"no root", "<!-- a > b --><appinfo/>", " kept aside"},
      {"cut in a value", "<appinfo><first>1</first><second>2", "1 kept aside"},
      {"too large", Text(kMaxStoreBytes + 1, ' '), " kept aside"}};
  table.Expect([&](const Text& content) {
    fs::remove(path_.string() + ".bak");
    WriteBytes(path_, content);
    store_.Write("third", "3");
    EXPECT_EQ(Stored("third"), "3");
    const Text backup = ReadBytes(path_.string() + ".bak");
    return Stored("first") + (!backup.empty() && backup == content ? " kept aside" : backup);
  });
}

TEST_F(TAppInfoTest, GatheredChangesAreSavedAtOnce) {
  {
    const StoreChanges changes(store_), inner(store_);
    store_.Write("Locale", "ru");
    store_.RemoveValue("Locale");
    store_.Write("Locale", "de");
    EXPECT_EQ(store_.Locale(), "de");
    EXPECT_FALSE(fs::exists(path_));
    EXPECT_TRUE(store_.SaveChanges());
    store_.Write("Platform", "x");
    EXPECT_EQ(Stored("Locale") + Stored("Platform"), "de");
  }
  EXPECT_EQ(Stored("Platform"), "x");
  const Text unusual = "<appinfo>\n<Locale>de</Locale></appinfo>";
  WriteBytes(path_, unusual);
  store_.Write("Locale", "de");
  store_.RemoveValue("Platform");
  EXPECT_EQ(ReadBytes(path_), unusual) << "a value that stands there is not written";
}

TEST_F(TAppInfoTest, DebugAddressWinsWhereTheUserAllowsIt) {
  store_.Write("VersionUrl", "http://a/");
  store_.Write("Debug_VersionUrl", "http://b/");
  for (const std::uint32_t allowed : {0u, 1u}) {
    EXPECT_EQ(store_.VersionUrl(), "http://a/");
    JustUtil::WriteIntToRegistry(L"Software\\Krelix", L"AllowDebugFeed", allowed);
  }
  EXPECT_EQ(store_.VersionUrl(), "http://b/");
  JustUtil::RemoveValue(L"Software\\Krelix", L"AllowDebugFeed");
}

TEST_F(TAppInfoTest, ACheckIsDueADayAfterTheLastAndBehindTheNext) {
  const auto isDue = [&](const Times& lastAndNext) {
    store_.WriteNumber("LastCheckTime", lastAndNext.first);
    store_.WriteNumber("NextCheckTime", lastAndNext.second);
    const bool isCheckDue = IsCheckDue(store_.StoredCheckTimes(), kNow);
    EXPECT_EQ(store_.ShouldCheck(kNow), isCheckDue);
    return isCheckDue;
  };
  ExpectAll<Times>(true, {{0, 0}, {kNow - kDay, 0}, {kNow + 1, 0}, {0, kNow - 1}}, isDue);
  ExpectAll<Times>(false, {{kNow - kDay + 1, 0}, {0, kNow}, {0, kNow + 1000 * kDay}}, isDue);
  EXPECT_EQ(store_.StoredCheckTimes().next, kNow + 150 * kDay) << "the last one was bounded";
  EXPECT_EQ(BoundedNextCheck(kNow + 151 * kDay - 1, kNow), kNow + 151 * kDay - 1);
  store_.ForgetCheckTimes();
  EXPECT_TRUE(store_.ShouldCheck(kNow));
  EXPECT_EQ(NextCheckAfter(kNow, 3600), kNow + kDay + 3600);
  EXPECT_EQ(NextCheckAfter(kNow, 3601), kNow + kDay);
  const std::uint64_t next = NextCheckAfter(kNow, 0);
  EXPECT_TRUE(!IsCheckDue({kNow, next}, next) && IsCheckDue({kNow, next}, next + 1));
  EXPECT_EQ(CheckDueTime({1, next}), next);
  EXPECT_EQ(CheckDueTime({kNow, 0}), next);
}

TEST_F(TAppInfoTest, AReportIsDueAfterItsPeriod) {
  const auto isDue = [&](std::int64_t last) {
    store_.WriteNumber("LastPingTime", last);
    return store_.ShouldPing(kNow);
  };
  EXPECT_TRUE(store_.ShouldPing(kNow));
  EXPECT_FALSE(isDue(kNow - kDay)) << "no period is a day";
  EXPECT_TRUE(isDue(kNow - kDay - 1) && isDue(kNow + 1));
  for (const char* shortPeriod : {"60", "-5"}) {  // both are an hour
    store_.Write("PingStatPeriod", shortPeriod);
    EXPECT_FALSE(isDue(kNow - kHour));
    EXPECT_TRUE(isDue(kNow - kHour - 1));
  }
  store_.RecordPing(kNow);
  EXPECT_EQ(Stored("LastPingTime") + " " + Stored("NextPingTime"), "1700000000 1700003600");
  store_.ForgetPingTimes();
  EXPECT_TRUE(store_.ShouldPing(kNow));
}

TEST_F(TAppInfoTest, IsApplicationListEmpty) {
  home_.AppFolder("folder-without-record");
  const auto isEmpty = [](const wchar_t* program) {
    return TAppInfo2::IsApplicationListEmpty(program, L"C:\\default.exe");
  };
  // What any process may have written, and the record that knows better.
  struct App {
    const char *removed, *executor;
    std::optional<LocalRecord> local = {};
    const wchar_t* asked = L"C:\\e.exe";
  };
  const Table<App, bool> table = {
      {"removed", {"1", "C:\\e.exe"}, true},
      {"no path, a mark that is not 1", {"2", ""}, false},
      {"the same path, other case", {"0", "c:\\E.exe"}, false},
      {"another path", {"0", "C:\\other.exe"}, true},
      {"the default one is asked for", {"0", "C:\\other.exe", {}, L"C:\\Default.exe"}, false},
      {"the same, removed", {"1", "", {}, L"C:\\default.exe"}, true},
      {"local record", {"1", "", LocalRecord{}}, false},
      {"local record, another path", {"1", "", LocalRecord{0, "", "C:\\other.exe"}}, true},
      {"local record, removed", {"1", "", LocalRecord{0, "", "", true, true}}, true}};
  table.Expect([&](const App& app) {
    store_.Write("Remove", app.removed);
    store_.Write("UpdaterPath", app.executor);
    if (app.local) ChangeLocalRecord("app", [&](LocalRecord& record) { record = *app.local; });
    return isEmpty(app.asked);
  });
  for (const char* const id : {"\xD0\xB6", ""}) {
    TAppInfo other(id);
    other.Write("Remove", "0");
    EXPECT_FALSE(isEmpty(L"C:\\default.exe")) << id;
    other.Write("Remove", "1");
  }
}

TEST_F(TAppInfoTest, ALocalRecordSurvivesAndAnAnswerIsTakenByItsOwnerOnly) {
  EXPECT_FALSE(ReadLocalRecord("app") || IsLiving("app"));
  const LocalRecord whole{0x0001'0002'0003'FFFF, "win64", "C:\\<e>.exe", true, false};
  EXPECT_TRUE(ChangeLocalRecord("app", [&](LocalRecord& record) { record = whole; }));
  EXPECT_EQ(ReadLocalRecord("app"), whole);
  EXPECT_TRUE(IsLiving("app"));
  EXPECT_TRUE(WriteAnswer("app", CheckAnswer{"{1}", true}) &&
              WriteAnswer("app", InstallAnswer{"run", -1004}));
  EXPECT_EQ(ReadCheckAnswer("app", "{1}"), true);
  EXPECT_EQ(ReadCheckAnswer("app", "{2}"), std::nullopt);
  EXPECT_EQ(ReadInstallAnswer("app", "run"), -1004);
  EXPECT_EQ(ReadInstallAnswer("app", ""), std::nullopt);
  const auto path = NativePath(NarrowUtf8(GetUpdaterLocalFolder("app", CreateFolder::kNo)));
  WriteBytes(path / "local.xml", "<appinfo><VerMa");
  EXPECT_FALSE(ReadLocalRecord("app"));
  EXPECT_TRUE(IsLiving("app")) << "in doubt";
}

TEST(VersionNumber, HasFourNumbers) {
  const Table<const char*, Text> table = {
      {"1.2.3.4beta", "1.2.3.4"},
      {" 1.\t+2.\n3. 04", "1.2.3.4"},
      {"65535.65535.65535.65535", "65535.65535.65535.65535"},
      {"1.131072.0.0", "3.0.0.0"},
      {"1.-1.0.0", "65535.65535.0.0"},
      {"0.0.0.99999999999999999999999999", "0.0.32767.65535"},
      {"0.0.0.-99999999999999999999999999", "65535.65535.32768.0"}};
  table.Expect([](const char* text) { return FormatVersion(ParseVersion(text)); });
  for (const char* bad : {"", "1.2.3.-", "1.2.3 .4"}) {
    EXPECT_THROW(ParseVersion(bad), std::invalid_argument) << bad;
  }
}
