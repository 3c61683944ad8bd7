#include "proof/service_offline.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "proof/service_faults.h"
#include "proof/service_stage.h"
#include "testing/data_home.h"
#include "testing/dll_client.h"

using namespace testing_dll;

namespace proof {

namespace {

constexpr int kMostJobs = 20;
constexpr int kMostDaysOnline = 12;
constexpr std::int64_t kRetrySeconds = 700;  // the service's delay, and some more
// Less than a day, since the simulated days have no second more.
constexpr std::int32_t kSecondsBetweenReports = 43200;

std::string AppId(int number) { return "offline" + std::to_string(number); }
int StartsADay(int number) { return 1 + number % 3; }

std::string Value(int number, int day, int start) {
  return "v=" + std::to_string(number) + "-" + std::to_string(day) + "-" + std::to_string(start);
}

// Of the whole journal: the first process's part counts for the second too.
std::string Journal() {
  return ReadBytes(std::filesystem::path(Setting(L"KUPDATE_STANDIN_FOLDER")) / "journal.jsonl");
}

int Count(const std::string& text, std::string_view what) {
  int count = 0;
  for (std::size_t at = 0; (at = text.find(what, at)) != text.npos; at += what.size()) ++count;
  return count;
}

bool ExecutorsRest() {
  const std::string journal = Journal();
  return Count(journal, "\"event\":\"notify\"") == Count(journal, "\"event\":\"notify_exit\"");
}

// The most jobs that there were at one moment.
int MostJobsAtOnce() {
  static const std::regex call(
      "\"call\":\"(CreateJob|Complete|Cancel)\".*\"job\":\"([^\"]*)\".*\"result\":\"0x00000000\"");
  std::set<std::string> jobs;
  std::size_t most = 0;
  std::istringstream lines(Journal());
  for (std::string line; std::getline(lines, line);) {
    std::smatch match;
    if (!std::regex_search(line, match, call)) continue;
    if (match[1] == "CreateJob") {
      jobs.insert(match[2]);
    } else {
      jobs.erase(match[2]);
    }
    most = std::max(most, jobs.size());
  }
  return static_cast<int>(most);
}

void Start(int number) {
  Dll().onApplicationStartup(AppId(number).c_str(), "win64", HttpUrl("feed").c_str(),
                             HttpUrl("report").c_str(), kSecondsBetweenReports, 1, 0, 0, 0, true);
}

// The days as the service counts them.
class Calendar {
 public:
  Calendar(TransferService& service, int applications, std::int64_t seconds)
      : service_(service), applications_(applications), seconds_(seconds) {
    Pass(0);
  }

  void Pass(std::int64_t seconds) {
    seconds_ += seconds;
    service_.Control("later " + std::to_string(seconds_));
  }
  void NextDay() {
    for (int number = 0; number < applications_; ++number) {
      SetTimesBack(AppId(number), kSecondsPerDay);
    }
    Pass(kSecondsPerDay);
  }

 private:
  TransferService& service_;
  int applications_;
  std::int64_t seconds_;
};

// Since when, in days, each job has been there.
class JobAges {
 public:
  void Note(int day) {
    for (const standin::JobRecord& job : LiveJobs()) days_.try_emplace(job.id, day);
  }
  // Whether the service has yet to give up a job whose time is over.
  bool AnyOverdue(int day) const {
    for (const standin::JobRecord& job : LiveJobs()) {
      const auto since = days_.find(job.id);
      if (since == days_.end()) continue;
      if ((day - since->second) * kSecondsPerDay >= job.settings.noProgressSeconds) return true;
    }
    return false;
  }

 private:
  std::map<std::string, int> days_;
};

bool AllStalled() {
  const std::vector<standin::JobRecord> jobs = LiveJobs();
  return std::all_of(jobs.begin(), jobs.end(), [](const standin::JobRecord& job) {
    return standin::StateName(static_cast<int>(job.state)) == "TRANSIENT_ERROR";
  });
}

// What went wrong is told when it does.
bool Require(bool held, const std::string& what) {
  if (!held)
    std::fprintf(stderr, "  not held: %s; jobs: %s\n", what.c_str(), LiveJobsText().c_str());
  return held;
}

bool IsAllReported(int applications) {
  for (int number = 0; number < applications; ++number) {
    if (FilesOf(AppId(number)) != "appinfo.xml(1) statistics.xml(confirmed) updinfo.xml(2.0)") {
      return false;
    }
  }
  return true;
}

// What the web server got, against what the hosts said.
struct Reported {
  int values = 0;
  int missing = 0;
  int doubled = 0;
  int installs = 0;
  int dayuses = 0;
};

Reported Compare(const Weeks& weeks) {
  Reported result;
  for (int number = 0; number < weeks.applications; ++number) {
    const std::vector<std::string> reports = Reports(AppId(number));
    std::string all;
    for (const std::string& report : reports) {
      all += report + "&";
      result.installs += report.starts_with("stat=install");
      result.dayuses += report.starts_with("stat=dayuse");
    }
    for (int day = 0; day < weeks.days; ++day) {
      for (int start = 0; start < StartsADay(number); ++start) {
        const int times = Count(all, "&" + Value(number, day, start) + "&");
        ++result.values;
        result.missing += times == 0;
        result.doubled += times > 1;
      }
    }
  }
  return result;
}

}  // namespace

bool GoOffline(const Weeks& weeks) {
  EndAllJobs();
  CleanUserFolders();
  PlaceExecutor(Setting(L"KUPDATE_EXEC"));
  TransferService service;
  Calendar calendar(service, weeks.applications, 0);
  JobAges ages;
  bool held = true;
  for (int day = 0; day < weeks.days; ++day) {
    if (day > 0) {
      calendar.NextDay();
      held &= Require(Eventually([&] { return !ages.AnyOverdue(day) && ExecutorsRest(); }),
                      "what was due on day " + std::to_string(day));
    }
    for (int number = 0; number < weeks.applications; ++number) {
      for (int start = 0; start < StartsADay(number); ++start) {
        Start(number);
        Dll().usageReport(AppId(number).c_str(), Value(number, day, start).c_str());
        Dll().forceUpdateCheck(AppId(number).c_str(), false);
      }
    }
    held &= Require(Eventually([] { return AllStalled() && ExecutorsRest(); }),
                    "every job stalls on day " + std::to_string(day));
    ages.Note(day);
    std::fprintf(stderr, "  day %d offline: %s\n", day + 1, LiveJobsText().c_str());
  }
  return held;
}

bool ComeOnline(const Weeks& weeks) {
  Publish("feed", Feed());
  Publish("report", "ok");
  TransferService service;
  Calendar calendar(service, weeks.applications, weeks.days * kSecondsPerDay);
  calendar.Pass(kRetrySeconds);
  const auto isQuiet = [] { return LiveJobs().empty() && ExecutorsRest(); };
  bool held = Require(Eventually(isQuiet), "the jobs of the weeks offline end");
  int days = 0;
  while (days < kMostDaysOnline && !(days > 0 && IsAllReported(weeks.applications))) {
    ++days;
    calendar.NextDay();
    for (int number = 0; number < weeks.applications; ++number) Start(number);
    held &= Require(Eventually(isQuiet), "the jobs of day " + std::to_string(days) + " online end");
    std::fprintf(stderr, "  day %d online\n", days);
  }
  const Reported reported = Compare(weeks);
  const int most = MostJobsAtOnce();
  const bool isReported = IsAllReported(weeks.applications);
  held &= isReported && most <= kMostJobs && reported.missing == 0 && reported.doubled == 0 &&
          reported.installs == weeks.applications &&
          reported.dayuses >= weeks.applications * days &&
          reported.dayuses <= weeks.applications * (days + 1);
  std::printf(
      "| %d days offline, %d applications started 1 to 3 times a day, each with a report and a "
      "forced check (a day: stored times set "
      "back, "
      "the service's clock set forward) | at most %d jobs; in the end no job, no block in work; "
      "install once, at most one dayuse from before the network is back and one a day "
      "since; each of %d values once | at most %d jobs; %s, files %s after %d days online; "
      "install x%d, dayuse x%d; values missing: %d, doubled: %d | %s |\n",
      weeks.days, weeks.applications, kMostJobs, reported.values, most,
      LiveJobsText() == "none" ? "no job" : LiveJobsText().c_str(),
      isReported ? FilesOf(AppId(0)).c_str() : "left over", days, reported.installs,
      reported.dayuses, reported.missing, reported.doubled, held ? "yes" : "**no**");
  return held;
}

}  // namespace proof
