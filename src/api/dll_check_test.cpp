// Update checks and silent installs, through the transfer service and over HTTP.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <optional>
#include <thread>

#include "testing/data_home.h"
#include "testing/dll_client.h"
#include "util/clock.h"
#include "util/text.h"

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

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

kupdate_status Startup(const char* appId, const std::string& feed, const std::string& report = {}) {
  return Dll().onApplicationStartup(appId, "win64", feed.c_str(), report.c_str(), 0, 1, 0, 0, 0,
                                    true);
}

}  // namespace

TEST(Check, FindsTheUpdateAndWritesItDown) {
  const DllLog log;
  Host host;
  EXPECT_EQ(host.Check(FeedWith("2.0.1.7")), KUPDATE_S_OK);
  EXPECT_EQ(host.status, KUPDATE_FOUND);
  EXPECT_EQ(ValueOf(DataFolder() / "check" / "updinfo.xml", "DistroUrl"), "http://d/f");
  EXPECT_EQ(ReadBytes(LocalFolder() / "check" / "version.rss"), FeedWith("2.0.1.7"));
  EXPECT_TRUE(log.Has("Version:  1.0.0.0.Release"));
  EXPECT_EQ(host.Check(FeedWith("2.0.0.0", "mac")), KUPDATE_S_OK);
  EXPECT_EQ(host.status, KUPDATE_NO_UPDATE);
  EXPECT_EQ(host.Check(FeedWith("2.0.0.0").substr(0, 150)), KUPDATE_E_FAIL);
  EXPECT_EQ(host.status, -1);
}

TEST(Check, RefusesWhatDoesNotFit) {
  const DllLog log;
  const TransferService service;
  const struct {
    const char *appId, *operation, *url;
    kupdate_status want;
    const char* line = "";
  } cases[] = {
      {"check", "check", "http://x/", KUPDATE_E_FAIL, "Job not started!"},
      {"check", "stop", "http://x/", KUPDATE_E_FAIL, "Nothing to stop! No Job started!"},
      {"check", "start", "", KUPDATE_E_FAIL, "You should specify VersionUrl to rss."},
      {"check", "Start", "", KUPDATE_E_FAIL, "Unknown operation:  Start"},
      {"check", "start", "http://x/", KUPDATE_S_OK},
      {"check", "start", "http://x/", KUPDATE_S_OK, "We already wait for update."},
      {"other", "check", "http://x/", KUPDATE_E_FAIL},
      {"check", "stop", "http://x/", KUPDATE_S_OK},
  };
  for (const auto& c : cases) {
    Host host{c.appId, c.url};
    EXPECT_EQ(host.Step(c.operation), c.want) << c.appId << " " << c.operation << ": " << c.line;
    EXPECT_TRUE(log.Has(c.line));
  }
  EXPECT_EQ(service.Count("\"call\":\"CreateJob\""), 1);
}

TEST(Check, EndsWellWhateverTheServiceDoes) {
  const struct {
    const char *operation, *control;
    std::int32_t status;  // -1: a failure
    int cancelled;        // a job that was made and not started must not stay
    const char* line = "";
  } cases[] = {
      {"start", "fail CreateInstance 0x80070005", -1, 0},
      {"start", "fail AddFile 0x80070057", -1, 1},
      {"start", "fail SetNotifyFlags 0x80070005", KUPDATE_IN_WORK, 0},
      {"start", "fail Resume 0x80200004", -1, 1},
      {"start", "no-job2", -1, 0},
      {"check", "states QUEUED", KUPDATE_IN_WORK, 0, "Job in work."},
      {"check", "states CONNECTING", KUPDATE_IN_WORK, 0},
      {"check", "states TRANSFERRING", KUPDATE_IN_WORK, 0},
      {"check", "states SUSPENDED", KUPDATE_IN_WORK, 0},
      {"check", "states TRANSIENT_ERROR", KUPDATE_IN_WORK, 0},
      {"check", "states ERROR", KUPDATE_JOB_FAILED, 1, "Job failed."},
      {"check", "states CANCELLED", KUPDATE_JOB_FAILED, 0},
      {"check", "states 9", KUPDATE_JOB_FAILED, 1},
      {"check", "vanish all", KUPDATE_JOB_FAILED, 0, "Error in StopJob."},
      {"check", "states TRANSFERRED\nfail Complete 0x80200003", -1, 1, "Error in StopJob."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.control);
    const DllLog log;
    const TransferService service;
    Host host;
    if (std::string(c.operation) == "check") host.Step("start");
    service.Control(c.control);
    EXPECT_EQ(host.Step(c.operation), c.status < 0 ? KUPDATE_E_FAIL : KUPDATE_S_OK);
    EXPECT_EQ(host.status, c.status);
    EXPECT_EQ(service.Count("\"call\":\"Cancel\""), c.cancelled);
    EXPECT_TRUE(log.Has(c.line));
    service.Control({});
    EXPECT_EQ(host.Step("start"), KUPDATE_S_OK) << "it works again";
    EXPECT_EQ(host.Step("stop"), KUPDATE_S_OK);
  }
}

TEST(ScheduledCheck, QueuesOneJobThatStartsTheExecutor) {
  const std::string url = HttpUrl("scheduled.rss");
  const TransferService service;
  Dll().setExecutorPath(L"C:\\none\\a b.exe");
  EXPECT_EQ(Startup("scheduled", url), KUPDATE_S_OK);
  EXPECT_EQ(Startup("scheduled", url), KUPDATE_S_OK) << "the next check is due in a day";
  Dll().onApplicationUninstall("scheduled");
  Dll().forceUpdateCheck("scheduled", true);
  EXPECT_EQ(ValueOf(DataFolder() / "scheduled" / "appinfo.xml", "NeedDialogArterCheck"), "1");
  EXPECT_EQ(Startup("no-address", ""), KUPDATE_S_OK);
  Dll().setExecutorPath(nullptr);
  const std::string calls[] = {
      R"("call":"CreateJob")",
      R"("name":"Kupdate-task","type":0,)",
      R"("url":")" + url + R"(","file":"C:\\)",
      R"(\\kupdate-versioninfo-scheduled.xml","result")",
      R"("seconds":82800,)",
      R"("priority":2,)",
      R"("flags":3,)",
      R"("program":"C:\\none\\a b.exe","parameters":"C:\\none\\a b.exe  --appid scheduled)"
      R"( --update-check --file \"C:\\)",
      R"("call":"Resume",)",
  };
  for (const std::string& call : calls) EXPECT_EQ(service.Count(call), 1) << call;
}

TEST(Wait, GetsTheExecutorsAnswerOrRunsOut) {
  const TransferService service("fail CreateInstance 0x80070005");
  const DllLog log;
  bool result = true;
  const auto wait = [&](std::int32_t milliseconds) {
    EXPECT_EQ(Dll().isUpgradeAvailable("wait", milliseconds, &result), KUPDATE_S_OK);
    return result;
  };
  Dll().setExecutorPath(ThisProgram().c_str());
  const std::string feed = Publish("wait.rss", "<rss/>");
  Startup("wait", feed);
  EXPECT_FALSE(wait(-1));
  EXPECT_TRUE(log.Has("Low-privileges process"));
  EXPECT_TRUE(log.Has("No check was queued, so there is no answer to wait for."));
  service.Control({});
  EXPECT_FALSE(wait(0));
  EXPECT_TRUE(log.Has("WAIT_TIMEOUT"));
  // A report that cannot be sent takes no time away from the wait.
  Startup("wait", feed, HttpUrl("r?" + std::string(1100, 'a')));
  EXPECT_TRUE(wait(20000));
  EXPECT_TRUE(log.Has("Try to wait for update during  20000 ms."));
  EXPECT_TRUE(service.WaitFor("\"notify_exit\""));
  Dll().setExecutorPath(nullptr);
}

// The code that a host gets that has found an update and has an executor install it that does what `script`
// says, while `others` do something too; nothing is a failure.
std::optional<std::int32_t> Install(
    const std::wstring& executor, const char* script, const std::function<void()>& others = [] {}) {
  Host host{"install"};
  EXPECT_EQ(host.Check(FeedWith("2.0.0.0")), KUPDATE_S_OK);
  EXPECT_EQ(host.status, KUPDATE_FOUND);
  ::_wputenv_s(L"KUPDATE_TEST_EXECUTOR", WidenUtf8(script).c_str());
  Dll().setExecutorPath(executor.c_str());
  std::thread thread(others);
  std::int32_t code = 77;
  const kupdate_status result = Dll().downloadAndInstallSilentUpdate(&code);
  thread.join();
  Dll().setExecutorPath(nullptr);
  if (result == KUPDATE_S_OK) return code;
  EXPECT_EQ(code, 77) << "a failure leaves it";
  return {};
}

TEST(SilentInstall, NeedsAnUpdateAndAnExecutor) {
  const DllLog log;
  EXPECT_EQ(Host{"install"}.Check(FeedWith("1.0.0.0")), KUPDATE_S_OK);
  EXPECT_EQ(Dll().downloadAndInstallSilentUpdate(nullptr), KUPDATE_E_FAIL);
  EXPECT_EQ(Install(L"C:\\none.exe", ""), std::nullopt);
  EXPECT_EQ(Install(ThisProgram(), "answer 5 signal"), 5);
  EXPECT_TRUE(
      log.Has("Run:  " + NarrowUtf8(ThisProgram()) + " --appid install --silent-update-check"));
}

// Who signals and who writes, in which order. "others" do so while the executor is at work.
TEST(SilentInstall, GivesTheExecutorsCodeInEveryOrderOfEvents) {
  const struct {
    const char *label, *script, *others;
    std::optional<std::int32_t> want;
  } cases[] = {
      {"signal, then the end", "answer -7 store -7 signal wait 300 exit 0", "", -7},
      {"the end at once", "answer 5 store 5 signal exit 0", "", 5},
      {"no signal", "answer 5 exit 0", "", 5},
      {"no code, then the end", "signal wait 300 exit 0", "", 0},
      {"no code, the end at once", "signal exit 0", "", 0},
      {"no code, a failed end", "signal wait 100 exit 1", "", {}},
      {"the end comes first", "late exit 0", "", 6},
      {"an old code", "store 4 wait 300 answer 5 exit 0", "", 5},
      {"killed, a code of earlier", "store 4 wait 300 exit 9", "signal", {}},
      {"killed, a check beside it", "wait 500 exit 9", "signal", {}},
      {"killed, a forged code", "wait 500 exit 9", "store 0 signal", {}},
      {"a forged code", "wait 700 answer -1004 store -1004 signal exit 0", "store 0 signal", -1004},
      {"lingers", "answer 5 store 5 signal wait 14000 exit 0", "", 5},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    fs::remove(DataFolder() / "install" / "updinfo.xml");
    const auto others = [&] {
      SleepMilliseconds(250);
      if (std::string(c.others).starts_with("store")) {
        WriteBytes(DataFolder() / "install" / "updinfo.xml",
                   "<appinfo><DistroExitCode>0</DistroExitCode></appinfo>");
      }
      if (*c.others) SignalResult("install");
    };
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Install(ThisProgram(), c.script, others), c.want);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(13));
  }
}

// Takes the 30 seconds that a late answer is given.
TEST(DeadExecutor, DoesNotHangItsHost) {
  EXPECT_EQ(Install(ThisProgram(), "exit 0"), std::nullopt);
}
