// Update checks and silent installs, through the transfer service and over HTTP.
#include <gtest/gtest.h>

#include <process.h>

#include <chrono>
#include <optional>

#include "testing/dll_client.h"
#include "util/process.h"
#include "util/text.h"

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

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

TEST(Check, FindsTheUpdateAndWritesItDown) {
  const DllLog log;
  Driver host;
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
    Driver host{c.appId, c.url};
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
    Driver host;
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
  const TransferService service;
  const Host host{"scheduled", HttpUrl("scheduled.rss")};
  Dll().setExecutorPath(L"C:\\none\\a b.exe");
  EXPECT_EQ(host.Start(), KUPDATE_S_OK);
  EXPECT_EQ(host.Start(), KUPDATE_S_OK) << "the next check is due in a day";
  Dll().onApplicationUninstall("scheduled");
  Dll().forceUpdateCheck("scheduled", true);
  EXPECT_EQ(host.Record("NeedDialogArterCheck"), "1");
  EXPECT_EQ(Host{"no-address"}.Start(), KUPDATE_S_OK);
  Dll().setExecutorPath(nullptr);
  const std::string calls[] = {
      R"("call":"CreateJob")",
      R"("name":"Kupdate-task","type":0,)",
      R"("url":")" + host.feed + R"(","file":"C:\\)",
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
  const auto wait = [](std::int32_t milliseconds) {
    bool result = true;
    EXPECT_EQ(Dll().isUpgradeAvailable("wait", milliseconds, &result), KUPDATE_S_OK);
    return result;
  };
  Dll().setExecutorPath(ModulePath().c_str());
  Host host{"wait", Publish("wait.rss", "<rss/>")};
  host.Start();
  EXPECT_FALSE(wait(-1));
  EXPECT_TRUE(log.Has("Low-privileges process"));
  EXPECT_TRUE(log.Has("No check was queued, so there is no answer to wait for."));
  service.Control({});
  EXPECT_FALSE(wait(0));
  EXPECT_TRUE(log.Has("WAIT_TIMEOUT"));
  // A report that cannot be sent takes no time away from the wait.
  host.report = HttpUrl("r?" + std::string(1100, 'a'));
  host.Start();
  EXPECT_TRUE(wait(20000));
  EXPECT_TRUE(log.Has("Try to wait for update during  20000 ms."));
  EXPECT_TRUE(service.WaitFor("\"notify_exit\""));
  Dll().setExecutorPath(nullptr);
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

// Takes the 30 seconds that a late answer is given.
TEST(DeadExecutor, DoesNotHangItsHost) {
  EXPECT_EQ(Install(ModulePath(), L"exit 0"), std::nullopt);
}
