#include "proof/service_waits.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "proof/service_faults.h"
#include "proof/service_stage.h"
#include "testing/dll_client.h"

using namespace testing_dll;

namespace proof {

bool WaitBehindStarts(int starts) {
  constexpr char kAppId[] = "waits";
  constexpr std::int32_t kWaitMilliseconds = 30000;
  using Steady = std::chrono::steady_clock;
  PlaceExecutor(Setting(L"KUPDATE_EXEC"));
  const std::string feed = Publish("waits-feed", Feed());
  const std::string report = Publish("waits-report", "ok");
  int wrong = 0;
  int withoutExecutor = 0;  // Wine did not start it
  std::int64_t longest = 0;
  for (int i = 0; i < starts; ++i) {
    const TransferService service;  // counts from here
    SetTimesBack(kAppId, 2 * kSecondsPerDay);
    Dll().onApplicationStartup(kAppId, "win64", feed.c_str(), report.c_str(), 3600, 1, 0, 0, 0,
                               true);
    bool found = false;
    const auto begin = Steady::now();
    const kupdate_status status = Dll().isUpgradeAvailable(kAppId, kWaitMilliseconds, &found);
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Steady::now() - begin);
    longest = std::max<std::int64_t>(longest, took.count());
    // The service tries again after its delay, as the real one does; the host does not wait so long.
    const int unstarted = service.Count("cannot be started");
    if (unstarted > 0) EndAllJobs();
    // The files are set back by hand: nobody else may be at work on them.
    Eventually([&] {
      return LiveJobs().empty() &&
             service.Count("\"event\":\"notify\"") ==
                 service.Count("\"event\":\"notify_exit\"") + service.Count("cannot be started");
    });
    if (status == KUPDATE_S_OK && found) continue;
    if (status == KUPDATE_S_OK && unstarted > 0) {
      ++withoutExecutor;
      continue;
    }
    ++wrong;
    std::fprintf(stderr, "  start %d: status %d, \"no\" after %lld ms\n", i, status,
                 static_cast<long long>(took.count()));
  }
  const bool held = wrong == 0;
  std::printf(
      "| a host that waits for a check right behind its start learns of a published update | %d "
      "starts with reports on | %d wrong answers, %d hosts whose executor Wine did not start, "
      "longest "
      "wait %lld ms | %s |\n",
      starts, wrong, withoutExecutor, static_cast<long long>(longest), held ? "yes" : "**no**");
  std::fflush(stdout);
  return held;
}

}  // namespace proof
