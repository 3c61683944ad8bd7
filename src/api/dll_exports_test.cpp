// The exported functions over the stores, the log, the locks and the statistics.
#include <gtest/gtest.h>

#include <thread>

#include "testing/dll_client.h"
#include "util/clock.h"
#include "util/process.h"
#include "util/text.h"
#include "util/win/windows_lean.h"

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

fs::path LogFile(const char* appId) {
  return RoamingFolder() / (std::string("kupdate-exec-") + appId + ".log");
}
std::string Without(const char* pattern, const fs::path& file) {
  return std::regex_replace(ReadBytes(file), std::regex(pattern), "");
}
unsigned RunChild(const wchar_t* ids) {
  return Run(ModulePath(), std::wstring(L"child --child ") + ids);
}

}  // namespace

TEST(Exports, NullPointersEndInAStatus) {
  const Exports& dll = Dll();
  const DllLog log;
  std::int32_t size = 5;
  char buffer[5] = "";
  const kupdate_status failed[] = {
      dll.setLocale(nullptr, nullptr), dll.downloadAndInstallSilentUpdate(nullptr),
      dll.isUpdateAvailable(nullptr, nullptr, 0, 0, 0, 0, false, nullptr, nullptr, nullptr),
      dll.isUpdateAvailable("null", nullptr, 0, 0, 0, 0, false, nullptr, nullptr, nullptr),
      dll.isUpdateAvailable("null", "p", 0, 0, 0, 0, true, "", nullptr, nullptr)};
  for (const kupdate_status& status : failed) EXPECT_EQ(status, KUPDATE_E_FAIL) << &status - failed;
  const kupdate_status done[] = {
      dll.onApplicationStartup("null", nullptr, nullptr, nullptr, 0, 0, 0, 0, 0, true),
      dll.setExecutorPath(nullptr),
      dll.isUpgradeAvailable("null", 0, nullptr),
      dll.getLocale("null", buffer, nullptr),
      dll.getLocale("null", nullptr, &size),
      dll.getUniqueParam("null", nullptr, nullptr, nullptr),
      dll.setUniqueParam("null", nullptr, nullptr),
      dll.setOptionalParam("null", nullptr),
      dll.setLocale("null", nullptr),
      dll.setApplicationState("null", nullptr),
      dll.usageReport("null", nullptr)};
  for (const kupdate_status& status : done) EXPECT_EQ(status, KUPDATE_S_OK) << &status - done;
  EXPECT_TRUE(log.Has("E:DLLSetLocale: AppId is empty."));
  EXPECT_TRUE(log.Has("D:DLLSetExecutorPath: NULL!!!"));
}

TEST(Exports, FailuresOnManyThreadsStayInside) {
  const DllLog log;
  std::vector<std::thread> hosts;
  for (char host = '0'; host < '8'; ++host) {
    hosts.emplace_back([id = std::string("thread") + host] {
      for (int call = 0; call < 25; ++call) Dll().setApplicationState(id.c_str(), "no such state");
    });
  }
  for (std::thread& host : hosts) host.join();
  EXPECT_EQ(std::ranges::count(log.Lines(),
                               "D:TUpdaterController::SetApplicationState: Unhandled exception."),
            8 * 25);
}

TEST(Exports, IdsChooseTheRecord) {
  const auto set = [](const std::string& id, const std::string& locale) {
    return Dll().setLocale(id.c_str(), locale.c_str());
  };
  EXPECT_EQ(set("", "x"), KUPDATE_S_OK);
  EXPECT_EQ(Host{""}.Record("Locale"), "x");
  EXPECT_EQ(set(std::string(300, 'x'), "x"), KUPDATE_S_OK);
  EXPECT_EQ(set("a\\b", "x"), KUPDATE_E_FAIL) << "no name of a mutex";
  EXPECT_EQ(set("a/../../b", "x"), KUPDATE_S_OK);
  EXPECT_FALSE(fs::exists(DataFolder().parent_path() / "b"));
  // A locale is mirrored.
  for (const std::string id : {"zonie64", "zonie", "zonie32"}) {
    set(id, id);
    EXPECT_EQ(TextFrom(Dll().getLocale, "vigilorian"), id == "zonie32" ? "zonie" : id);
  }
}

TEST(Exports, TheRecordIsWrittenAndMarked) {
  const Host host{"record"};
  const auto start = [](bool release) {
    Dll().onApplicationStartup("record", "win64", "", "r?a=1&b=2", 7200, 1, -1, 65536 + 3, 4,
                               release);
  };
  Dll().setExecutorPath(L"C:\\none.exe");
  Dll().setLocale("record", "x");
  Dll().setExecutorPath(L"C:\\Ж & b\\exec.exe");
  start(true);
  EXPECT_EQ(
      Without("\\s*\n\\s*|</\\w+>|[0-9]{10,}", host.File("appinfo.xml")),
      "<?xml  version=\"1.0\" encoding=\"utf-8\"?><appinfo><UpdaterPath>C:\\Ж &amp; b\\exec.exe"
      "<Locale>x<Remove>0<Platform>win64<VersionUrl/><VerMajor>1<VerMinor>65535<VerSubver>3"
      "<VerBuild>4<ReportUrl>r?a=1&amp;b=2<PingStatPeriod>7200<VersionStatus>1"
      "<WantUnstableToo>0<LastPingTime><NextPingTime><LastCheckTime>");
  Dll().onApplicationUninstall("record");
  EXPECT_EQ(host.Record("Remove"), "1");
  start(false);
  EXPECT_EQ(host.Record("Remove") + host.Record("VersionStatus"), "00");
  Dll().setLocale("path2", "x");
  Dll().setExecutorPath(nullptr);
  EXPECT_EQ(Host{"path2"}.Record("UpdaterPath"), "C:\\Ж &amp; b\\exec.exe");
}

TEST(Log, FirstCallNamesItAndTheBannerFollows) {
  EXPECT_EQ(RunChild(L"null later"), 0u);
  const std::string text = Without("\r|\\([0-9]+\\)", LogFile(""));
  const std::string time = "\n..:..:.. ", banner = time + "I:JustUtil::OutBanner: ";
  const std::regex shape("Log started at: [0-9]{2}\\.[0-9]{2}\\.[0-9]{4}(" + time + "E:.*)*" +
                         time + "D:DLLSetLocale: in" + banner + "\\*{58}" + banner +
                         "Version:  1\\.0\\.0\\.0" + banner + "Path:  .*dllkupdate\\.dll" + banner +
                         "OS:  Microsoft Windows .*(" + time + "[IE]:.*)*" + time +
                         "E:DLLSetLocale: AppId is empty\\." + time + "D:DLLSetLocale: in\n");
  EXPECT_TRUE(std::regex_search(text, shape)) << text;
  EXPECT_EQ(text.find("Banner", text.rfind("DLLSetLocale: in")), text.npos) << "once";
}

TEST(Log, ALargeOneIsMovedAsideAndParanoidLinesComeOnRequest) {
  WriteBytes(LogFile("large"), std::string(0x100000, 'x'));
  for (const bool isParanoid : {false, true}) {
    if (isParanoid) {
      ::RegSetKeyValueW(HKEY_CURRENT_USER, L"Software\\Krelix", L"Log", REG_SZ, L"paranoiac", 20);
    }
    EXPECT_EQ(RunChild(L"large"), 0u);
    EXPECT_EQ(fs::exists(LogFile("large").wstring() + L".bak"), isParanoid) << "1 MiB is kept";
    EXPECT_EQ(ReadBytes(LogFile("large")).find(" P:") != std::string::npos, isParanoid);
  }
  ::RegDeleteKeyValueW(HKEY_CURRENT_USER, L"Software\\Krelix", L"Log");
}

TEST(Statistics, TravelFromTheCallsToTheWebServer) {
  const TransferService service;
  const std::string program = R"("parameters":"C:\\none\\exec.exe  --stat-callback )";
  const auto sent = [&](const std::string& query) {
    const LocalTime now = LocalNow().value();
    return service.Count("&ver=1.2.3.4&os=win64&" + query +
                         "&fd=" + DateText(now.day, now.month, now.year) + "\"");
  };
  Dll().setExecutorPath(L"C:\\none\\exec.exe");
  Dll().setOptionalParam("travel", "tool=1");
  Dll().setUniqueParam("travel", "name", L"last #1");
  const std::string url = HttpUrl("report");
  Dll().onApplicationStartup("travel", "win64", "", url.c_str(), 0, 1, 2, 3, 4, true);
  // A new application is an install; the day's use behind it says nothing more.
  EXPECT_EQ(sent("stat=install&tool=1&name=last #1"), 1);
  EXPECT_EQ(service.Count(program + "0 --appid travel --job {"), 1);
  EXPECT_EQ(service.Count("\"seconds\":1209600"), 1);
  EXPECT_TRUE(fs::exists(DataFolder() / "travel" / "in_work_0.xml"));
  EXPECT_EQ(TextFrom(Dll().getApplicationState, "travel"), "dayuse");
  EXPECT_EQ(Dll().usageReport("travel", "x=%20&y"), KUPDATE_S_OK);
  EXPECT_EQ(service.Count("\"call\":\"CreateJob\""), 1) << "the next ping is due in a day";
  EXPECT_EQ(Host{"travel"}.Record("ShouldPing"), "1");
  Dll().forceUpdateCheck("travel", false);
  EXPECT_EQ(sent("stat=dayuse&x=%20&y"), 1);
  EXPECT_EQ(service.Count(program + "1 --appid travel --job {"), 1);
  EXPECT_EQ(service.Count("\"seconds\":86400"), 1);
  // An address that is too long keeps no program from updating.
  Host{"long", HttpUrl("long.rss"), HttpUrl("r?" + std::string(1100, 'a'))}.Start();
  EXPECT_EQ(service.Count("\"call\":\"CreateJob\""), 3);
}

TEST(Statistics, GettersAndWrongWords) {
  const auto state = [](const char* word) {
    EXPECT_TRUE(!word || Dll().setApplicationState("words", word) == KUPDATE_S_OK);
    return TextFrom(Dll().getApplicationState, "words");
  };
  EXPECT_EQ(state(nullptr), "install") << "the first call made the application known";
  EXPECT_EQ(state("Uninstall"), "install");
  EXPECT_EQ(state("uninstall"), "uninstall");
  Dll().setOptionalParam("words", "a=\"<&>'");
  EXPECT_EQ(TextFrom(Dll().getOptionalParam, "words"), "a=\"<&>'");
  std::int32_t chars = 4;
  const auto unique = [&](const char* name) -> std::wstring {
    wchar_t value[8] = L"?";
    EXPECT_EQ(Dll().getUniqueParam("words", name, value, &chars), KUPDATE_S_OK);
    return value;
  };
  Dll().setUniqueParam("words", "key", L"Ж=\xD83D\xDE00 7");
  EXPECT_EQ(unique("key"), L"");
  EXPECT_EQ(chars, 7);
  EXPECT_EQ(unique("key"), L"Ж=\xD83D\xDE00 7");
  EXPECT_EQ(unique("none"), L"");
  EXPECT_EQ(Dll().getUniqUserId(), ReadBytes(RoamingFolder().parent_path() / "ui"));
  EXPECT_EQ(std::string(Dll().getUniqUserId()).size(), 38u);
}
