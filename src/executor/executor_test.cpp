// kupdate-exec.exe as the transfer service and hosts meet it: what it does with each outcome of a
// job, what it answers, what it tidies up over time, and its own end.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <io.h>

#include <chrono>
#include <ctime>

#include "appinfo/app_info2.h"
#include "layout/names.h"
#include "testing/dll_client.h"
#include "util/handle.h"
#include "util/text.h"
#include "util/win/windows_lean.h"

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

constexpr wchar_t kNoJob[] = L"--job {00000000-0000-0000-0000-000000000001}";

// The event by which hosts learn of an application's result.
UniqueHandle ResultEvent(const std::string& appId) {
  return JustUtil::CreateEventW(ResultEventName(appId));
}

// Each test has empty folders and a copy of the program, which may remove itself, in a path with
// blanks. Jobs of hosts name an executor that is not there, so that the test can run it itself.
class Executor : public testing::Test {
 protected:
  static void SetUpTestSuite() { Dll().setExecutorPath(L"C:\\none\\kupdate-exec.exe"); }

  Executor() {
    fs::create_directories(program_.parent_path());
    fs::copy_file(Setting(L"KUPDATE_EXEC"), program_, fs::copy_options::overwrite_existing);
  }
  // Waits for the executors that the service has started: they work in the data folder.
  ~Executor() override {
    EXPECT_TRUE(Eventually([&] {
      return service_.Count("\"event\":\"notify\"") <=
             service_.Count("\"event\":\"notify_exit\"") + service_.Count("\"event\":\"problem\"");
    }));
    SetUpTestSuite();
  }

  int Jobs() const { return service_.Count("\"call\":\"CreateJob\""); }
  // The exit code. The path of the program is not quoted.
  unsigned Run(const std::wstring& arguments) const {
    return testing_dll::Run(program_, program_.wstring() + L" " + arguments);
  }
  // What the program writes to the stream that it inherits.
  std::string OutputOf(const std::wstring& arguments) const {
    const fs::path file = ProcessTempFolder() / "output.txt";
    const int own = ::_dup(1), output = ::_wopen(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::_dup2(output, 1);
    ::_close(output);
    Run(arguments);
    ::_dup2(own, 1);
    ::_close(own);
    return ReadBytes(file);
  }
  // Waits until all jobs have transferred or failed; returns the newest one's arguments of the
  // executor.
  std::wstring ArgumentsOfNewestJob() const {
    EXPECT_TRUE(service_.WaitFor("\"event\":\"notify\"", Jobs()));
    const std::regex notice("\"event\":\"notify\",.*kupdate-exec\\.exe ((?:[^\"\\\\]|\\\\.)*)\"");
    std::smatch match;
    std::string arguments;
    for (const std::string& line : service_.Journal()) {
      if (std::regex_search(line, match, notice)) arguments = match[1];
    }
    return WidenUtf8(std::regex_replace(arguments, std::regex("\\\\(.)"), "$1"));
  }

  const DataHome home_;
  const TransferService service_;
  const fs::path program_ = ProcessTempFolder() / "a copy" / "kupdate-exec.exe";
};

fs::path FeedFile(const App& app) {
  return fs::temp_directory_path() / ("kupdate-versioninfo-" + app.appId + ".xml");
}

}  // namespace

TEST_F(Executor, AnswersEveryOutcomeOfACheck) {
  const std::string newer = Publish("newer.rss", FeedWith("2.0.0.0"));
  const struct {
    std::string feed;
    const char* control;
    const char* upgrade;  // afterwards; it was not written before
    const char* news;     // of the dialog that is not shown
    bool isScheduled;
  } cases[] = {
      {newer, "", "1", "an update is available", true},
      {Publish("same.rss", FeedWith("1.0.0.0")), "", "0", "there is no update", true},
      {Publish("bad.rss", FeedWith("two")), "", "0", "the check failed", false},
      {newer, "fail Complete 0x80070005", "0", "the check failed", false},
      {newer, "vanish all", "", "", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.feed + c.control);
    const DataHome home;
    const App app{"my app", c.feed};
    app.Start();
    const std::wstring arguments = ArgumentsOfNewestJob();
    TAppInfo2(app.appId).SetNeedDialogArterCheck(true);
    service_.Control(c.control);
    const UniqueHandle result = ResultEvent(app.appId);
    const LogCapture log(RoamingFolder() / "kupdate-exec-my app.log");
    const std::int64_t before = std::time(nullptr);
    EXPECT_EQ(Run(arguments), 0u);
    service_.Control({});
    EXPECT_EQ(JustUtil::WaitFor(result, 0), kWaitSignalled);
    EXPECT_EQ(app.Record("UpgradeAvailable"), c.upgrade);
    const std::int64_t next = ParseInt64(app.Record("NextCheckTime")) - before - 86400;
    EXPECT_EQ(next >= 0 && next <= 3700, c.isScheduled) << next;
    EXPECT_FALSE(fs::exists(FeedFile(app)));
    EXPECT_EQ(app.Record("NeedDialogArterCheck"), *c.news ? "0" : "1");
    EXPECT_TRUE(log.Has(c.news));
  }
}

TEST_F(Executor, DoesNotBringARecordBackToLife) {
  const App app{"left", Publish("newer.rss", FeedWith("2.0.0.0"))};
  app.Start();
  const std::wstring arguments = ArgumentsOfNewestJob();
  fs::remove(app.File("appinfo.xml"));
  fs::remove_all(LocalFolder() / app.appId);
  EXPECT_EQ(Run(arguments), 0u);
  for (const fs::path& file : {app.File("appinfo.xml"), LocalFolder() / app.appId, FeedFile(app)}) {
    EXPECT_FALSE(fs::exists(file)) << file;
  }
}

TEST_F(Executor, AnswersAnInstallWithoutAnUpdate) {
  const fs::path file = home_.AppFolder("app") / "updinfo.xml";
  WriteBytes(file, "<appinfo><DistroExitCode>0</DistroExitCode></appinfo>");
  const UniqueHandle result = ResultEvent("app");
  EXPECT_EQ(Run(L" --appid app --silent-update-check"), 0u);
  EXPECT_EQ(JustUtil::WaitFor(result, 0), kWaitSignalled);
  EXPECT_EQ(ValueOf(file, "DistroExitCode"), "-1001");
}

TEST_F(Executor, TellsPeople) {
  App{"status app", HttpUrl("slow/none")}.Start();
  ArgumentsOfNewestJob();
  const std::pair<const wchar_t*, const char*> cases[] = {
      {L"--help", "--silent-update-check"},
      {L"--version", "kupdate-exec 1."},
      {L"--status", "a build folder. Updates need a manifest signed with one of these keys: "},
      {L"--status", "Application \"status app\""},
      {L"--status", "check of status app"},
      {L"--status --appid status app --json", "{\"program\":"},
      {L"--status --appid status app --json", "\"purpose\":\"check\",\"appId\":\"status app\""},
      {L"--status --appid other --json", "\"applications\":[],\"jobs\":[]"},
  };
  for (const auto& [arguments, want] : cases) {
    const std::string text = OutputOf(arguments);
    EXPECT_NE(text.find(want), std::string::npos) << want << " is not in " << text;
  }
  EXPECT_EQ(Run(L"--update-check"), 2u);
  EXPECT_EQ(Run(kNoJob), 0u);
}

TEST_F(Executor, KeepsTheChosenChannel) {
  const App app{"chooser"};
  EXPECT_EQ(Run(L"--set-channel beta --appid chooser"), 5u) << "not registered yet";
  app.Start();
  const auto channelAfter = [&](const wchar_t* arguments) {
    EXPECT_EQ(Run(arguments), 0u);
    EXPECT_EQ(OutputOf(L"--status --json").find("\"channel\":\"beta\"") != std::string::npos,
              app.Record("WantUnstableToo") == "1");
    // A process without rights may change the store; the next start of the release puts it right.
    const std::string chosen = app.Record("WantUnstableToo");
    TAppInfo2("chooser").SetWantUnstableToo(chosen != "1");
    app.Start();
    EXPECT_EQ(app.Record("WantUnstableToo"), chosen);
    return chosen;
  };
  EXPECT_EQ(channelAfter(L"--appid chooser --set-channel beta"), "1");
  EXPECT_EQ(channelAfter(L"--set-channel release --appid chooser"), "0");
  Dll().onApplicationUninstall("chooser");
  EXPECT_EQ(Run(L"--set-channel beta --appid chooser"), 5u) << "removed";
}

TEST_F(Executor, TakesBackAnOldBlockWithoutAJob) {
  const App app{"old", {}, Publish("report", "ok")};
  app.Start();
  const std::wstring arguments = ArgumentsOfNewestJob();
  const fs::path block = app.File("in_work_0.xml");
  const auto made = fs::last_write_time(block);
  const auto isTakenBack = [&](int ageDays, const std::wstring& command) {
    fs::last_write_time(block, made - std::chrono::hours(24 * ageDays));
    Run(command);
    return !fs::exists(block);
  };
  EXPECT_FALSE(isTakenBack(16, kNoJob)) << "its job is alive";
  EXPECT_FALSE(isTakenBack(14, arguments.substr(arguments.find(L"--job")))) << "it is gone now";
  EXPECT_TRUE(isTakenBack(16, kNoJob));
}

TEST_F(Executor, LeavesTheNewestOfSeveralChecks) {
  Publish("big.rss", std::string(200000, 'x'));
  const App app{"many", HttpUrl("slow/big.rss")};
  Dll().setExecutorPath(program_.c_str());
  app.Start();
  Dll().forceUpdateCheck(app.appId.c_str(), false);
  EXPECT_EQ(Jobs(), 2);
  for (int i = 0; i < 2; ++i) {
    Run(kNoJob);
    EXPECT_EQ(service_.Count("\"call\":\"Cancel\""), 1);
  }
}

TEST_F(Executor, ForgetsAnApplicationWhoseUninstallIsDelivered) {
  for (const bool isReinstalled : {false, true}) {
    SCOPED_TRACE(isReinstalled);
    const DataHome home;
    App{"stayer"}.Start();  // else the program would go with its last application
    const App app{"leaver", {}, Publish("report", "ok")};
    app.Start();
    Run(ArgumentsOfNewestJob());
    Dll().onApplicationUninstall(app.appId.c_str());
    const std::wstring arguments = ArgumentsOfNewestJob();
    if (isReinstalled) app.Start();
    EXPECT_EQ(Run(arguments), 0u);
    EXPECT_EQ(fs::exists(app.File("appinfo.xml")), isReinstalled);
    EXPECT_TRUE(fs::exists(app.File("statistics.xml")));
  }
}

TEST_F(Executor, ReportsAnUndeliveredUninstallOnceMore) {
  App{"stayer"}.Start();
  const App app{"unheard", {}, HttpUrl("missing")};
  app.Start();
  Run(ArgumentsOfNewestJob());
  Dll().onApplicationUninstall(app.appId.c_str());
  for (const bool isPeriodOver : {false, true}) {
    const std::wstring arguments = ArgumentsOfNewestJob();
    if (isPeriodOver) TAppInfo2(app.appId).ForgetPingTimes();
    const int sent = Jobs();
    EXPECT_EQ(Run(arguments), 0u);
    EXPECT_EQ(Jobs(), sent + isPeriodOver);
    Dll().onApplicationUninstall(app.appId.c_str());
  }
}

TEST_F(Executor, IsRemovedByTheLastUninstall) {
  const std::string report = Publish("report", "ok");
  // The library notes the path in the record of the application that called it last: let it be this.
  TextFrom(Dll().getLocale, "last");
  Dll().setExecutorPath(program_.c_str());
  for (const char* app : {"last", "other"}) App{app, {}, report}.Start();
  const auto isQuiet = [&] { return service_.Count("\"event\":\"notify_exit\"") == Jobs(); };
  EXPECT_TRUE(Eventually(isQuiet));
  // A wish from days ago; by now another application needs the program.
  WriteBytes(program_.wstring() + L".remove", "last\n");
  Dll().onApplicationUninstall("last");
  EXPECT_TRUE(Eventually(isQuiet));
  EXPECT_TRUE(fs::exists(program_));
  EXPECT_EQ(service_.Count("--suicide"), 0);
  // An author's own program, which has no installer to bring it back.
  const fs::path keep = program_.wstring() + L".keep";
  WriteBytes(keep, "");
  Dll().onApplicationUninstall("other");
  EXPECT_TRUE(Eventually([&] {
    return isQuiet() && !fs::exists(home_.AppFolder("other") / "appinfo.xml") &&
           !fs::exists(program_.wstring() + L".remove");
  }));
  EXPECT_TRUE(fs::exists(program_));
  fs::remove(keep);
  App{"other", {}, report}.Start();
  EXPECT_TRUE(Eventually(isQuiet));
  Dll().onApplicationUninstall("other");
  EXPECT_TRUE(Eventually([&] { return !fs::exists(program_.parent_path()); }))
      << "the program, which was renamed, the wish, and their folder";
  for (const fs::path& folder : {testing_dll::DataFolder(), LocalFolder()}) {
    EXPECT_TRUE(!fs::exists(folder) || fs::is_empty(folder)) << folder;
  }
}
