// Eight hosts at once, with executors that the service starts: on one application and on eight.
#include <algorithm>
#include <vector>

#include "proof/storm.h"
#include "proof/storm_diary.h"
#include "proof/storm_host.h"
#include "proof/storm_row.h"
#include "proof/storm_service.h"
#include "proof/storm_stores.h"
#include "testing/data_home.h"
#include "testing/dll_client.h"
#include "util/win/windows_lean.h"

namespace storm {

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

constexpr int kHosts = 8;

struct Running {
  HostPlan plan;
  HANDLE process;
};

// Starts eight hosts; host i calls the application of i modulo `applications`.
std::vector<Running> StartHosts(HostPlan plan, const std::string& name, int applications) {
  MakeExecutor();
  Dll().setExecutorPath(ExecutorPath().c_str());
  std::vector<Running> hosts;
  for (int i = 0; i < kHosts; ++i) {
    plan.appId = name + std::to_string(i % applications);
    plan.name = name + "." + std::to_string(i);
    plan.seed += 1;
    plan.diary = ProcessTempFolder() / (plan.name + ".txt");
    if (i < applications) Register(plan.appId, FeedUrl().c_str());
    hosts.push_back({plan, nullptr});
  }
  for (Running& host : hosts) host.process = StartHost(host.plan);
  return hosts;
}

std::uintmax_t SizeOf(const fs::path& file) {
  std::error_code missing;
  const std::uintmax_t size = fs::file_size(file, missing);
  return missing ? 0 : size;
}

// Waits for the hosts' ends. The watchdog is content only while each of those that live gets on.
std::vector<Account> AccountsOf(const std::vector<Running>& hosts) {
  std::vector<std::uintmax_t> sizes(hosts.size());
  for (std::size_t ended = 0; ended < hosts.size();) {
    std::size_t moved = 0;
    ended = 0;
    for (std::size_t i = 0; i < hosts.size(); ++i) {
      const std::uintmax_t size = SizeOf(hosts[i].plan.diary);
      const bool hasEnded = ::WaitForSingleObject(hosts[i].process, 0) == WAIT_OBJECT_0;
      ended += hasEnded;
      moved += hasEnded || size > sizes[i];
    }
    if (moved == hosts.size()) {
      Progress("");
      for (std::size_t i = 0; i < hosts.size(); ++i) sizes[i] = SizeOf(hosts[i].plan.diary);
    }
    if (ended < hosts.size()) ::Sleep(100);
  }
  std::vector<Account> accounts;
  for (const Running& host : hosts) {
    ::CloseHandle(host.process);
    accounts.push_back(ReadDiary(host.plan.diary));
    fs::remove(host.plan.diary);
  }
  return accounts;
}

// All calls of all hosts, and what they tried, by application.
struct Sum {
  int calls = 0;
  int failed = 0;
  int died = 0;
  unsigned longestMilliseconds = 0;
  int longestCall = 0;
  std::map<std::string, Counts> items;
};

Sum SumOf(const std::vector<Running>& hosts, int applications) {
  Sum sum;
  const std::vector<Account> accounts = AccountsOf(hosts);
  for (std::size_t i = 0; i < hosts.size(); ++i) {
    const Account& account = accounts[i];
    Counts& items = sum.items[hosts[i].plan.appId];
    // The first call of all made the application known.
    if (static_cast<int>(i) < applications) ++items["install"];
    for (const std::string& item : account.tried) {
      if (item[0] != 'L') ++items[item];
    }
    sum.calls += account.calls;
    sum.failed += account.failed;
    sum.died += account.unfinished != 0 || account.calls == 0;
    if (account.longestMilliseconds < sum.longestMilliseconds) continue;
    sum.longestMilliseconds = account.longestMilliseconds;
    sum.longestCall = account.longestCall;
  }
  return sum;
}

bool DeliverAll(const Sum& sum) {
  std::vector<std::string> appIds;
  for (const auto& [appId, items] : sum.items) appIds.push_back(appId);
  return Deliver(appIds);
}

// What has arrived is what was tried: no more, no less.
void CompareExactly(const std::string& appId, const Counts& tried, const Counts& arrived,
                    Complaints* complaints) {
  for (const auto& [item, times] : tried) {
    const auto found = arrived.find(item);
    const int came = found == arrived.end() ? 0 : found->second;
    if (came != times) {
      complaints->Add(appId + ": " + item + " came " + std::to_string(came) + " times of " +
                      std::to_string(times));
    }
  }
}

bool RunCrowd(const std::string& name, int applications, int calls, std::uint32_t seed) {
  const DataHome home;
  HostPlan plan;
  Arrivals arrivals;
  plan.manner = Manner::kCrowd;
  plan.seed = seed;
  plan.calls = calls;
  const Sum sum = SumOf(StartHosts(plan, name, applications), applications);
  Progress(name + ": " + std::to_string(sum.calls) + " calls made");
  Complaints complaints;
  int items = 0;
  if (!DeliverAll(sum)) complaints.Add("not all could be sent");
  arrivals.Update();
  for (const auto& [appId, tried] : sum.items) {
    CompareExactly(appId, tried, arrivals.Of(appId), &complaints);
    for (const auto& [item, times] : tried) items += times;
  }
  if (sum.failed > 0) complaints.Add(std::to_string(sum.failed) + " calls failed");
  if (sum.calls != kHosts * calls) complaints.Add("only " + std::to_string(sum.calls) + " calls");
  return Row(
      "all states, parameters and actions arrive exactly once",
      "8 processes with " + std::to_string(calls) + " calls on " + std::to_string(applications) +
          (applications == 1 ? " application" : " applications") + ", seed " + std::to_string(seed),
      complaints.Text() + " in " + std::to_string(items) + " items, longest call " +
          std::to_string(sum.longestMilliseconds) + " ms (ordinal " +
          std::to_string(sum.longestCall) + ")",
      complaints.none());
}

}  // namespace

bool RunContention(int calls, std::uint32_t seed) {
  const bool one = RunCrowd("one", 1, calls, seed);
  return RunCrowd("eight", kHosts, calls, seed) && one;
}

bool RunWaiting(int seconds, std::uint32_t seed) {
  constexpr int kApplications = 2;
  const DataHome home;
  HostPlan plan;
  plan.manner = Manner::kImpatient;
  plan.seed = seed;
  plan.seconds = seconds;
  const Sum sum = SumOf(StartHosts(plan, "wait", kApplications), kApplications);
  Complaints complaints;
  if (sum.failed > 0) complaints.Add(std::to_string(sum.failed) + " calls failed");
  if (sum.died > 0) complaints.Add(std::to_string(sum.died) + " hosts died");
  if (!DeliverAll(sum)) complaints.Add("not all could be sent");
  return Row("no deadlock while hosts wait for executors",
             "8 processes on 2 applications, " + std::to_string(seconds) + " s, seed " +
                 std::to_string(seed),
             complaints.Text() + " in " + std::to_string(sum.calls) + " calls, longest " +
                 std::to_string(sum.longestMilliseconds) + " ms (ordinal " +
                 std::to_string(sum.longestCall) + ")",
             complaints.none());
}

}  // namespace storm
