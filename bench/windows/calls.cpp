#include "bench/windows/calls.h"

#include <cstdio>
#include <cstdlib>

#include "testing/data_home.h"
#include "testing/dll_client.h"

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

// A closed port: jobs stay in work for as long as they are wanted.
constexpr char kFeedUrl[] = "http://127.0.0.1:9/feed.xml";
constexpr char kReportUrl[] = "http://127.0.0.1:9/report";
constexpr char kFeed[] =
    "<rss><channel><item><version:version>2.0.0.0</version:version>"
    "<version:status>release</version:status><guid>http://127.0.0.1/x</guid></item></channel></"
    "rss>";

// What the service is asked for when the executor is to be told of a download.
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

void NoCheckRuns() { StepOf("stop"); }

void CheckRuns() {
  StepOf("stop");
  StepOf("start");
}

std::string FeedUrl() {
  static const std::string url = Publish("bench.rss", kFeed);
  return url;
}

// A check whose feed has arrived and waits to be judged.
void FeedArrived() {
  const std::string url = FeedUrl();
  StepOf("stop");
  const TransferService service;
  Step(url.c_str(), "start", nullptr);
  if (!service.WaitFor("\"event\":\"transferred\"")) Fail("the feed does not arrive");
}

void UpdateFound() {
  static bool found = false;
  if (found) return;
  FeedArrived();
  std::int32_t status = 0;
  Step(kFeedUrl, "check", &status);
  if (status != KUPDATE_FOUND) Fail("no update is found");
  found = true;
}

void NoBlockInWork() {
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(AppFolder(), ignored)) {
    if (entry.path().filename().string().starts_with("in_work_")) fs::remove(entry, ignored);
  }
}

char text[256];
wchar_t wideText[256];

// The letters are explained in operations.h.
const std::vector<Call> kCalls = {
    {"DLLForceUpdateCheck",
     Start::kNothingDue,
     NoBlockInWork,
     [](int) { Dll().forceUpdateCheck(kAppId, false); },
     {"lmamolcmlarz llprlllxlxlxlxlrlxllarwfvz "
      "lrlpollwfvllwfvldlilllCllllllllllulrldllilllCllllllllllullczc",
      kTwoJobs}},
    {"DLLGetApplicationState",
     Start::kNothingDue,
     nullptr,
     [](int) {
       std::int32_t size = sizeof text;
       Dll().getApplicationState(kAppId, text, &size);
     },
     {"lmamolcmllrllczc", ""}},
    {"DLLGetOptionalParam",
     Start::kNothingDue,
     nullptr,
     [](int) {
       std::int32_t size = sizeof text;
       Dll().getOptionalParam(kAppId, text, &size);
     },
     {"lmamolcmllrllczc", ""}},
    {"DLLIsUpgradeAvailable",
     Start::kNothingDue,
     NoBlockInWork,
     [](int) {
       bool available = false;
       Dll().isUpgradeAvailable(kAppId, 0, &available);
     },
     {"lmamolcmlearz llprlllxlxlxlxlrlxllarwfvz "
      "lrlpollwfvllwfvldlilllCllllllllllulrldllilllCllllllllllullsxlllczc",
      kTwoJobs}},
    {"DLLOnApplicationStartup",
     Start::kNothingDue,
     nullptr,
     Startup,
     {"lmamolcmlarz prllprllllczc", ""},
     false,
     1},
    {"DLLOnApplicationStartup, all due",
     Start::kAllDue,
     nullptr,
     Startup,
     {"lmamolcmlarz prllprlllxlxlxlxlrlxllarwfvz "
      "lrlpollwfvllwfvldlilllCllllllllllulrldllilllCllllllllllulllczc",
      kTwoJobs},
     true},
    {"DLLOnApplicationStartup, the first",
     Start::kUnknown,
     nullptr,
     Startup,
     {"lmamxlllxllwfvllcmlaxzpopxxwfvllprlllxlxlxlxlrlxllaxwfvzlrlpllwfvldxld "
      "lilllCllllllllllulxdllilllCllllllllllulllczc",
      kTwoJobs},
     true,
     4},
    {"DLLOnApplicationUninstall",
     Start::kNothingDue,
     nullptr,
     [](int) { Dll().onApplicationUninstall(kAppId); },
     {"lmamolcmlarz proprrrwfvllprllxlxlxlxlrlxllarwfvz "
      "lrlpollwfvllwfvldlpprppmpcmparz cmpcilllCllllllllllulrllczc",
      kJob},
     true},
    {"DLLOnApplicationUninstall, again",
     Start::kRemoved,
     nullptr,
     [](int) { Dll().onApplicationUninstall(kAppId); },
     {"lmamolcmlarz prllprllxlxlxlxlrlxllarwfvz lrlllczc", ""}},
    {"DLLSetApplicationState",
     Start::kNothingDue,
     nullptr,
     [](int) { Dll().setApplicationState(kAppId, "dayuse"); },
     {"lmamolcmllrlllwfvllczc", ""}},
    {"DLLSetOptionalParam",
     Start::kNothingDue,
     nullptr,
     [](int number) { Dll().setOptionalParam(kAppId, ("a=" + std::to_string(number)).c_str()); },
     {"lmamolcmllrlllwfvlczc", ""}},
    {"DLLUsageReport",
     Start::kNothingDue,
     nullptr,
     [](int number) { Dll().usageReport(kAppId, ("a=" + std::to_string(number)).c_str()); },
     {"lmamolcmlarz lrlllwfvllprlllarwfvz czc", ""}},
    {"DLLGetLocale",
     Start::kNothingDue,
     nullptr,
     [](int) {
       std::int32_t size = sizeof text;
       Dll().getLocale(kAppId, text, &size);
     },
     {"lmamolcmlarz lczc", ""}},
    {"DLLGetUniqUserId",
     Start::kNothingDue,
     nullptr,
     [](int) { Dll().getUniqUserId(); },
     {"rl", ""}},
    {"DLLGetUniqueParam",
     Start::kNothingDue,
     nullptr,
     [](int) {
       std::int32_t size = sizeof wideText / sizeof *wideText;
       Dll().getUniqueParam(kAppId, "name", wideText, &size);
     },
     {"lmamolcmllrllczc", ""}},
    {"DLLIsUpdateAvailable, start",
     Start::kNothingDue,
     NoCheckRuns,
     [](int) { StepOf("start"); },
     {"lmarz prlllldillCllllllllllulcl",
      "CreateInstance EnumJobs CreateJob AddFile SetNoProgressTimeout SetPriority SetNotifyFlags "
      "Resume"}},
    {"DLLIsUpdateAvailable, check",
     Start::kNothingDue,
     CheckRuns,
     [](int) { StepOf("check"); },
     {"lmarz prlllliClulcl", "CreateInstance GetJob GetState GetProgress"},
     false,
     0},
    {"DLLIsUpdateAvailable, stop",
     Start::kNothingDue,
     CheckRuns,
     [](int) { StepOf("stop"); },
     {"lmarz prlllliCllucl", "CreateInstance GetJob GetState Cancel"}},
    {"DLLIsUpdateAvailable, update found",
     Start::kNothingDue,
     FeedArrived,
     [](int) {
       std::int32_t status = 0;
       Step(FeedUrl().c_str(), "check", &status);
     },
     {"lmarz prlllliCluiCllumrlllllaxzaxwfvzclylarwfvz cl",
      "CreateInstance GetJob GetState CreateInstance GetJob GetState Complete"},
     true,
     2},
    {"DLLSetLocale",
     Start::kNothingDue,
     nullptr,
     [](int number) { Dll().setLocale(kAppId, std::to_string(number).c_str()); },
     {"lmamolcmlarz larwfvz czc", ""}},
    {"DLLSetUniqueParam",
     Start::kNothingDue,
     nullptr,
     [](int number) { Dll().setUniqueParam(kAppId, "name", std::to_wstring(number).c_str()); },
     {"lmamolcmllrlllwfvlczc", ""}},
    {"DLLDownloadAndInstallSilentUpdate",
     Start::kNothingDue,
     UpdateFound,
     [](int) {
       std::int32_t code = 0;
       Dll().downloadAndInstallSilentUpdate(&code);
     },
     {"lellPlssrllll", ""},
     true},
    {"DLLSetExecutorPath",
     Start::kNothingDue,
     nullptr,
     [](int) { Dll().setExecutorPath(L"C:\\bench\\kupdate-exec.exe"); },
     {"llmarwfvzcl", ""}},
};

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
  Dll().onApplicationUninstall(kAppId);
  recordRemoved_ = ReadBytes(record);
  statisticsRemoved_ = ReadBytes(statistics);
  localRemoved_ = ReadBytes(localRecord_);
  if (record_.empty() || statistics_.empty() || statisticsRemoved_.empty() || local_.empty()) {
    Fail("the library writes no files");
  }
}

void Fixture::Restore(const Call& call) const {
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
