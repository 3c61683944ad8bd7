#include "appinfo/app_info.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "appinfo/app_info2.h"
#include "testing/data_home.h"
#include "testing/fake_locker.h"
#include "testing/log_capture.h"

namespace {

// A store whose lock is refused.
struct LockedOut : TAppInfo2 {
  LockedOut() : TAppInfo2("app", std::make_unique<RefusingLocker>()) {}
};

constexpr std::int64_t kHour = 3600;
constexpr std::int64_t kDay = 24 * kHour;
constexpr std::int64_t kNow = 1'700'000'000;

}  // namespace

TEST(TAppInfo, FirstWriteMakesTheFileAndValuesSurvive) {
  const DataHome home;
  TAppInfo store("app");
  EXPECT_EQ(store.Read("Locale"), "");
  store.Write("Locale", "ru#\"'<&>\r");
  store.WriteNumber("VerMajor", -1);
  std::string file = ReadBytes(home.AppFolder("app") / "appinfo.xml");
  std::erase(file, '\r');
  EXPECT_EQ(file,
            "<?xml  version=\"1.0\" encoding=\"utf-8\"?>\n<appinfo>\n"
            "  <Locale>ru&#x23;&quot;&apos;&lt;&amp;&gt;&#xD;</Locale>\n"
            "  <VerMajor>-1</VerMajor>\n</appinfo>\n");
  EXPECT_EQ(store.Locale(), "ru#\"'<&>\r");
  EXPECT_EQ(store.VerMajor(), 65535);
  EXPECT_TRUE(store.IsValueExist("Locale"));
  store.RemoveValue("Locale");
  EXPECT_FALSE(store.IsValueExist("Locale"));
  EXPECT_EQ(store.ReadNumber("VerMajor"), -1);
}

TEST(TAppInfo, NoFileIsMadeForNothing) {
  const DataHome home;
  TAppInfo("app").RemoveValue("x");
  EXPECT_FALSE(std::filesystem::exists(home.AppFolder("app") / "appinfo.xml"));
  EXPECT_EQ(TAppInfo("..").Path(), "");
}

TEST(TAppInfo, ARefusedLockPostponesEveryOperation) {
  const DataHome home;
  TAppInfo("app").Write("Locale", "kept");
  const LogCapture capture;
  LockedOut store;
  store.Write("Locale", "new");
  store.RemoveValue("Locale");
  EXPECT_EQ(store.Read("Locale"), "");
  EXPECT_FALSE(store.IsValueExist("Locale"));
  EXPECT_EQ(capture.Lines(), (std::vector<std::string>{
                                 "E:TAppInfo::Write: Lock error, postpone file write.",
                                 "E:TAppInfo::RemoveValue: Lock error, postpone file write.",
                                 "E:TAppInfo::Read: Lock error, postpone file write.",
                                 "E:TAppInfo::IsValueExist: Lock error, postpone file write.",
                             }));
  EXPECT_EQ(TAppInfo("app").Locale(), "kept");
}

TEST(TAppInfo, ADamagedFileIsKeptAsideAndItsWholeValuesStay) {
  const DataHome home;
  const auto path = home.AppFolder("app") / "appinfo.xml";
  const struct {
    const char* label;
    std::string_view content;
    std::string_view first;
    bool isDamaged;
  } cases[] = {
      {"empty", "", "", false},
      {"byte order mark", "\xEF\xBB\xBF<appinfo><first>1</first></appinfo>", "1", false},
      {"no XML", std::string_view("\xFF\xFE<\0a\0>\0", 8), "", true},
      {"no root", "<!-- a > b --><appinfo/>", "", true},
      {"cut in a value", "<appinfo><first>1</first><second>2", "1", true},
      {"cut before the end", "<appinfo><first>1</first></appinfo", "1", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    std::filesystem::remove(path.string() + ".bak");
    WriteBytes(path, c.content);
    TAppInfo store("app");
    store.Write("third", "3");
    EXPECT_EQ(store.Read("first"), c.first);
    EXPECT_EQ(store.Read("third"), "3");
    EXPECT_EQ(ReadBytes(path.string() + ".bak"), c.isDamaged ? c.content : "");
  }
}

TEST(TAppInfo, AFileThatCannotBeReadIsNotWrittenOver) {
  const DataHome home;
  std::filesystem::create_directories(home.AppFolder("app") / "appinfo.xml");
  const LogCapture capture;
  TAppInfo("app").Write("key", "value");
  EXPECT_TRUE(capture.Has("E:TAppInfo::Write: Read error, postpone file write."));
  EXPECT_TRUE(std::filesystem::is_directory(home.AppFolder("app") / "appinfo.xml"));
}

TEST(TAppInfo2, VersionStatusIsAWord) {
  const struct {
    const char* text;
    VersionStatus want;
    bool logged;
  } cases[] = {{"release", VS_RELEASE, false},
               {"critical", VS_CRITICAL, false},
               {"beta", VS_BETA, false},
               {"Release", VS_BETA, true}};
  for (const auto& c : cases) {
    const LogCapture capture;
    EXPECT_EQ(ParseVersionStatus(c.text), c.want) << c.text;
    EXPECT_EQ(capture.Has("D:ParseVersionStatus: default == VS_BETA"), c.logged) << c.text;
  }
}

TEST(TAppInfo2, DebugAddressWins) {
  const DataHome home;
  TAppInfo2 store("app");
  store.Write("VersionUrl", "http://a/");
  store.Write("Debug_VersionUrl", "");
  EXPECT_EQ(store.VersionUrl(), "http://a/");
  store.Write("Debug_VersionUrl", "http://b/");
  EXPECT_EQ(store.VersionUrl(), "http://b/");
}

TEST(TAppInfo2, ShouldCheck) {
  const DataHome home;
  const std::string place = "TAppInfo2::ShouldCheck: ";
  const struct {
    const char* label;
    std::int64_t last, next;
    bool want;
    std::int64_t nextAfter;
    std::string line;
  } cases[] = {
      {"never checked", 0, 0, true, 0, "D:" + place + "hours_passed= 472222"},
      {"a minute short of a day", kNow - kDay + 60, 0, false, 0,
       "D:" + place + "Last checked  23  hours ago, postponed."},
      {"a day ago", kNow - kDay, 0, true, 0, "D:" + place + "hours_passed= 24"},
      {"last check in the future", kNow + kDay, 0, true, 0, ""},
      {"next check now", 0, kNow, false, kNow, ""},
      {"next check a second ago", 0, kNow - 1, true, kNow - 1, ""},
      {"just short of 151 days ahead", 0, kNow + 151 * kDay - 1, false, kNow + 151 * kDay - 1, ""},
      {"151 days ahead", 0, kNow + 151 * kDay, false, kNow + 150 * kDay,
       "I:TAppInfo2::SanityCheck: sanity check in work..."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    TAppInfo2 store("app");
    store.WriteNumber("LastCheckTime", c.last);
    store.WriteNumber("NextCheckTime", c.next);
    const LogCapture capture;
    EXPECT_EQ(store.ShouldCheck(kNow), c.want);
    EXPECT_EQ(store.ReadNumber("NextCheckTime"), c.nextAfter);
    EXPECT_TRUE(c.line.empty() || capture.Has(c.line));
  }
}

TEST(TAppInfo2, ShouldPing) {
  const DataHome home;
  TAppInfo2 store("app");
  EXPECT_TRUE(store.ShouldPing(kNow));
  const struct {
    const char* label;
    const char* period;
    std::int64_t last;
    bool want;
  } cases[] = {
      {"no period, a day ago", nullptr, kNow - kDay, false},
      {"no period, over a day ago", nullptr, kNow - kDay - 1, true},
      {"last ping in the future", nullptr, kNow + 1, true},
      {"short period is an hour", "60", kNow - kHour, false},
      {"negative period is an hour", "-5", kNow - kHour - 1, true},
      {"two hours", "7200", kNow - 7200, false},
  };
  for (const auto& c : cases) {
    if (c.period) store.Write("PingStatPeriod", c.period);
    store.WriteNumber("LastPingTime", c.last);
    EXPECT_EQ(store.ShouldPing(kNow), c.want) << c.label;
  }
}

TEST(TAppInfo2, RecordPing) {
  const DataHome home;
  TAppInfo2 store("app");
  store.Write("PingStatPeriod", "60");
  EXPECT_EQ(store.RecordPing(kNow), 2);
  EXPECT_EQ(store.Read("LastPingTime"), "1700000000");
  EXPECT_EQ(store.Read("NextPingTime"), "1700003600");
  store.WriteFlag("Remove", true);
  EXPECT_EQ(store.RecordPing(kNow), 1);
}

TEST(TAppInfo2, IsApplicationListEmpty) {
  const DataHome home;
  home.AppFolder("folder-without-record");
  TAppInfo app("app");
  const struct {
    const char* label;
    const char* removed;
    const char* path;
    const wchar_t* executor;
    bool want;
  } cases[] = {
      {"none", nullptr, nullptr, L"C:\\e.exe", true},
      {"removed", "1", "C:\\e.exe", L"C:\\e.exe", true},
      {"no path, a mark that is not 1", "2", "", L"C:\\e.exe", false},
      {"the same path, other case", "0", "c:\\E.exe", L"C:\\e.exe", false},
      {"another path", "0", "C:\\other.exe", L"C:\\e.exe", true},
      {"another path, default executor", "0", "C:\\other.exe", L"C:\\Default.exe", false},
  };
  for (const auto& c : cases) {
    if (c.removed) app.Write("Remove", c.removed);
    if (c.path) app.Write("UpdaterPath", c.path);
    EXPECT_EQ(TAppInfo2::IsApplicationListEmpty(c.executor, L"C:\\default.exe"), c.want) << c.label;
  }
  TAppInfo("other").Write("Remove", "1");
  EXPECT_FALSE(TAppInfo2::IsApplicationListEmpty(L"C:\\default.exe", L"C:\\default.exe"));
}
