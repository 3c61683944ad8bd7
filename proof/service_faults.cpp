#include "proof/service_faults.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <utility>

#include "proof/service_stage.h"
#include "proof/service_web.h"
#include "testing/data_home.h"
#include "testing/dll_client.h"
#include "util/process.h"
#include "util/text.h"

using namespace testing_dll;

namespace proof {

namespace {

constexpr char kOddPath[] = "/odd";
constexpr std::int64_t kRetrySeconds = 700;  // the service's delay, and some more

// How things stand, as a row shows it.
struct Standing {
  std::string host;
  std::string files;
  std::string jobs;
  std::vector<std::string> log;

  bool operator==(const Standing&) const = default;

  std::string Text() const {
    std::string text = host.empty() ? "" : "host: " + host + "; ";
    text += files + "; jobs: " + jobs;
    for (const std::string& line : log) text += "; `" + line + "`";
    return text;
  }
};

// One fault from its beginning to its good end.
class Run {
 public:
  explicit Run(const Fault& fault) : fault_(fault), appId_("app" + std::to_string(++number)) {
    EndAllJobs();
    CleanUserFolders();
    PlaceProgram();
    feed_ = Publish("feed", Feed());
    report_ = Publish("report", "ok");
    // At the slow address these take two seconds.
    Publish("long-feed", Feed() + std::string(40000, ' '));
    Publish("long-report", std::string(40000, ' '));
  }

  // Returns whether it ended as it must.
  bool Execute() {
    SetTheScene();
    Call(FaultyAddress());
    LetItStrike();
    const Standing wanted = Wanted();
    Standing found;
    bool held = Eventually([&] { return (found = Found()) == wanted && ExecutorsRest(); });
    MendAll();
    const std::string goodEnd = GoodEnd();
    std::string end;
    held = Eventually([&] { return (end = End()) == goodEnd && ExecutorsRest(); }) && held;
    std::printf("| %s | %s; then: %s | %s; then: %s | %s |\n", fault_.label, wanted.Text().c_str(),
                goodEnd.c_str(), found.Text().c_str(), end.c_str(), held ? "yes" : "**no**");
    std::fflush(stdout);
    return held;
  }

 private:
  void PlaceProgram() const {
    if (fault_.program == Program::kMissing) RemoveExecutor();
    // This program crashes when it is started under the executor's name.
    if (fault_.program == Program::kCrashing) PlaceExecutor(ModulePath());
    if (fault_.program == Program::kGood) PlaceExecutor(Setting(L"KUPDATE_EXEC"));
  }

  void SetTheScene() {
    odd_.Answer("/good", GoodAnswer(Feed()));
    if (!fault_.get.empty()) odd_.Answer(kOddPath, fault_.get, fault_.head);
    if (fault_.serverIsAway) {
      odd_.Answer(kOddPath, GoodAnswer(Feed()));
      odd_.GoAway();
    }
    if (fault_.quotaIsUsedUp) quota_.emplace(60);
    if (fault_.clock != Clock::kRight) {
      // The application has been there before, with the service away, so that nothing was sent.
      service_.Control("fail CreateInstance 0x80070422");
      Call({});
      SetTimesBack(appId_, (fault_.clock == Clock::kAYearBack ? -365 : 365) * Fault::kDay);
    }
    service_.Control(fault_.control);  // last: the calls are counted from here
  }

  std::string FaultyAddress() const {
    if (!fault_.get.empty() || fault_.serverIsAway) return odd_.Url(kOddPath);
    return *fault_.path ? HttpUrl(fault_.path) : std::string();
  }

  // The host's call, with the good address when there is no other.
  void Call(const std::string& address) {
    const std::string url = !address.empty()               ? address
                            : fault_.route == Route::kPing ? report_
                                                           : feed_;
    switch (fault_.route) {
      case Route::kCheck:
        Start(url, {});
        return;
      case Route::kPing:
        if (!std::exchange(hasParameter_, true)) Dll().setOptionalParam(appId_.c_str(), "p=1");
        Start({}, url);
        return;
      case Route::kHostCheck:
        hostUrl_ = url;
        if (Step("start") != "in work") told_ = "no check";
    }
  }
  void Start(const std::string& feed, const std::string& report) const {
    Dll().onApplicationStartup(appId_.c_str(), "win64", feed.c_str(), report.c_str(), 3600, 1, 0, 0,
                               0, true);
  }
  std::string Step(const char* operation) {
    constexpr const char* kAnswers[] = {"in work", "update found", "no update", "job failed"};
    std::int32_t status = KUPDATE_IN_WORK;
    const kupdate_status result = Dll().isUpdateAvailable(appId_.c_str(), "win64", 1, 0, 0, 0, true,
                                                          hostUrl_.c_str(), operation, &status);
    return result == KUPDATE_S_OK ? kAnswers[status] : "failure";
  }
  // Asks on until there is an answer.
  void Poll() {
    Eventually([&] { return (told_ = Step("check")) != "in work"; });
  }

  void LetItStrike() {
    if (*fault_.until) service_.WaitFor(fault_.until);
    switch (fault_.strike) {
      case Strike::kNone:
        break;
      case Strike::kRestart:
        Eventually(IsFetching);
        StopService();
        WakeService();
        break;
      case Strike::kRestartUnheard:
        StopService();
        PlaceExecutor(Setting(L"KUPDATE_EXEC"));
        WakeService();
        break;
      case Strike::kServerComesBack:
        odd_.ComeBack();
        break;
      case Strike::kServerRecovers:
        odd_.Answer(kOddPath, GoodAnswer(Feed()));
        break;
    }
    Pass(fault_.lastsSeconds);
    if (fault_.route != Route::kHostCheck || told_ == "no check") return;
    if (std::string_view(fault_.host) == "in work") {
      told_ = Step("check");
    } else {
      Poll();
    }
  }

  // Time passes for the service.
  void Pass(std::int64_t seconds) {
    if (seconds == 0) return;
    laterSeconds_ += seconds;
    service_.Control(std::string(isMended_ ? "" : fault_.control) + "\nlater " +
                     std::to_string(laterSeconds_));
  }

  Standing Wanted() const {
    return {fault_.host, fault_.files, fault_.jobs, {fault_.log.begin(), fault_.log.end()}};
  }
  Standing Found() const {
    Standing found{told_, FilesOf(appId_), LiveJobsText(), {}};
    for (const char* line : fault_.log) {
      if (IsLogged(line)) found.log.emplace_back(line);
    }
    return found;
  }
  // No executor is at work on what is looked at.
  bool ExecutorsRest() const {
    return service_.Count("\"event\":\"notify\"") ==
           service_.Count("\"event\":\"notify_exit\"") + service_.Count("cannot be started");
  }

  void MendAll() {
    isMended_ = true;
    quota_.reset();
    PlaceExecutor(Setting(L"KUPDATE_EXEC"));
    asked_ = odd_.Asked().size();
    odd_.Answer(kOddPath, GoodAnswer(Feed()));
    odd_.ComeBack();
    Pass(kRetrySeconds);
    for (int starts = 0; starts < fault_.starts; ++starts) StartLater();
  }
  // The time passes, and the host starts again.
  void StartLater() {
    Pass(fault_.laterSeconds);
    Eventually([&] { return ExecutorsRest() && !IsAboutToEnd(); });
    SetTimesBack(appId_, fault_.laterSeconds);
    if (!LiveJobs().empty()) SetJobTimesBack(fault_.laterSeconds);
    if (fault_.route != Route::kHostCheck) return Call({});
    if (told_ != "in work") Call({});
    Poll();
    // What such a host leaves is seen to by the executor of a check of the service's.
    Dll().forceUpdateCheck(appId_.c_str(), false);
  }
  // Whether the service is yet to try a transfer, or to start the executor, by itself.
  static bool IsAboutToEnd() {
    const std::vector<standin::JobRecord> jobs = LiveJobs();
    return std::any_of(jobs.begin(), jobs.end(), [](const standin::JobRecord& job) {
      const bool isFetching = job.state == standin::JobState::kQueued ||
                              job.state == standin::JobState::kConnecting ||
                              job.state == standin::JobState::kTransientError;
      return job.noticeDue || isFetching;
    });
  }

  std::string GoodEnd() const {
    const std::string jobs = "; jobs: none";
    switch (fault_.route) {
      case Route::kCheck:
        return "appinfo.xml(1) statistics.xml(install) updinfo.xml(2.0)" + jobs;
      case Route::kHostCheck:
        return "host: update found; ID-version.rss appinfo.xml(1) updinfo.xml(2.0) version.rss" +
               jobs;
      case Route::kPing:
        break;
    }
    return "appinfo.xml statistics.xml(confirmed)" + jobs + "; p=1 has arrived x" +
           std::to_string(fault_.reports);
  }
  std::string End() const {
    const std::string text = FilesOf(appId_) + "; jobs: " + LiveJobsText();
    if (fault_.route == Route::kHostCheck) return "host: " + told_ + "; " + text;
    if (fault_.route == Route::kCheck) return text;
    return text + "; p=1 has arrived x" + std::to_string(ParametersArrived());
  }
  int ParametersArrived() const {
    std::vector<std::string> asked = odd_.Asked();
    asked.erase(asked.begin(), asked.begin() + static_cast<std::ptrdiff_t>(asked_));
    int count = 0;
    for (const auto& list : {Reports(appId_), ReportsAmong(asked, appId_)}) {
      for (const std::string& report : list) count += report.find("p=1") != report.npos;
    }
    return count;
  }

  static inline int number = 0;

  const Fault& fault_;
  const std::string appId_;
  DataHome home_;
  TransferService service_;
  OddWeb odd_;
  std::optional<OtherProgramsJobs> quota_;
  std::string feed_;
  std::string report_;
  std::string hostUrl_;
  std::string told_;
  bool hasParameter_ = false;
  bool isMended_ = false;
  std::int64_t laterSeconds_ = 0;
  std::size_t asked_ = 0;
};

}  // namespace

std::string Feed() {
  return "<?xml version=\"1.0\" encoding=\"utf-8\"?><rss version=\"2.0\"><channel><item>"
         "<version:version>2.0.0.0</version:version><version:status>release</version:status>"
         "<guid>http://d/f</guid></item></channel></rss>";
}

int RunFaults(const std::vector<Fault>& faults) {
  int failed = 0;
  for (const Fault& fault : faults) {
    std::fprintf(stderr, "  %s\n", fault.label);
    if (!Run(fault).Execute()) ++failed;
  }
  return failed;
}

}  // namespace proof
