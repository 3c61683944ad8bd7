// The exported functions over the stores, the log and the locks.
#include <gtest/gtest.h>

#include "util/win/windows_lean.h"

#include <tlhelp32.h>

#include <cstring>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "testing/data_home.h"
#include "testing/dll_client.h"

extern "C" int CountFunctionsFromC(void* module);
extern "C" int LocaleRoundTripFromC(void* module);

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

std::string LocaleOf(const std::string& appId) {
  char buffer[64] = "?";
  std::int32_t size = sizeof buffer;
  EXPECT_EQ(Dll().getLocale(appId.c_str(), buffer, &size), KUPDATE_S_OK);
  return buffer;
}

int ThreadsOfThisProcess() {
  const HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 entry = {};
  entry.dwSize = sizeof entry;
  int count = 0;
  for (BOOL more = ::Thread32First(snapshot, &entry); more;
       more = ::Thread32Next(snapshot, &entry)) {
    count += entry.th32OwnerProcessID == ::GetCurrentProcessId();
  }
  ::CloseHandle(snapshot);
  return count;
}

std::string LogOf(const char* fileName) {
  std::string text = ReadBytes(RoamingFolder() / fileName);
  return std::regex_replace(text, std::regex("\r"), "");
}

}  // namespace

TEST(Exports, CanBeUsedFromC) {
  EXPECT_EQ(CountFunctionsFromC(DllModule()), 17);
  EXPECT_TRUE(LocaleRoundTripFromC(DllModule()));
}

TEST(Exports, NullPointersEndInAStatus) {
  const DllLog log;
  std::int32_t size = 5;
  char buffer[5] = "";
  const struct {
    const char* label;
    kupdate_status got;
    kupdate_status want;
  } cases[] = {
      {"force", Dll().forceUpdateCheck(nullptr, true), KUPDATE_E_FAIL},
      {"state", Dll().getApplicationState(nullptr, nullptr, nullptr), KUPDATE_E_FAIL},
      {"optional", Dll().getOptionalParam(nullptr, nullptr, nullptr), KUPDATE_E_FAIL},
      {"upgrade", Dll().isUpgradeAvailable(nullptr, 0, nullptr), KUPDATE_E_FAIL},
      {"startup",
       Dll().onApplicationStartup(nullptr, nullptr, nullptr, nullptr, 0, 0, 0, 0, 0, false),
       KUPDATE_E_FAIL},
      {"startup texts",
       Dll().onApplicationStartup("null", nullptr, nullptr, nullptr, 0, 0, 0, 0, 0, true),
       KUPDATE_S_OK},
      {"uninstall", Dll().onApplicationUninstall(nullptr), KUPDATE_E_FAIL},
      {"set state", Dll().setApplicationState(nullptr, nullptr), KUPDATE_E_FAIL},
      {"executor", Dll().setExecutorPath(nullptr), KUPDATE_S_OK},
      {"set optional", Dll().setOptionalParam(nullptr, nullptr), KUPDATE_E_FAIL},
      {"usage", Dll().usageReport(nullptr, nullptr), KUPDATE_E_FAIL},
      {"install", Dll().downloadAndInstallSilentUpdate(nullptr), KUPDATE_E_FAIL},
      {"get locale", Dll().getLocale(nullptr, nullptr, nullptr), KUPDATE_E_FAIL},
      {"no size", Dll().getLocale("null", buffer, nullptr), KUPDATE_S_OK},
      {"no buffer", Dll().getLocale("null", nullptr, &size), KUPDATE_S_OK},
      {"unique", Dll().getUniqueParam(nullptr, nullptr, nullptr, nullptr), KUPDATE_E_FAIL},
      {"update",
       Dll().isUpdateAvailable(nullptr, nullptr, 0, 0, 0, 0, false, nullptr, nullptr, nullptr),
       KUPDATE_E_FAIL},
      {"operation", Dll().isUpdateAvailable("null", "p", 0, 0, 0, 0, false, "", nullptr, nullptr),
       KUPDATE_E_FAIL},
      {"set locale", Dll().setLocale(nullptr, nullptr), KUPDATE_E_FAIL},
      {"null locale", Dll().setLocale("null", nullptr), KUPDATE_S_OK},
      {"set unique", Dll().setUniqueParam(nullptr, nullptr, nullptr), KUPDATE_E_FAIL},
  };
  for (const auto& c : cases) EXPECT_EQ(c.got, c.want) << c.label;
  EXPECT_NE(Dll().getUniqUserId(), nullptr);
  EXPECT_TRUE(log.Has("E:DLLSetLocale: AppId is empty."));
  EXPECT_TRUE(log.Has("D:DLLSetExecutorPath: NULL!!!"));
  EXPECT_TRUE(log.Has("D:TUpdaterController::IsUpdateAvailable: Unhandled exception."));
}

TEST(Exports, OddIdsHarmNothing) {
  const struct {
    std::string id;
    kupdate_status want;
    const char* line;
  } cases[] = {
      {"", KUPDATE_S_OK, "I:TUpdaterController::SetLocale: out"},
      {std::string(300, 'x'), KUPDATE_S_OK, nullptr},
      {"a\\b", KUPDATE_E_FAIL, "E:Mutex::Mutex: Can't create."},
      {"..", KUPDATE_S_OK, "E:FolderBelow: Sub-path refused:  Krelix\\Updater\\.."},
      {"a/../../b", KUPDATE_S_OK, "E:FolderBelow: Sub-path refused:  Krelix\\Updater\\a/../../b"},
  };
  for (const auto& c : cases) {
    const DllLog log;
    EXPECT_EQ(Dll().setLocale(c.id.c_str(), "x"), c.want) << c.id;
    if (c.line) {
      EXPECT_TRUE(log.Has(c.line)) << c.line;
    }
  }
  EXPECT_EQ(ValueOf(DataFolder() / "appinfo.xml", "Locale"), "x") << "the empty id's record";
  EXPECT_FALSE(fs::exists(DataFolder().parent_path() / "appinfo.xml"));
  EXPECT_FALSE(fs::exists("appinfo.xml"));
}

TEST(Exports, LocaleIsCopiedOutAndMirrored) {
  Dll().setLocale("locale", "ru-RU");
  char buffer[] = "????????";
  std::int32_t size = 5;
  EXPECT_EQ(Dll().getLocale("locale", buffer, &size), KUPDATE_S_OK);
  EXPECT_EQ(size, 6);
  EXPECT_EQ(buffer[0], 0);
  EXPECT_EQ(Dll().getLocale("locale", buffer, &size), KUPDATE_S_OK);
  EXPECT_EQ(size, 6);
  EXPECT_STREQ(buffer, "ru-RU");
  Dll().setLocale("zonie64", "de");
  EXPECT_EQ(LocaleOf("vigilorian"), "de");
  Dll().setLocale("zonie", "fr");
  EXPECT_EQ(LocaleOf("vigilorian"), "fr");
  Dll().setLocale("zonie32", "es");
  EXPECT_EQ(LocaleOf("vigilorian"), "fr");
}

TEST(Exports, StartupWritesTheRecordAndUninstallMarksIt) {
  const fs::path file = DataFolder() / "record" / "appinfo.xml";
  const auto start = [](bool release) {
    return Dll().onApplicationStartup("record", "win64", "", "r?a=1&b=2", 7200, 1, -1, 65536 + 3, 4,
                                      release);
  };
  EXPECT_EQ(start(true), KUPDATE_S_OK);
  const std::string text =
      std::regex_replace(ReadBytes(file), std::regex("\r|[0-9]{10,}|  <UpdaterPath>[^\n]*\n"), "");
  EXPECT_EQ(text,
            "<?xml  version=\"1.0\" encoding=\"utf-8\"?>\n<appinfo>\n  <Remove>0</Remove>\n"
            "  <Platform>win64</Platform>\n  <VersionUrl/>\n  <VerMajor>1</VerMajor>\n"
            "  <VerMinor>65535</VerMinor>\n  <VerSubver>3</VerSubver>\n  <VerBuild>4</VerBuild>\n"
            "  <ReportUrl>r?a=1&amp;b=2</ReportUrl>\n  <PingStatPeriod>7200</PingStatPeriod>\n"
            "  <VersionStatus>1</VersionStatus>\n  <WantUnstableToo>0</WantUnstableToo>\n"
            "  <LastPingTime></LastPingTime>\n  <NextPingTime></NextPingTime>\n"
            "  <LastCheckTime></LastCheckTime>\n</appinfo>\n");
  EXPECT_EQ(Dll().onApplicationUninstall("record"), KUPDATE_S_OK);
  EXPECT_EQ(ValueOf(file, "Remove"), "1");
  EXPECT_EQ(start(false), KUPDATE_S_OK);
  EXPECT_EQ(ValueOf(file, "Remove"), "0");
  EXPECT_EQ(ValueOf(file, "VersionStatus"), "0");
}

TEST(Exports, ExecutorPathIsWrittenIntoTheRecord) {
  Dll().setLocale("path", "x");
  Dll().setExecutorPath(L"C:\\Ж & b\\exec.exe");
  EXPECT_EQ(ValueOf(DataFolder() / "path" / "appinfo.xml", "UpdaterPath"),
            "C:\\Ж &amp; b\\exec.exe");
  Dll().setLocale("path2", "x");
  EXPECT_EQ(ValueOf(DataFolder() / "path2" / "appinfo.xml", "UpdaterPath"),
            "C:\\Ж &amp; b\\exec.exe");
  Dll().setExecutorPath(nullptr);
}

TEST(Exports, StoreCallsStartNoThread) {
  const int before = ThreadsOfThisProcess();
  Dll().setLocale("threads", "x");
  Dll().onApplicationUninstall("threads");
  EXPECT_EQ(ThreadsOfThisProcess(), before);
}

TEST(Exports, AReadOnlyRecordIsKept) {
  Dll().setLocale("readonly", "kept");
  const fs::path file = DataFolder() / "readonly" / "appinfo.xml";
  fs::remove(file);
  fs::create_directories(file);  // cannot be opened as a file, whoever the user is
  const DllLog log;
  EXPECT_EQ(Dll().setLocale("readonly", "new"), KUPDATE_S_OK);
  EXPECT_TRUE(log.Has("E:TAppInfo::Write: Read error, postpone file write."));
  EXPECT_TRUE(fs::is_directory(file));
}

TEST(Log, FirstCallNamesItAndTheBannerFollows) {
  EXPECT_EQ(EndOf(StartChild(L"null-first")), 0u);
  const std::string text = LogOf("kupdate-exec-.log");
  const std::regex shape(
      "Log started at: [0-9]{2}\\.[0-9]{2}\\.[0-9]{4}\n"
      "(..:..:.. E:[^\n]*\n)*"
      "..:..:.. D:DLLSetLocale\\([0-9]+\\): in\n"
      "..:..:.. I:JustUtil::OutBanner\\([0-9]+\\): \\*{58}\n"
      "..:..:.. I:JustUtil::OutBanner\\([0-9]+\\): Version:  1\\.0\\.0\\.0\n"
      "..:..:.. I:JustUtil::OutBanner\\([0-9]+\\): Path:  [^\n]*dllkupdate\\.dll\n"
      "..:..:.. I:JustUtil::OutBanner\\([0-9]+\\): OS:  Microsoft Windows [^\n]*\n"
      "(..:..:.. [IE]:[^\n]*\n)*"
      "..:..:.. E:DLLSetLocale\\([0-9]+\\): AppId is empty\\.\n(.|\n)*");
  EXPECT_TRUE(std::regex_match(text.substr(0, 2500), shape)) << text;
  EXPECT_FALSE(fs::exists(RoamingFolder() / "kupdate-exec-later.log"));
}

TEST(Log, ALargeOneIsMovedAsideAndParanoidLinesComeOnRequest) {
  const fs::path file = RoamingFolder() / "kupdate-exec-large.log";
  const fs::path backup = RoamingFolder() / "kupdate-exec-large.log.bak";
  WriteBytes(file, std::string(0x100000, 'x'));
  EXPECT_EQ(EndOf(StartChild(L"touch large")), 0u);
  EXPECT_FALSE(fs::exists(backup)) << "exactly 1 MiB is kept";
  EXPECT_EQ(LogOf("kupdate-exec-large.log").find("bytes wrote."), std::string::npos);
  HKEY key = nullptr;
  ::RegCreateKeyW(HKEY_CURRENT_USER, L"Software\\Krelix", &key);
  ::RegSetValueExW(key, L"Log", 0, REG_SZ, reinterpret_cast<const BYTE*>(L"paranoiac"), 20);
  EXPECT_EQ(EndOf(StartChild(L"touch large")), 0u);
  ::RegDeleteValueW(key, L"Log");
  ::RegCloseKey(key);
  EXPECT_TRUE(fs::exists(backup));
  EXPECT_NE(LogOf("kupdate-exec-large.log").find(" P:FileSystem::WriteFile("), std::string::npos);
}

TEST(Processes, TwoWriteOneApplication) {
  void* const first = StartChild(L"hammer a");
  void* const second = StartChild(L"hammer b");
  EXPECT_EQ(EndOf(first), 0u);
  EXPECT_EQ(EndOf(second), 0u);
  const fs::path file = DataFolder() / "shared" / "appinfo.xml";
  EXPECT_TRUE(std::regex_match(LocaleOf("shared"), std::regex("[ab]49")));
  EXPECT_EQ(ValueOf(file, "VerBuild"), "49");
  EXPECT_FALSE(fs::exists(file.wstring() + L".bak")) << "no process ever saw a torn file";
}

TEST(Processes, OneThatDiedWithItsLocksHoldsUpNobody) {
  Dll().setLocale("abandoned", "before");
  EXPECT_EQ(EndOf(StartChild(L"die-with-locks")), 0u);
  EXPECT_EQ(Dll().setLocale("abandoned", "after"), KUPDATE_S_OK);
  EXPECT_EQ(LocaleOf("abandoned"), "after");
}
