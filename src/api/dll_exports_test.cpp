// The exported functions over the stores, the log and the locks.
#include <gtest/gtest.h>

#include "util/win/windows_lean.h"

#include <algorithm>
#include <regex>
#include <thread>
#include <vector>

#include "testing/data_home.h"
#include "testing/dll_client.h"

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

std::string LogOf(const char* appId) {
  const std::string name = std::string("kupdate-exec-") + appId + ".log";
  return std::regex_replace(ReadBytes(RoamingFolder() / name), std::regex("\r"), "");
}

}  // namespace

TEST(Exports, NullPointersEndInAStatus) {
  const Exports& dll = Dll();
  const DllLog log;
  const char* const no = nullptr;
  std::int32_t size = 5;
  char buffer[5] = "";
  EXPECT_EQ(dll.setLocale(no, no), KUPDATE_E_FAIL);
  EXPECT_EQ(dll.downloadAndInstallSilentUpdate(nullptr), KUPDATE_E_FAIL);
  for (const char* const id : {no, "null"}) {
    EXPECT_EQ(dll.isUpdateAvailable(id, no, 0, 0, 0, 0, false, no, no, nullptr), KUPDATE_E_FAIL);
  }
  EXPECT_EQ(dll.isUpdateAvailable("null", "p", 0, 0, 0, 0, true, "", no, nullptr), KUPDATE_E_FAIL);
  const kupdate_status done[] = {dll.onApplicationStartup("null", no, no, no, 0, 0, 0, 0, 0, true),
                                 dll.setExecutorPath(nullptr),
                                 dll.isUpgradeAvailable("null", 0, nullptr),
                                 dll.getLocale("null", buffer, nullptr),
                                 dll.getLocale("null", nullptr, &size),
                                 dll.getUniqueParam("null", no, nullptr, nullptr),
                                 dll.setUniqueParam("null", no, nullptr),
                                 dll.setOptionalParam("null", no),
                                 dll.setLocale("null", no),
                                 dll.setApplicationState("null", no),
                                 dll.usageReport("null", no)};
  for (const kupdate_status& status : done) EXPECT_EQ(status, KUPDATE_S_OK) << &status - done;
  EXPECT_TRUE(log.Has("E:DLLSetLocale: AppId is empty."));
  EXPECT_TRUE(log.Has("D:DLLSetExecutorPath: NULL!!!"));
}

TEST(Exports, FailuresOnManyThreadsStayInside) {
  const DllLog log;
  std::vector<std::thread> hosts;
  for (int host = 0; host < 8; ++host) {
    hosts.emplace_back([host] {
      const std::string id = "thread" + std::to_string(host);
      for (int call = 0; call < 25; ++call) Dll().setApplicationState(id.c_str(), "no such state");
    });
  }
  for (std::thread& host : hosts) host.join();
  EXPECT_EQ(std::ranges::count(log.Lines(),
                               "D:TUpdaterController::SetApplicationState: Unhandled exception."),
            8 * 25);
}

TEST(Exports, OddIdsHarmNothing) {
  EXPECT_EQ(Dll().setLocale("", "x"), KUPDATE_S_OK);
  EXPECT_EQ(ValueOf(DataFolder() / "appinfo.xml", "Locale"), "x") << "the empty id's record";
  EXPECT_EQ(Dll().setLocale(std::string(300, 'x').c_str(), "x"), KUPDATE_S_OK);
  EXPECT_EQ(Dll().setLocale("a\\b", "x"), KUPDATE_E_FAIL) << "no name of a mutex";
  EXPECT_EQ(Dll().setLocale("a/../../b", "x"), KUPDATE_S_OK);
  EXPECT_FALSE(fs::exists(DataFolder().parent_path() / "b"));
}

TEST(Exports, LocaleIsMirrored) {
  const struct {
    const char* id;
    const char* locale;
    const char* want;
  } cases[] = {{"zonie64", "de", "de"}, {"zonie", "fr", "fr"}, {"zonie32", "es", "fr"}};
  for (const auto& c : cases) {
    Dll().setLocale(c.id, c.locale);
    EXPECT_EQ(TextFrom(Dll().getLocale, "vigilorian"), c.want) << c.id;
  }
}

TEST(Exports, TheRecordIsWrittenAndMarked) {
  const fs::path file = DataFolder() / "record" / "appinfo.xml";
  const auto start = [](bool release) {
    Dll().onApplicationStartup("record", "win64", "", "r?a=1&b=2", 7200, 1, -1, 65536 + 3, 4,
                               release);
  };
  Dll().setLocale("record", "x");
  Dll().setExecutorPath(L"C:\\Ж & b\\exec.exe");
  start(true);
  EXPECT_EQ(
      std::regex_replace(ReadBytes(file), std::regex("\\s*\n\\s*|</\\w+>|[0-9]{10,}"), ""),
      "<?xml  version=\"1.0\" encoding=\"utf-8\"?><appinfo><UpdaterPath>C:\\Ж &amp; b\\exec.exe"
      "<Locale>x<Remove>0<Platform>win64<VersionUrl/><VerMajor>1<VerMinor>65535<VerSubver>3"
      "<VerBuild>4<ReportUrl>r?a=1&amp;b=2<PingStatPeriod>7200<VersionStatus>1"
      "<WantUnstableToo>0<LastPingTime><NextPingTime><LastCheckTime>");
  Dll().onApplicationUninstall("record");
  EXPECT_EQ(ValueOf(file, "Remove"), "1");
  start(false);
  EXPECT_EQ(ValueOf(file, "Remove") + ValueOf(file, "VersionStatus"), "00");
  Dll().setLocale("path2", "x");
  Dll().setExecutorPath(nullptr);
  EXPECT_EQ(ValueOf(DataFolder() / "path2" / "appinfo.xml", "UpdaterPath"),
            "C:\\Ж &amp; b\\exec.exe");
}

TEST(Log, FirstCallNamesItAndTheBannerFollows) {
  EXPECT_EQ(EndOf(StartChild(L"null later")), 0u);
  const std::string text = std::regex_replace(LogOf(""), std::regex("\\([0-9]+\\)"), "");
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
  const fs::path file = RoamingFolder() / "kupdate-exec-large.log";
  const std::string paranoid = " P:FileSystem::WriteFile(";
  WriteBytes(file, std::string(0x100000, 'x'));
  EXPECT_EQ(EndOf(StartChild(L"large")), 0u);
  EXPECT_FALSE(fs::exists(file.wstring() + L".bak")) << "exactly 1 MiB is kept";
  EXPECT_EQ(LogOf("large").find(paranoid), std::string::npos);
  ::RegSetKeyValueW(HKEY_CURRENT_USER, L"Software\\Krelix", L"Log", REG_SZ, L"paranoiac", 20);
  EXPECT_EQ(EndOf(StartChild(L"large")), 0u);
  ::RegDeleteKeyValueW(HKEY_CURRENT_USER, L"Software\\Krelix", L"Log");
  EXPECT_TRUE(fs::exists(file.wstring() + L".bak"));
  EXPECT_NE(LogOf("large").find(paranoid), std::string::npos);
}
