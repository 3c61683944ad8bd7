// kupdate-exec.exe over time: the whole way through the service, races, and its own end.
#include <gtest/gtest.h>

#include <chrono>

#include "executor/executor_test_client.h"
#include "util/text.h"

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

using ExecutorLife = ExecutorTest;

// All that is in a folder, at any depth.
std::string Listing(const fs::path& folder) {
  std::string names;
  std::error_code ignored;
  for (const auto& entry : fs::recursive_directory_iterator(folder, ignored)) {
    names += entry.path().filename().string() + "\n";
  }
  return names;
}

constexpr wchar_t kNoJob[] = L"--job {00000000-0000-0000-0000-000000000001}";

}  // namespace

TEST_F(ExecutorLife, AHostIsToldThroughTheService) {
  const TransferService service;
  Host host("whole way");
  Host::UseExecutor(ExecutorProgram());
  host.feedUrl = Publish("newer.rss", FeedWith("2.0.0.0"));
  host.reportUrl = Publish("report", "ok");
  host.Start();
  bool available = false;
  EXPECT_EQ(Dll().isUpgradeAvailable(host.appId.c_str(), 20000, &available), KUPDATE_S_OK);
  EXPECT_TRUE(available);
  EXPECT_TRUE(Eventually([&] {
    return !host.IsInWork() && host.Statistics().find("confirmed=\"true\"") != std::string::npos;
  })) << "pings are confirmed once the host has let go of the statistics";
}

TEST_F(ExecutorLife, TwoExecutorsEndOneJobOnce) {
  for (int round = 0; round < 5; ++round) {
    const DataHome home;
    const TransferService service;
    Host host("twice");
    host.reportUrl = Publish("report", "ok");
    host.Start();
    const std::wstring arguments = ArgumentsOfNewestJob(service);
    void* const first = StartExecutor(ExecutorProgram(), arguments);
    void* const second = StartExecutor(ExecutorProgram(), arguments);
    EXPECT_EQ(EndOf(first), 0u);
    EXPECT_EQ(EndOf(second), 0u);
    EXPECT_FALSE(host.IsInWork());
    EXPECT_NE(host.Statistics().find("confirmed=\"true\""), std::string::npos);
    EXPECT_EQ(host.Statistics().find("<state "), std::string::npos) << "and not taken back";
  }
}

TEST_F(ExecutorLife, AnOldBlockWithoutAJobIsTakenBack) {
  constexpr int kDayHours = 24;
  const struct {
    const char* label;
    int ageHours;
    bool inWork;
  } cases[] = {{"two weeks", 14 * kDayHours, true},
               {"sixteen days", 16 * kDayHours, false},
               {"the clock was set back a year", -365 * kDayHours, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const DataHome home;
    const TransferService service;
    Host host("old");
    host.reportUrl = Publish("report", "ok");
    host.Start();
    const std::wstring arguments = ArgumentsOfNewestJob(service);
    const fs::path block = host.File("in_work_0.xml");
    fs::last_write_time(block, fs::last_write_time(block) - std::chrono::hours(c.ageHours));
    RunExecutor(kNoJob);
    EXPECT_TRUE(host.IsInWork()) << "its job is alive";
    RunExecutor(arguments.substr(arguments.find(L"--job")));  // the job is gone, the block is not
    EXPECT_EQ(host.IsInWork(), c.inWork);
    EXPECT_EQ(host.Statistics().find("<state ") == std::string::npos, c.inWork);
  }
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
  std::wstring arguments = ArgumentsOfNewestJob(service);
  const int sent = service.Count("\"call\":\"CreateJob\"");
  EXPECT_EQ(RunExecutor(arguments), 0u);
  EXPECT_EQ(service.Count("\"call\":\"CreateJob\""), sent) << "not before its period is over";
  std::string record = ReadBytes(host.File("appinfo.xml"));
  const std::string time = host.Record("LastPingTime");
  record.replace(record.find(time), time.size(), "1000");
  host.Uninstall();
  arguments = ArgumentsOfNewestJob(service);
  WriteBytes(host.File("appinfo.xml"), record);
  const int again = service.Count("\"call\":\"CreateJob\"");
  EXPECT_EQ(RunExecutor(arguments), 0u);
  EXPECT_EQ(service.Count("\"call\":\"CreateJob\""), again + 1);
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
  other.Uninstall();
  EXPECT_TRUE(Eventually([&] { return !fs::exists(program); })) << OutputOf(L"--status");
  EXPECT_TRUE(Eventually([&] { return Listing(program.parent_path()).empty(); }))
      << "the renamed file goes too: " << Listing(program.parent_path());
  EXPECT_EQ(Listing(DataFolder()), "");
}
