// The exported functions: the stores, the log, the locks and the statistics; then update checks and
// silent installs, through the transfer service and over HTTP.
#include <gtest/gtest.h>

#include <process.h>

#include <chrono>
#include <optional>
#include <thread>

#include "layout/names.h"
#include "testing/dll_client.h"
#include "util/handle.h"
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
// The exit code of a program that is run by this command line.
std::intptr_t RunProgram(const std::wstring& program, const std::wstring& commandLine) {
  return ::_wspawnl(_P_WAIT, program.c_str(), commandLine.c_str(), nullptr);
}
std::intptr_t RunChild(const wchar_t* ids) {
  return RunProgram(ModulePath(), std::wstring(L"child --child ") + ids);
}
// A feed with one release.
std::string FeedWith(const std::string& version) {
  return "<rss><channel><item><version:version>" + version +
         "</version:version><version:status>release</version:status><guid>http://d/f</guid>"
         "</item></channel></rss>";
}

// A host that drives one application's check.
struct Driver {
  std::string appId = "check";
  std::string url = HttpUrl("none");
  std::int32_t status = -1;

  kupdate_status Step(const char* operation) {
    status = -1;
    return Dll().isUpdateAvailable(appId.c_str(), "win64", 1, 0, 0, 0, true, url.c_str(), operation,
                                   &status);
  }
  // From the start until there is an answer.
  kupdate_status Check(const std::string& feed) {
    url = Publish("checked.rss", feed);
    kupdate_status result = Step("start");
    Eventually([&] {
      result = Step("check");
      return result != KUPDATE_S_OK || status != KUPDATE_IN_WORK;
    });
    return result;
  }
};

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
  EXPECT_EQ(App{""}.Record("Locale"), "x");
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
  const App app{"record"};
  const auto start = [](bool release) {
    Dll().onApplicationStartup("record", "win64", "", "r?a=1&b=2", 7200, 1, -1, 65536 + 3, 4,
                               release);
  };
  Dll().setExecutorPath(L"C:\\none.exe");
  Dll().setLocale("record", "x");
  Dll().setExecutorPath(L"C:\\Ж & b\\exec.exe");
  start(true);
  EXPECT_EQ(
      Without("\\s*\n\\s*|</\\w+>|[0-9]{10,}", app.File("appinfo.xml")),
      "<?xml  version=\"1.0\" encoding=\"utf-8\"?><appinfo><UpdaterPath>C:\\Ж &amp; b\\exec.exe"
      "<Locale>x<Remove>0<Platform>win64<VersionUrl/><VerMajor>1<VerMinor>65535<VerSubver>3"
      "<VerBuild>4<ReportUrl>r?a=1&amp;b=2<PingStatPeriod>7200<VersionStatus>1"
      "<WantUnstableToo>0<LastPingTime><NextPingTime><LastCheckTime>");
  EXPECT_EQ(Dll().usageReport("record", "x"), KUPDATE_S_OK);
  EXPECT_EQ(app.Record("ShouldPing"), "1");
  Dll().onApplicationUninstall("record");
  EXPECT_EQ(app.Record("Remove"), "1");
  start(false);
  EXPECT_EQ(app.Record("Remove") + app.Record("VersionStatus"), "00");
  Dll().setLocale("path2", "x");
  Dll().setExecutorPath(nullptr);
  EXPECT_EQ(App{"path2"}.Record("UpdaterPath"), "C:\\Ж &amp; b\\exec.exe");
}

TEST(Log, FirstCallNamesItAndTheBannerFollows) {
  EXPECT_EQ(RunChild(L"null later"), 0);
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
    EXPECT_EQ(RunChild(L"large"), 0);
    EXPECT_EQ(fs::exists(LogFile("large").wstring() + L".bak"), isParanoid) << "1 MiB is kept";
    EXPECT_EQ(ReadBytes(LogFile("large")).find(" P:") != std::string::npos, isParanoid);
  }
  ::RegDeleteKeyValueW(HKEY_CURRENT_USER, L"Software\\Krelix", L"Log");
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
  const std::string id = Dll().getUniqUserId();
  EXPECT_EQ(id.size(), 38u);
  EXPECT_EQ(ReadBytes(RoamingFolder().parent_path() / "ui"), id);
}

TEST(Check, BelongsToOneApplication) {
  EXPECT_EQ(Driver{"check"}.Step("start"), KUPDATE_S_OK);
  EXPECT_EQ(Driver{"other"}.Step("check"), KUPDATE_E_FAIL);
  EXPECT_EQ(Driver{"check"}.Step("stop"), KUPDATE_S_OK);
}

// What a host with an update gets for its executor, which does what `script` says while another
// process does what `others` says: the exit code, or nothing for a failure.
std::optional<std::int32_t> Install(const std::wstring& executor, const wchar_t* script,
                                    const wchar_t* others = L"") {
  Driver host{"install"};
  EXPECT_EQ(host.Check(FeedWith("2.0.0.0")), KUPDATE_S_OK);
  EXPECT_EQ(host.status, KUPDATE_FOUND);
  ::_wputenv_s(L"KUPDATE_TEST_EXECUTOR", others);
  ::_wspawnl(_P_NOWAIT, ModulePath().c_str(), L"other --appid install --silent-update-check",
             nullptr);
  ::_wputenv_s(L"KUPDATE_TEST_EXECUTOR", script);
  Dll().setExecutorPath(executor.c_str());
  std::int32_t code = 77;
  const kupdate_status result = Dll().downloadAndInstallSilentUpdate(&code);
  Dll().setExecutorPath(nullptr);
  if (result == KUPDATE_S_OK) return code;
  EXPECT_EQ(code, 77) << "a failure leaves it";
  return {};
}

TEST(SilentInstall, NeedsAnUpdateAndAnExecutor) {
  const DllLog log;
  EXPECT_EQ(Driver{"install"}.Check(FeedWith("1.0.0.0")), KUPDATE_S_OK);
  EXPECT_EQ(Dll().downloadAndInstallSilentUpdate(nullptr), KUPDATE_E_FAIL);
  EXPECT_EQ(Install(L"C:\\none.exe", L""), std::nullopt);
  EXPECT_EQ(Install(ModulePath(), L"answer 5 signal"), 5);
  EXPECT_TRUE(
      log.Has("Run:  " + NarrowUtf8(ModulePath()) + " --appid install --silent-update-check"));
}

// Who signals and who writes, in which order.
TEST(SilentInstall, GivesTheExecutorsCodeInEveryOrderOfEvents) {
  const struct {
    const char* label;
    const wchar_t *script, *others;
    std::optional<std::int32_t> want;
  } cases[] = {
      {"signal, then the end", L"answer -7 store -7 signal wait 300 exit 0", L"", -7},
      {"the end at once", L"answer 5 store 5 signal exit 0", L"", 5},
      {"no signal", L"answer 5 exit 0", L"", 5},
      {"no code, then the end", L"signal wait 300 exit 0", L"", 0},
      {"no code, the end at once", L"signal exit 0", L"", 0},
      {"no code, a failed end", L"signal wait 100 exit 1", L"", {}},
      {"the end comes first", L"exit 0", L"wait 700 store 6 signal", 6},
      {"an old code", L"store 4 wait 300 answer 5 exit 0", L"", 5},
      {"killed, a code of earlier", L"store 4 wait 500 exit 9", L"wait 250 signal", {}},
      {"killed, a check beside it", L"wait 500 exit 9", L"wait 250 signal", {}},
      {"killed, a forged code", L"wait 500 exit 9", L"wait 250 store 0 signal", {}},
      {"a forged code", L"wait 700 answer -1004 store -1004 signal exit 0",
       L"wait 250 store 0 signal", -1004},
      {"lingers", L"answer 5 store 5 signal wait 14000 exit 0", L"", 5},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    fs::remove(DataFolder() / "install" / "updinfo.xml");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Install(ModulePath(), c.script, c.others), c.want);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(13));
  }
}

// Of a check whose job is gone, and of an installation without an update.
TEST(Executor, SignalsItsAnswer) {
  const App app{"signals"};
  const std::wstring executor = Setting(L"KUPDATE_EXEC");
  app.Start();
  WriteBytes(app.File("updinfo.xml"), "<appinfo><DistroExitCode>0</DistroExitCode></appinfo>");
  const UniqueHandle result = JustUtil::CreateEventW(ResultEventName(app.appId));
  for (const std::wstring command :
       {L"--update-check --file f --job {00000000-0000-0000-0000-000000000001}",
        L"--silent-update-check"}) {
    EXPECT_EQ(RunProgram(executor, executor + L" --appid signals " + command), 0);
    EXPECT_EQ(JustUtil::WaitFor(result, 0), kWaitSignalled) << NarrowUtf8(command);
  }
  EXPECT_EQ(ValueOf(app.File("updinfo.xml"), "DistroExitCode"), "-1001");
}

// Takes the 30 seconds that a late answer is given.
TEST(DeadExecutor, DoesNotHangItsHost) {
  EXPECT_EQ(Install(ModulePath(), L"exit 0"), std::nullopt);
}
