#include "bench/windows/calls.h"

#include <cstdio>
#include <cstdlib>

#include "testing/data_home.h"
#include "testing/dll_client.h"

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

// No server listens on this port, so jobs stay in work until they are cancelled.
constexpr char kFeedUrl[] = "http://127.0.0.1:9/feed.xml";
constexpr char kReportUrl[] = "http://127.0.0.1:9/report";
constexpr char kFeed[] =
    "<rss><channel><item><version:version>2.0.0.0</version:version>"
    "<version:status>release</version:status><guid>http://127.0.0.1/x</guid></item></channel></"
    "rss>";

// The calls for a job that starts the executor at its end.
#define JOB \
  "CreateJob AddFile SetNoProgressTimeout SetPriority SetNotifyFlags SetNotifyCmdLine Resume"
constexpr char kJob[] = "CreateInstance EnumJobs " JOB;
constexpr char kTwoJobs[] =
    "CreateInstance EnumJobs " JOB " CreateInstance EnumJobs GetDisplayName GetState " JOB;
#undef JOB

fs::path AppFolder() { return DataFolder() / kAppId; }

[[noreturn]] void Fail(const char* what) {
  std::fprintf(stderr, "failed: %s\n", what);
  std::exit(2);
}

void Startup(int) {
  Dll().onApplicationStartup(kAppId, "win64", kFeedUrl, kReportUrl, 86400, 1, 0, 0, 0, true);
}

kupdate_status Step(const char* url, const char* operation, std::int32_t* status) {
  return Dll().isUpdateAvailable(kAppId, "win64", 1, 0, 0, 0, true, url, operation, status);
}

void StepOf(const char* operation) {
  std::int32_t status = 0;
  Step(kFeedUrl, operation, &status);
}

// The check belongs to the process, not to the application's files, so Fixture cannot reset it.
void NoCheckRuns() { StepOf("stop"); }

void CheckRuns() {
  StepOf("stop");
  StepOf("start");
}

std::string FeedUrl() {
  static const std::string url = Publish("bench.rss", kFeed);
  return url;
}

// Leaves a check whose feed has arrived and is not judged yet.
void FeedArrived() {
  const std::string url = FeedUrl();
  StepOf("stop");
  // Made before the job: it looks at journal lines from now on.
  const TransferService service;
  Step(url.c_str(), "start", nullptr);
  if (!Eventually([&] { return service.Count("\"event\":\"transferred\"") > 0; }))
    Fail("the feed does not arrive");
}

// Once for the process: installing does not use the found update up.
void UpdateFound() {
  static bool found = false;
  if (found) return;
  FeedArrived();
  std::int32_t status = 0;
  Step(kFeedUrl, "check", &status);
  if (status != KUPDATE_FOUND) Fail("no update is found");
  found = true;
}

// Blocks stay in work, since no report arrives. Each one would make the next call look for a free
// number once more, so that its trace would differ.
void NoBlockInWork() {
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(AppFolder(), ignored)) {
    if (entry.path().filename().string().starts_with("in_work_")) fs::remove(entry, ignored);
  }
}

char text[256];
wchar_t wideText[256];

// After a change of the library, `call_bench trace` prints the new words of rows that differ.
const std::vector<Call> kCalls = {
    {.name = "DLLForceUpdateCheck",
     .ready = NoBlockInWork,
     .run = [](int) { Dll().forceUpdateCheck(kAppId, false); },
     .demand =
         {OpsOf("enter log get log*2 look report log read log look open log*2 save log*2 save log "
                "delete log submit log read log delete log*2 submit log*2 leave"),
          kTwoJobs}},
    {.name = "DLLGetApplicationState",
     .run =
         [](int) {
           std::int32_t size = sizeof text;
           Dll().getApplicationState(kAppId, text, &size);
         },
     .demand = {OpsOf("enter log*2 read log*2 leave")}},
    {.name = "DLLGetOptionalParam",
     .run =
         [](int) {
           std::int32_t size = sizeof text;
           Dll().getOptionalParam(kAppId, text, &size);
         },
     .demand = {OpsOf("enter log*2 read log*2 leave")}},
    {.name = "DLLIsUpgradeAvailable",
     .ready = NoBlockInWork,
     .run =
         [](int) {
           bool available = false;
           Dll().isUpgradeAvailable(kAppId, 0, &available);
         },
     .demand =
         {OpsOf(
              "enter log event get log*2 look report log read log look open log*2 save log*2 save "
              "log delete log submit log read log delete log*2 submit log*2 wait miss log*3 leave"),
          kTwoJobs}},
    {.name = "DLLOnApplicationStartup",
     .run = Startup,
     .demand = {OpsOf("enter log get look read log*2 look read log*4 leave")},
     .mostWrites = 1},
    {.name = "DLLOnApplicationStartup, all due",
     .start = Start::kAllDue,
     .run = Startup,
     .demand =
         {OpsOf("enter log get look read log*2 look report log read log look open log*2 save log*2 "
                "save log delete log submit log read log delete log*2 submit log*3 leave"),
          kTwoJobs},
     .once = true},
    {.name = "DLLOnApplicationStartup, the first",
     .start = Start::kUnknown,
     .run = Startup,
     .demand =
         {OpsOf("log mutex acquire mutex miss log*3 miss log*2 save log*2 close mutex log acquire "
                "miss release look open look miss*2 save log*2 look read log*3 miss log miss log "
                "miss log miss log read log miss log*2 acquire miss save release log read log look "
                "log*2 save log delete miss log delete log submit log miss delete log*2 submit "
                "log*3 leave"),
          kTwoJobs},
     .once = true,
     .mostWrites = 4},
    {.name = "DLLOnApplicationUninstall",
     .run = [](int) { Dll().onApplicationUninstall(kAppId); },
     .demand =
         {OpsOf(
              "enter log get look read open look read*3 save log*2 look read log*2 miss log miss "
              "log miss log miss log read log miss log*2 change log read log look open log*2 save "
              "log*2 save log delete log look*2 read look*2 mutex look close mutex look get close "
              "mutex look close submit log read log*2 leave"),
          kJob},
     .once = true},
    {.name = "DLLOnApplicationUninstall, again",
     .start = Start::kRemoved,
     .run = [](int) { Dll().onApplicationUninstall(kAppId); },
     .demand = {OpsOf(
         "enter log get look read log*2 look read log*2 miss log miss log miss log miss log "
         "read log miss log*2 change log read log*3 leave")}},
    {.name = "DLLSetApplicationState",
     .run = [](int) { Dll().setApplicationState(kAppId, "dayuse"); },
     .demand = {OpsOf("enter log*2 read log*3 save log*2 leave")}},
    {.name = "DLLSetOptionalParam",
     .run =
         [](int number) {
           Dll().setOptionalParam(kAppId, ("a=" + std::to_string(number)).c_str());
         },
     .demand = {OpsOf("enter log*2 read log*3 save log leave")}},
    {.name = "DLLUsageReport",
     .run = [](int number) { Dll().usageReport(kAppId, ("a=" + std::to_string(number)).c_str()); },
     .demand = {OpsOf("enter log get log read log*3 save log*2 look read log*3 change leave")}},
    {.name = "DLLGetLocale",
     .run =
         [](int) {
           std::int32_t size = sizeof text;
           Dll().getLocale(kAppId, text, &size);
         },
     .demand = {OpsOf("enter log get log leave")}},
    {.name = "DLLGetUniqUserId",
     .run = [](int) { Dll().getUniqUserId(); },
     .demand = {OpsOf("read log")}},
    {.name = "DLLGetUniqueParam",
     .run =
         [](int) {
           std::int32_t size = sizeof wideText / sizeof *wideText;
           Dll().getUniqueParam(kAppId, "name", wideText, &size);
         },
     .demand = {OpsOf("enter log*2 read log*2 leave")}},
    {.name = "DLLIsUpdateAvailable, start",
     .ready = NoCheckRuns,
     .run = [](int) { StepOf("start"); },
     .demand = {OpsOf(
                    "log mutex get look read log*4 delete enter-com log*2 service log*10 leave-com "
                    "log close log"),
                "CreateInstance EnumJobs CreateJob AddFile SetNoProgressTimeout SetPriority "
                "SetNotifyFlags "
                "Resume"}},
    {.name = "DLLIsUpdateAvailable, check",
     .ready = CheckRuns,
     .run = [](int) { StepOf("check"); },
     .demand = {OpsOf(
                    "log mutex get look read log*4 enter-com service log leave-com log close log"),
                "CreateInstance GetJob GetState GetProgress"},
     .mostWrites = 0},
    {.name = "DLLIsUpdateAvailable, stop",
     .ready = CheckRuns,
     .run = [](int) { StepOf("stop"); },
     .demand = {OpsOf("log mutex get look read log*4 enter-com service log*2 leave-com close log"),
                "CreateInstance GetJob GetState Cancel"}},
    {.name = "DLLIsUpdateAvailable, update found",
     .ready = FeedArrived,
     .run =
         [](int) {
           std::int32_t status = 0;
           Step(FeedUrl().c_str(), "check", &status);
         },
     .demand =
         {OpsOf("log mutex get look read log*4 enter-com service log leave-com enter-com service "
                "log*2 leave-com mutex read log*5 acquire miss release acquire miss save release "
                "close "
                "log copy log change close log"),
          "CreateInstance GetJob GetState CreateInstance GetJob GetState Complete"},
     .once = true,
     .mostWrites = 2},
    {.name = "DLLSetLocale",
     .run = [](int number) { Dll().setLocale(kAppId, std::to_string(number).c_str()); },
     .demand = {OpsOf("enter log get log change leave")}},
    {.name = "DLLSetUniqueParam",
     .run =
         [](int number) { Dll().setUniqueParam(kAppId, "name", std::to_wstring(number).c_str()); },
     .demand = {OpsOf("enter log*2 read log*3 save log leave")}},
    {.name = "DLLDownloadAndInstallSilentUpdate",
     .ready = UpdateFound,
     .run =
         [](int) {
           std::int32_t code = 0;
           Dll().downloadAndInstallSilentUpdate(&code);
         },
     .demand = {OpsOf("log event log*2 program log wait*2 read log*4")},
     .once = true},
    {.name = "DLLSetExecutorPath",
     .run = [](int) { Dll().setExecutorPath(L"C:\\bench\\kupdate-exec.exe"); },
     .demand = {OpsOf("log*2 mutex change close log")}},
};

// Without the time of the last report or check, that one is due.
std::string Without(std::string record, const std::string& key) {
  const std::size_t begin = record.find("<" + key + ">");
  const std::string end = "</" + key + ">";
  if (begin == record.npos) Fail("the record lacks a time");
  return record.erase(begin, record.find(end, begin) + end.size() - begin);
}

}  // namespace

const std::vector<Call>& Calls() { return kCalls; }

Fixture::Fixture() : folder_(AppFolder()), localRecord_(LocalFolder() / kAppId / "local.xml") {
  const fs::path record = folder_ / "appinfo.xml";
  const fs::path statistics = folder_ / "statistics.xml";
  Startup(0);
  Dll().setLocale(kAppId, "en");
  Dll().setUniqueParam(kAppId, "name", L"value");
  Dll().setOptionalParam(kAppId, "a=1");
  record_ = ReadBytes(record);
  statistics_ = ReadBytes(statistics);
  local_ = ReadBytes(localRecord_);
  recordDue_ = Without(Without(record_, "LastPingTime"), "LastCheckTime");
  // Last, since it changes the files that were read above.
  Dll().onApplicationUninstall(kAppId);
  recordRemoved_ = ReadBytes(record);
  statisticsRemoved_ = ReadBytes(statistics);
  localRemoved_ = ReadBytes(localRecord_);
  if (record_.empty() || statistics_.empty() || statisticsRemoved_.empty() || local_.empty()) {
    Fail("the library writes no files");
  }
}

void Fixture::Restore(const Call& call) const {
  // The library itself looks at earlier jobs, and the service refuses more than a number of them.
  if (*call.demand.service) CancelAllJobs();
  NoBlockInWork();
  if (call.start == Start::kUnknown) {
    fs::remove(folder_ / "appinfo.xml");
    fs::remove(folder_ / "statistics.xml");
    fs::remove(localRecord_);
    return;
  }
  const bool removed = call.start == Start::kRemoved;
  WriteBytes(folder_ / "appinfo.xml", removed                        ? recordRemoved_
                                      : call.start == Start::kAllDue ? recordDue_
                                                                     : record_);
  WriteBytes(localRecord_, removed ? localRemoved_ : local_);
  WriteBytes(folder_ / "statistics.xml", removed ? statisticsRemoved_ : statistics_);
}

Bare MakeBare() {
  const std::wstring executor = RoamingFolder() / "kupdate-exec.exe";
  return Bare(DataFolder() / "bare", ReadBytes(AppFolder() / "appinfo.xml"), executor,
              executor + L" --appid bench --silent-update-check");
}

void MakeFirstCall() {
  std::int32_t size = 0;
  Dll().getLocale(kAppId, nullptr, &size);
}
