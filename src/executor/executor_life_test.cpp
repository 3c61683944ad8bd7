// kupdate-exec.exe over time: what was left behind, removed applications, and its own end.
#include <gtest/gtest.h>

#include <chrono>

#include "appinfo/app_info2.h"
#include "executor/executor_test_client.h"

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

using ExecutorLife = ExecutorTest;

// The paths of all that is below a folder.
std::string ContentOf(const fs::path& folder) {
  std::string paths;
  std::error_code ignored;
  for (const auto& entry : fs::recursive_directory_iterator(folder, ignored)) {
    paths += entry.path().string() + "\n";
  }
  return paths;
}

constexpr wchar_t kNoJob[] = L"--job {00000000-0000-0000-0000-000000000001}";

}  // namespace

TEST_F(ExecutorLife, AnOldBlockWithoutAJobIsTakenBack) {
  const TransferService service;
  Host host("old");
  host.reportUrl = Publish("report", "ok");
  host.Start();
  const std::wstring arguments = ArgumentsOfNewestJob(service);
  const fs::path block = host.File("in_work_0.xml");
  const auto made = fs::last_write_time(block);
  const auto isTakenBack = [&](int ageDays, const std::wstring& command) {
    fs::last_write_time(block, made - std::chrono::hours(24 * ageDays));
    RunExecutor(command);
    return !fs::exists(block);
  };
  EXPECT_FALSE(isTakenBack(16, kNoJob)) << "its job is alive";
  EXPECT_FALSE(isTakenBack(14, arguments.substr(arguments.find(L"--job")))) << "it is gone now";
  EXPECT_TRUE(isTakenBack(16, kNoJob));
}

TEST_F(ExecutorLife, TheNewestOfSeveralChecksStays) {
  const TransferService service;
  Host host("many");
  Host::UseExecutor(ExecutorProgram());
  Publish("big.rss", std::string(200000, 'x'));
  host.feedUrl = HttpUrl("slow/big.rss");
  host.Start();
  Dll().forceUpdateCheck(host.appId.c_str(), false);
  EXPECT_EQ(service.Count("\"call\":\"CreateJob\""), 2);
  RunExecutor(kNoJob);
  EXPECT_EQ(service.Count("\"call\":\"Cancel\""), 1);
  RunExecutor(kNoJob);
  EXPECT_EQ(service.Count("\"call\":\"Cancel\""), 1);
}

TEST_F(ExecutorLife, ADeliveredUninstallForgetsTheApplication) {
  for (const bool isReinstalled : {false, true}) {
    SCOPED_TRACE(isReinstalled);
    const DataHome home;
    TransferService service;
    Host("stayer").Start();  // else the program would go with its last application
    Host host("leaver");
    host.reportUrl = Publish("report", "ok");
    host.Start();
    RunExecutor(ArgumentsOfNewestJob(service));
    host.Uninstall();
    const std::wstring arguments = ArgumentsOfNewestJob(service);
    if (isReinstalled) host.Start();
    EXPECT_EQ(RunExecutor(arguments), 0u);
    EXPECT_EQ(fs::exists(host.File("appinfo.xml")), isReinstalled);
    EXPECT_TRUE(fs::exists(host.File("statistics.xml")));
  }
}

TEST_F(ExecutorLife, AnUndeliveredUninstallIsReportedOnceMore) {
  TransferService service;
  Host("stayer").Start();
  Host host("unheard");
  host.reportUrl = HttpUrl("missing");
  host.Start();
  RunExecutor(ArgumentsOfNewestJob(service));
  host.Uninstall();
  for (const bool isPeriodOver : {false, true}) {
    const std::wstring arguments = ArgumentsOfNewestJob(service);
    if (isPeriodOver) TAppInfo2(host.appId).ForgetPingTimes();
    const int sent = service.Count("\"call\":\"CreateJob\"");
    EXPECT_EQ(RunExecutor(arguments), 0u);
    EXPECT_EQ(service.Count("\"call\":\"CreateJob\""), sent + isPeriodOver);
    host.Uninstall();
  }
}

TEST_F(ExecutorLife, TheLastUninstallRemovesTheProgramItself) {
  const fs::path program = ExecutorProgram();
  const TransferService service;
  Host host("last");
  Host other("other");
  Host::UseExecutor(program);
  host.reportUrl = other.reportUrl = Publish("report", "ok");
  host.Start();
  other.Start();
  const auto isQuiet = [&] {
    return service.Count("\"event\":\"notify_exit\"") == service.Count("\"call\":\"CreateJob\"");
  };
  EXPECT_TRUE(Eventually(isQuiet));
  // A wish from days ago; by now another application needs the program.
  WriteBytes(program.wstring() + L".remove", "last\n");
  host.Uninstall();
  EXPECT_TRUE(Eventually(isQuiet));
  EXPECT_TRUE(fs::exists(program));
  EXPECT_EQ(service.Count("--suicide"), 0);
  other.Uninstall();
  EXPECT_TRUE(Eventually([&] { return ContentOf(program.parent_path()).empty(); }))
      << "the program, which was renamed, and the wish";
  EXPECT_EQ(ContentOf(testing_dll::DataFolder()) + ContentOf(LocalFolder()), "");
}
