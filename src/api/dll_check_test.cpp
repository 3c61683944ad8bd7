// Update checks and silent installs, through the transfer service and over HTTP.
#include <gtest/gtest.h>

#include "util/win/windows_lean.h"

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "testing/data_home.h"
#include "testing/dll_client.h"
#include "util/text.h"

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

std::string Item(const std::string& version, const std::string& platform = "win64",
                 const std::string& more = {}) {
  return "<item><version:platform>" + platform + "</version:platform><version:version>" + version +
         "</version:version><version:status>release</version:status><guid>http://d/" + version +
         "</guid><version:distsize>12</version:distsize>" + more + "</item>";
}

std::string Feed(const std::string& items) {
  return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n<rss version=\"2.0\"><channel>" + items +
         "</channel></rss>";
}

std::wstring ThisProgram() {
  wchar_t path[MAX_PATH + 1] = {};
  ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  return path;
}

// A host that drives one application's check.
struct Host {
  std::string appId = "check";
  std::string url = HttpUrl("none");
  std::int32_t status = -1;

  kupdate_status Step(const char* operation) {
    status = -1;
    return Dll().isUpdateAvailable(appId.c_str(), "win64", 1, 0, 0, 0, true, url.c_str(), operation,
                                   &status);
  }
  // Polls until the check has an answer.
  kupdate_status Check() {
    kupdate_status result = KUPDATE_E_FAIL;
    Eventually([&] {
      result = Step("check");
      return result != KUPDATE_S_OK || status != KUPDATE_IN_WORK;
    });
    return result;
  }
  fs::path UpdInfo() const { return DataFolder() / appId / "updinfo.xml"; }
};

// Each feed is downloaded and judged; the row says what the host is told.
struct FeedCase {
  const char* label;
  std::string feed;
  kupdate_status want;
  std::int32_t status;
};

}  // namespace

TEST(Check, FindsTheUpdateAndWritesItDown) {
  const DllLog log;
  const TransferService service;
  Host host;
  host.url = Publish("found.rss", Feed(Item("9.0.0.0", "mac") + Item("2.0.1.7") + Item("1.5.0.0")));
  ASSERT_EQ(host.Step("start"), KUPDATE_S_OK);
  EXPECT_EQ(host.status, KUPDATE_IN_WORK);
  EXPECT_EQ(host.Step("start"), KUPDATE_S_OK);
  EXPECT_TRUE(log.Has("D:TUpdaterController::Start: We already wait for update."));
  ASSERT_EQ(host.Check(), KUPDATE_S_OK);
  EXPECT_EQ(host.status, KUPDATE_FOUND);
  EXPECT_EQ(ValueOf(host.UpdInfo(), "VerMajor") + ValueOf(host.UpdInfo(), "VerBuild"), "27");
  EXPECT_EQ(ValueOf(host.UpdInfo(), "DistroUrl"), "http://d/2.0.1.7");
  EXPECT_EQ(ValueOf(host.UpdInfo(), "DistroSize"), "12");
  EXPECT_EQ(ReadBytes(LocalFolder() / "check" / "version.rss").size(),
            ReadBytes(fs::path(Setting(L"KUPDATE_WWW")) / "found.rss").size());
  EXPECT_TRUE(log.Has("D:TUpdaterController::IsUpdateAvailable: Version:  1.0.0.0.Release"));
  EXPECT_EQ(service.Count("\"call\":\"CreateJob\""), 1);
  EXPECT_EQ(service.Count("\"call\":\"SetNotifyCmdLine\""), 0)
      << "no executor in a host's own check";
  EXPECT_EQ(service.Count("\"call\":\"Complete\""), 1);
}

TEST(Check, JudgesEveryFeed) {
  std::string deep;
  for (int i = 0; i < 200000; ++i) deep += "<a>";
  const std::string good = Feed(Item("2.0.0.0"));
  std::string large;
  while (large.size() < 50'000'000) large += Item("3.0.0.0", "mac");
  const FeedCase cases[] = {
      {"other platform", Feed(Item("2.0.0.0", "mac")), KUPDATE_S_OK, KUPDATE_NO_UPDATE},
      {"nothing newer", Feed(Item("1.0.0.0")), KUPDATE_S_OK, KUPDATE_NO_UPDATE},
      {"no channel", "<rss/>", KUPDATE_S_OK, KUPDATE_NO_UPDATE},
      {"two target addresses",
       Feed(Item("2.0.0.0", "win64",
                 "<update:target>1</update:target><update:guid/><update:guid/>")),
       KUPDATE_S_OK, KUPDATE_NO_UPDATE},
      {"50 MB long", Feed(large + Item("2.0.0.0")), KUPDATE_S_OK, KUPDATE_FOUND},
      {"empty", "", KUPDATE_E_FAIL, -1},
      {"other root", "<html/>", KUPDATE_E_FAIL, -1},
      {"cut", good.substr(0, good.size() - 9), KUPDATE_E_FAIL, -1},
      {"200,000 levels deep", deep, KUPDATE_E_FAIL, -1},
      {"mask of letters", Feed(Item("2.0.0.0", "win64", "<update:target>x</update:target>")),
       KUPDATE_E_FAIL, -1},
      {"no version", Feed("<item/>"), KUPDATE_E_FAIL, -1},
      {"not XML", std::string(5000, '\xFF'), KUPDATE_E_FAIL, -1},
  };
  for (const FeedCase& c : cases) {
    SCOPED_TRACE(c.label);
    const DllLog log;
    Host host;
    host.url = Publish("judged.rss", c.feed);
    EXPECT_EQ(host.Step("start"), KUPDATE_S_OK);
    EXPECT_EQ(host.Check(), c.want);
    EXPECT_EQ(host.status, c.status);
    EXPECT_EQ(log.Has("D:TUpdaterController::IsUpdateAvailable: Unhandled exception."),
              c.want == KUPDATE_E_FAIL);
  }
}

TEST(Check, RefusesWhatDoesNotFit) {
  Host host;
  const struct {
    const char* operation;
    const char* url;
    const char* line;
  } cases[] = {
      {"check", "http://x/", "E:TUpdaterController::Check: Job not started!"},
      {"stop", "http://x/", "E:TUpdaterController::Stop: Nothing to stop! No Job started!"},
      {"start", "", "E:TUpdaterController::Start: You should specify VersionUrl to rss."},
      {"Start", "http://x/", "E:TUpdaterController::RunOperation: Unknown operation:  Start"},
  };
  for (const auto& c : cases) {
    const DllLog log;
    host.url = c.url;
    EXPECT_EQ(host.Step(c.operation), KUPDATE_E_FAIL) << c.operation;
    EXPECT_EQ(host.status, -1);
    EXPECT_TRUE(log.Has(c.line)) << c.line;
  }
  host.url = Publish("other.rss", Feed({}));
  EXPECT_EQ(host.Step("start"), KUPDATE_S_OK);
  Host other;
  other.appId = "other";
  other.url = host.url;
  EXPECT_EQ(other.Step("check"), KUPDATE_E_FAIL) << "the job is another application's";
  EXPECT_EQ(host.Step("stop"), KUPDATE_S_OK);
  EXPECT_EQ(host.Step("stop"), KUPDATE_E_FAIL);
}

TEST(Check, EndsWellWhateverCallFails) {
  const struct {
    const char* control;
    kupdate_status want;
    int cancelled;  // a job that was made and not started must not stay
  } cases[] = {
      {"fail CreateInstance 0x80070005", KUPDATE_E_FAIL, 0},
      {"fail CreateJob 0x80200049", KUPDATE_E_FAIL, 0},
      {"fail AddFile 0x80070057", KUPDATE_E_FAIL, 1},
      {"fail SetNoProgressTimeout 0x80070005", KUPDATE_E_FAIL, 1},
      {"fail SetPriority 0x80070005", KUPDATE_E_FAIL, 1},
      {"fail SetNotifyFlags 0x80070005", KUPDATE_S_OK, 0},
      {"fail Resume 0x80200004", KUPDATE_E_FAIL, 1},
      {"no-job2", KUPDATE_E_FAIL, 0},
  };
  Host host;
  host.url = Publish("faults.rss", Feed({}));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.control);
    TransferService service(c.control);
    EXPECT_EQ(host.Step("start"), c.want);
    EXPECT_EQ(service.Count("\"call\":\"Cancel\""), c.cancelled);
    service.Control({});
    if (c.want != KUPDATE_S_OK) {
      EXPECT_EQ(host.Step("start"), KUPDATE_S_OK) << "it works again";
    }
    EXPECT_EQ(host.Step("stop"), KUPDATE_S_OK);
  }
}

TEST(Check, ReadsTheJobsStateAndItsAbsence) {
  const struct {
    const char* control;
    kupdate_status want;
    std::int32_t status;
    const char* line;
  } cases[] = {
      {"states QUEUED", KUPDATE_S_OK, KUPDATE_IN_WORK, "D:TUpdaterController::Check: Job in work."},
      {"states CONNECTING", KUPDATE_S_OK, KUPDATE_IN_WORK, nullptr},
      {"states TRANSFERRING", KUPDATE_S_OK, KUPDATE_IN_WORK, nullptr},
      {"states SUSPENDED", KUPDATE_S_OK, KUPDATE_IN_WORK, nullptr},
      {"states TRANSIENT_ERROR", KUPDATE_S_OK, KUPDATE_IN_WORK, nullptr},
      {"states ERROR", KUPDATE_S_OK, KUPDATE_JOB_FAILED,
       "E:TUpdaterController::Check: Job failed."},
      {"states CANCELLED", KUPDATE_S_OK, KUPDATE_JOB_FAILED, nullptr},
      {"states 9", KUPDATE_S_OK, KUPDATE_JOB_FAILED,
       "D:TBitsTransferCompletion::TWorker::GetJobState: Job state code: unknown state"},
      {"vanish all", KUPDATE_S_OK, KUPDATE_JOB_FAILED,
       "E:TUpdaterController::Check: Error in StopJob."},
      {"fail GetState 0x80070005", KUPDATE_S_OK, KUPDATE_JOB_FAILED, nullptr},
      {"states TRANSFERRED\nfail Complete 0x80200003", KUPDATE_E_FAIL, -1,
       "E:TUpdaterController::Check: Error in StopJob."},
  };
  Host host;
  host.url = Publish("states.rss", Feed({}));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.control);
    TransferService service;
    ASSERT_EQ(host.Step("start"), KUPDATE_S_OK);
    service.Control(c.control);
    const DllLog log;
    EXPECT_EQ(host.Step("check"), c.want);
    EXPECT_EQ(host.status, c.status);
    if (c.line) {
      EXPECT_TRUE(log.Has(c.line)) << c.line;
    }
    service.Control({});
    host.Step("stop");
  }
}

TEST(Check, AMissingFeedIsAFailedJob) {
  Host host;
  host.url = HttpUrl("no-such-feed.rss");
  EXPECT_EQ(host.Step("start"), KUPDATE_S_OK);
  EXPECT_EQ(host.Check(), KUPDATE_S_OK);
  EXPECT_EQ(host.status, KUPDATE_JOB_FAILED);
}

TEST(ScheduledCheck, QueuesOneJobThatStartsTheExecutor) {
  const std::string url = Publish("scheduled.rss", Feed({}));
  const TransferService service;
  Dll().setExecutorPath(L"C:\\none\\a b.exe");
  const auto start = [&] {
    return Dll().onApplicationStartup("scheduled", "win64", url.c_str(), "", 0, 1, 0, 0, 0, true);
  };
  EXPECT_EQ(start(), KUPDATE_S_OK);
  const std::vector<std::string> calls = service.Journal();
  EXPECT_EQ(start(), KUPDATE_S_OK);
  EXPECT_EQ(service.Count("\"call\":\"CreateJob\""), 1) << "the next check is due in a day";
  Dll().setExecutorPath(nullptr);
  std::smatch id;
  ASSERT_TRUE(!calls.empty() && std::regex_search(calls[0], id, std::regex("\\{[0-9A-F-]{36}\\}")));
  const auto escaped = [](std::string path) {
    return std::regex_replace(path, std::regex("\\\\"), "\\\\");
  };
  const std::string job = "\"job\":\"" + id.str() + "\"";
  const std::string file =
      NarrowUtf8((TempFolder() / "kupdate-versioninfo-scheduled.xml").wstring());
  const std::string done = "\"result\":\"0x00000000\"}";
  const std::vector<std::string> want = {
      "{\"call\":\"CreateJob\",\"name\":\"Kupdate-task\",\"type\":0," + job + "," + done,
      "{\"call\":\"AddFile\"," + job + ",\"url\":\"" + url + "\",\"file\":\"" + escaped(file) +
          "\"," + done,
      "{\"call\":\"SetNoProgressTimeout\"," + job + ",\"seconds\":82800," + done,
      "{\"call\":\"SetPriority\"," + job + ",\"priority\":2," + done,
      "{\"call\":\"SetNotifyFlags\"," + job + ",\"flags\":3," + done,
      "{\"call\":\"SetNotifyCmdLine\"," + job +
          ",\"program\":\"C:\\\\none\\\\a b.exe\",\"parameters\":\"C:\\\\none\\\\a b.exe  --appid "
          "scheduled "
          "--update-check --file \\\"" +
          escaped(file) + "\\\" --job " + id.str() + "\"," + done,
      "{\"call\":\"Resume\"," + job + "," + done,
  };
  ASSERT_GE(calls.size(), want.size());
  for (std::size_t i = 0; i < want.size(); ++i) {
    EXPECT_EQ(calls[i], want[i]);
  }
}

TEST(ScheduledCheck, IsNotMadeForAnEmptyAddressOrARemovedApplication) {
  const TransferService service;
  const DllLog log;
  Dll().onApplicationStartup("no-address", "win64", "", "", 0, 1, 0, 0, 0, true);
  EXPECT_TRUE(log.Has("E:CheckUpdate: VersionUrl is empty"));
  Dll().onApplicationUninstall("scheduled");
  Dll().forceUpdateCheck("scheduled", true);
  EXPECT_EQ(ValueOf(DataFolder() / "scheduled" / "appinfo.xml", "NeedDialogArterCheck"), "1");
  EXPECT_EQ(service.Count("\"call\":\"CreateJob\""), 0);
}

TEST(Wait, GetsTheExecutorsAnswerOrRunsOut) {
  const std::string url = Publish("wait.rss", Feed({}));
  TransferService service;
  Dll().setExecutorPath(ThisProgram().c_str());
  Dll().onApplicationStartup("wait", "win64", url.c_str(), "", 0, 1, 0, 0, 0, true);
  bool result = false;
  EXPECT_EQ(Dll().isUpgradeAvailable("wait", 20000, &result), KUPDATE_S_OK);
  EXPECT_TRUE(result);
  EXPECT_EQ(ValueOf(DataFolder() / "wait" / "appinfo.xml", "NextPingTime"), "");
  EXPECT_TRUE(Eventually([&] { return service.Count("\"notify_exit\"") == 2; }));
  service.Control("fail CreateInstance 0x80070005");
  const DllLog log;
  EXPECT_EQ(Dll().isUpgradeAvailable("wait", 10, &result), KUPDATE_S_OK);
  EXPECT_FALSE(result);
  EXPECT_TRUE(log.Has("D:TBitsTransfer::Work: Low-privileges process"));
  EXPECT_TRUE(
      log.Has("I:TUpdaterController::IsUpgradeAvailable: Try to wait for update during  10 ms."));
  EXPECT_TRUE(log.Has("D:TUpdaterController::IsUpgradeAvailable: WAIT_TIMEOUT"));
  Dll().setExecutorPath(nullptr);
}

TEST(SilentInstall, NeedsAnUpdateAndReturnsTheInstallersCode) {
  std::int32_t exitCode = 77;
  Host host;
  host.appId = "install";
  host.url = Publish("install.rss", Feed(Item("1.0.0.0")));
  host.Step("start");
  host.Check();
  EXPECT_EQ(Dll().downloadAndInstallSilentUpdate(&exitCode), KUPDATE_E_FAIL);
  EXPECT_EQ(exitCode, 77);
  Publish("install.rss", Feed(Item("2.0.0.0")));
  host.Step("start");
  ASSERT_EQ(host.Check(), KUPDATE_S_OK);
  ASSERT_EQ(host.status, KUPDATE_FOUND);
  Dll().setExecutorPath(L"C:\\none\\none.exe");
  EXPECT_EQ(Dll().downloadAndInstallSilentUpdate(&exitCode), KUPDATE_E_FAIL);
  EXPECT_EQ(exitCode, 77);
  Dll().setExecutorPath(ThisProgram().c_str());
  ::_wputenv(L"KUPDATE_TEST_EXECUTOR=-7");
  const DllLog log;
  EXPECT_EQ(Dll().downloadAndInstallSilentUpdate(&exitCode), KUPDATE_S_OK);
  EXPECT_EQ(exitCode, -7);
  EXPECT_TRUE(log.Has("D:TUpdaterController::DownloadAndInstallSilentUpdate: Run:  " +
                      NarrowUtf8(ThisProgram()) + " --appid install --silent-update-check"));
  EXPECT_TRUE(log.Has("D:DLLDownloadAndInstallSilentUpdate: res:  S_OK"));
  EXPECT_EQ(Dll().downloadAndInstallSilentUpdate(nullptr), KUPDATE_S_OK);
  ::_wputenv(L"KUPDATE_TEST_EXECUTOR=early 5");
  EXPECT_EQ(Dll().downloadAndInstallSilentUpdate(&exitCode), KUPDATE_S_OK);
  EXPECT_EQ(exitCode, 5) << "a check's signal is no answer of the installation";
  Dll().setExecutorPath(nullptr);
}
