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

// A store in its own file whose lock is refused.
class LockedOut : public TAppInfo2 {
 public:
  LockedOut() : TAppInfo2("app", std::make_unique<RefusingLocker>()) {}
};

std::string Unix(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
  return text;
}

constexpr std::uint64_t kHour = 3600;
constexpr std::uint64_t kDay = 24 * kHour;
constexpr std::uint64_t kNow = 1'700'000'000;

}  // namespace

TEST(TAppInfo, FirstWriteMakesTheFileAndValuesSurvive) {
  const DataHome home;
  TAppInfo store("app");
  EXPECT_EQ(store.Read("Locale"), "");
  store.Write("Locale", "ru#\"'<&>\r");
  store.WriteNumber("VerMajor", -1);
  EXPECT_EQ(Unix(ReadBytes(home.AppFolder("app") / "appinfo.xml")),
            "<?xml  version=\"1.0\" encoding=\"utf-8\"?>\n<appinfo>\n"
            "  <Locale>ru&#x23;&quot;&apos;&lt;&amp;&gt;&#xD;</Locale>\n"
            "  <VerMajor>-1</VerMajor>\n</appinfo>\n");
  EXPECT_EQ(store.Locale(), "ru#\"'<&>\r");
  EXPECT_EQ(store.VerMajor(), 65535);
  EXPECT_TRUE(store.IsValueExist("Locale"));
  store.RemoveValue("Locale");
  store.RemoveValue("Locale");
  EXPECT_FALSE(store.IsValueExist("Locale"));
  EXPECT_EQ(store.ReadNumber("VerMajor"), -1);
}

TEST(TAppInfo, RemovingFromNothingMakesNoFile) {
  const DataHome home;
  TAppInfo("app").RemoveValue("x");
  EXPECT_FALSE(std::filesystem::exists(home.AppFolder("app") / "appinfo.xml"));
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

TEST(TAppInfo, FileCutAnywhereKeepsWhatIsWhole) {
  const DataHome home;
  const auto path = home.AppFolder("app") / "appinfo.xml";
  TAppInfo store("app");
  store.Write("first", "1");
  store.Write("second", "2");
  const std::string whole = ReadBytes(path);
  const std::size_t endOfFirst = whole.find("</first>") + std::string("</first>").size();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    SCOPED_TRACE(length);
    const std::string cut = whole.substr(0, length);
    WriteBytes(path, cut);
    store.Write("third", "3");
    EXPECT_EQ(store.Read("first"), length >= endOfFirst ? "1" : "");
    EXPECT_EQ(store.Read("third"), "3");
    const bool damaged = length > whole.find("<appinfo") && length < whole.find("</appinfo>") + 10;
    if (damaged) {
      EXPECT_EQ(ReadBytes(path.string() + ".bak"), cut) << "the cut file is kept";
    }
  }
}

TEST(TAppInfo, AFileThatIsNoXmlIsKeptAside) {
  const DataHome home;
  const auto path = home.AppFolder("app") / "appinfo.xml";
  for (const std::string_view text :
       {std::string_view("\xFF\xFE<\0a\0>\0", 8), std::string_view("<!-- a > b --><appinfo/>")}) {
    WriteBytes(path, text);
    const LogCapture capture;
    TAppInfo("app").Write("key", "value");
    EXPECT_TRUE(capture.Has("E:LoadXml: XML parser error: no root element  (at position 0 )"));
    EXPECT_EQ(ReadBytes(path.string() + ".bak"), text);
    EXPECT_EQ(TAppInfo("app").Read("key"), "value");
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

TEST(TAppInfo, ByteOrderMarkIsDropped) {
  const DataHome home;
  WriteBytes(home.AppFolder("app") / "appinfo.xml", "\xEF\xBB\xBF<appinfo><a>1</a></appinfo>");
  EXPECT_EQ(TAppInfo("app").Read("a"), "1");
}

TEST(TAppInfo, AnIdThatLeavesTheDataFolderIsRefused) {
  const DataHome home;
  TAppInfo store("..");
  store.Write("key", "value");
  EXPECT_EQ(store.Path(), "");
  EXPECT_EQ(store.Read("key"), "");
}

TEST(TAppInfo2, VersionStatusIsAWord) {
  const DataHome home;
  TAppInfo2 store("app");
  const struct {
    const char* text;
    VersionStatus want;
    bool logged;
  } cases[] = {{"release", VS_RELEASE, false}, {"critical", VS_CRITICAL, false},
               {"beta", VS_BETA, false},       {"Release", VS_BETA, true},
               {"1", VS_BETA, true},           {"", VS_BETA, true}};
  for (const auto& c : cases) {
    store.Write("VersionStatus", c.text);
    const LogCapture capture;
    EXPECT_EQ(store.GetVersionStatus(), c.want) << c.text;
    EXPECT_EQ(capture.Has("D:ParseVersionStatus: default == VS_BETA"), c.logged) << c.text;
  }
  store.SetVersionStatus(VS_CRITICAL);
  EXPECT_EQ(store.Read("VersionStatus"), "2");
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
  const struct {
    const char* label;
    std::uint64_t last;
    std::uint64_t next;
    bool want;
    std::uint64_t nextAfter;
    const char* line;
  } cases[] = {
      {"never checked", 0, 0, true, 0, nullptr},
      {"a minute short of a day", kNow - kDay + 60, 0, false, 0,
       "D:TAppInfo2::ShouldCheck: Last checked  23  hours ago, postponed."},
      {"a day ago", kNow - kDay, 0, true, 0, "D:TAppInfo2::ShouldCheck: hours_passed= 24"},
      {"last check in the future", kNow + kDay, 0, true, 0, nullptr},
      {"next check now", 0, kNow, false, kNow, nullptr},
      {"next check a second ago", 0, kNow - 1, true, kNow - 1, nullptr},
      {"150 days and 23 hours ahead", 0, kNow + 150 * kDay + 23 * kHour, false,
       kNow + 150 * kDay + 23 * kHour, nullptr},
      {"151 days ahead", 0, kNow + 151 * kDay, false, kNow + 150 * kDay,
       "I:TAppInfo2::SanityCheck: sanity check in work..."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    TAppInfo2 store("app");
    store.ForgetCheckTimes();
    if (c.last) store.WriteNumber("LastCheckTime", static_cast<std::int64_t>(c.last));
    if (c.next) store.WriteNumber("NextCheckTime", static_cast<std::int64_t>(c.next));
    const LogCapture capture;
    EXPECT_EQ(store.ShouldCheck(kNow), c.want);
    EXPECT_EQ(store.ReadNumber("NextCheckTime"), static_cast<std::int64_t>(c.nextAfter));
    if (c.line) {
      EXPECT_TRUE(capture.Has(c.line)) << c.line;
    }
  }
}

TEST(TAppInfo2, ShouldPing) {
  const DataHome home;
  const struct {
    const char* label;
    const char* period;
    std::uint64_t last;
    bool want;
  } cases[] = {
      {"never", nullptr, 0, true},
      {"no period, a day ago", nullptr, kNow - kDay, false},
      {"no period, over a day ago", nullptr, kNow - kDay - 1, true},
      {"short period is an hour", "60", kNow - kHour, false},
      {"short period is an hour, passed", "60", kNow - kHour - 1, true},
      {"negative period is an hour", "-5", kNow - kHour - 1, true},
      {"two hours", "7200", kNow - 7200, false},
      {"last ping in the future", nullptr, kNow + 1, true},
  };
  for (const auto& c : cases) {
    TAppInfo2 store("app");
    store.RemoveValue("PingStatPeriod");
    if (c.period) store.Write("PingStatPeriod", c.period);
    store.WriteNumber("LastPingTime", static_cast<std::int64_t>(c.last));
    EXPECT_EQ(store.ShouldPing(kNow), c.want) << c.label;
  }
}

TEST(TAppInfo2, RecordPing) {
  const DataHome home;
  TAppInfo2 store("app");
  store.Write("PingStatPeriod", "60");
  EXPECT_EQ(store.RecordPing(kNow), 2);
  EXPECT_EQ(store.ReadNumber("LastPingTime"), static_cast<std::int64_t>(kNow));
  EXPECT_EQ(store.ReadNumber("NextPingTime"), static_cast<std::int64_t>(kNow + kHour));
  store.WriteFlag("Remove", true);
  EXPECT_EQ(store.RecordPing(kNow), 1);
}

TEST(TAppInfo2, IsApplicationListEmpty) {
  struct App {
    const char* id;
    const char* removed;
    const char* path;
  };
  const struct {
    const char* label;
    std::vector<App> apps;
    const wchar_t* executor;
    bool want;
  } cases[] = {
      {"none", {}, L"C:\\e.exe", true},
      {"all removed", {{"a", "1", ""}, {"b", "1", "C:\\e.exe"}}, L"C:\\e.exe", true},
      {"one without a path", {{"a", "1", ""}, {"b", "0", ""}}, L"C:\\e.exe", false},
      {"the same path, other case", {{"a", "0", "c:\\E.exe"}}, L"C:\\e.exe", false},
      {"another path", {{"a", "0", "C:\\other.exe"}}, L"C:\\e.exe", true},
      {"another path, default executor", {{"a", "0", "C:\\other.exe"}}, L"C:\\Default.exe", false},
  };
  for (const auto& c : cases) {
    const DataHome home;
    home.AppFolder("folder-without-record");
    for (const App& app : c.apps) {
      TAppInfo store(app.id);
      store.Write("Remove", app.removed);
      store.Write("UpdaterPath", app.path);
    }
    EXPECT_EQ(TAppInfo2::IsApplicationListEmpty(c.executor, L"C:\\default.exe"), c.want) << c.label;
  }
}
