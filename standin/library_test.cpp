// The library's transfers against the service within this process. So jobs can have any history, and
// clients get the newer interfaces, for which Wine has no proxies.
#include <vector>

#include <gtest/gtest.h>
#include "standin/com_manager.h"
#include "standin/job_file.h"
#include "standin/service.h"
#include "testing/data_home.h"
#include "testing/log_capture.h"
#include "testing/raw_server.h"
#include "testing/transfer_service.h"
#include "transfer/bits_transfer.h"
#include "transfer/transfer.h"
#include "util/clock.h"
#include "util/text.h"
#include "util/win/windows_lean.h"
// After the system's header, which it needs.
#include <bits.h>

namespace {

namespace fs = std::filesystem;
using standin::JobRecord;
using testing_dll::Eventually;
using State = standin::JobState;

constexpr std::uint64_t kDay = 86400;
constexpr wchar_t kProgram[] = L"C:\\none.exe";

// So many jobs of ours, made and last touched so many seconds ago.
struct Group {
  int count = 0;
  State state = State::kQueued;
  std::uint64_t age = 0;
  const wchar_t* program = L"";
};

class OwnService {
 public:
  explicit OwnService(std::string_view control, const std::vector<Group>& groups = {}) {
    static int made = 0;
    folder_ = ProcessTempFolder() / std::to_string(++made);
    fs::create_directories(folder_);
    WriteBytes(folder_ / "jobs.txt", standin::FormatJobs(JobsOf(groups)));
    WriteBytes(folder_ / "control.txt", control);
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    // Leaked: a transfer may outlast the test.
    service_ = new standin::Service(folder_.wstring() + L"\\");
    service_->jobs.Load();
    IClassFactory* const factory = standin::NewManagerFactory(*service_);
    EXPECT_EQ(S_OK, ::CoRegisterClassObject(__uuidof(BackgroundCopyManager), factory,
                                            CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE, &cookie_));
    factory->Release();
  }
  ~OwnService() {
    ::CoRevokeClassObject(cookie_);
    for (const auto& job : service_->jobs.Live()) job->Cancel();
    service_->journal.Close();
    ::CoUninitialize();
  }

  int Calls(const std::string& name) const {
    int count = 0;
    for (const std::string& line : LinesOf(ReadBytes(folder_ / "journal.jsonl"))) {
      count += line.find("\"call\":\"" + name + "\"") != line.npos;
    }
    return count;
  }
  // Whether a job was made.
  bool Transfer(JobPurpose purpose, const std::string& url = "http://127.0.0.1:9/") const {
    TBitsTransfer transfer(url, (folder_ / "target").wstring(), purpose);
    if (purpose != JobPurpose::kHostFeed) transfer.NotifyCmdLine(kProgram, L"--appid a");
    transfer.Work();
    return transfer.Added();
  }

 private:
  static std::vector<JobRecord> JobsOf(const std::vector<Group>& groups) {
    constexpr std::uint64_t kTicks = 10'000'000, kTicksBefore1970 = 116'444'736'000'000'000;
    std::vector<JobRecord> jobs;
    for (const Group& group : groups) {
      const std::uint64_t time = (NowSeconds() - group.age) * kTicks + kTicksBefore1970;
      JobRecord job{.id = {}, .owner = "self", .state = group.state, .times = {time, time, 0}};
      job.settings.displayName = L"Kupdate-task";
      if (*group.program) job.settings.notifyProgram = group.program;
      for (int i = 0; i < group.count; ++i) {
        job.id = "{00000000-0000-0000-0000-" + DecimalText(100'000'000'000 + jobs.size()) + "}";
        jobs.push_back(job);
      }
    }
    return jobs;
  }

  fs::path folder_;
  standin::Service* service_ = nullptr;
  DWORD cookie_ = 0;
};

}  // namespace

TEST(Library, LeavesRoomForOthersAndForChecks) {
  const State queued = State::kQueued, error = State::kError;
  const std::uint64_t now = 60, day = kDay + 60, month = 30 * kDay + 60;
  const struct {
    const char* label;
    std::vector<Group> groups;
    const char* made;  // of a host's feed, a check and a report
    int ended;
    int asked;  // for their programs
  } cases[] = {
      {"room for all", {{18, queued, month, kProgram}}, "hcr", 0, 0},
      {"the place for a check", {{19, queued, month, kProgram}}, "hc-", 0, 19},
      {"none", {{20, queued, month, kProgram}}, "h--", 0, 40},
      {"hosts take none", {{18, queued, now, kProgram}, {19, queued, now}}, "hcr", 0, 74},
      {"40 of all kinds", {{19, error, now, kProgram}, {21, queued, now}}, "---", 0, 63},
      {"39 of all kinds", {{20, error, now, kProgram}, {19, queued, now}}, "hcr", 0, 19},
      {"failed a month ago", {{30, error, month, kProgram}, {10, error, now}}, "hcr", 90, 90},
      {"failed a day ago", {{30, error, day, kProgram}, {10, error, day}}, "hcr", 30, 120},
      {"of yesterday", {{19, queued, now, kProgram}, {21, queued, day}}, "hc-", 63, 120},
  };
  const LogCapture capture;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    std::string made;
    int ended = 0, asked = 0;
    for (const JobPurpose purpose :
         {JobPurpose::kHostFeed, JobPurpose::kCheck, JobPurpose::kReport}) {
      const OwnService service({}, c.groups);
      made += service.Transfer(purpose) ? "hcr"[static_cast<int>(purpose)] : '-';
      ended += service.Calls("Cancel");
      asked += service.Calls("GetNotifyCmdLine");
    }
    EXPECT_EQ(made, c.made);
    EXPECT_EQ(ended, c.ended);
    EXPECT_EQ(asked, c.asked);
  }
  EXPECT_TRUE(capture.Has("Postponed, so many jobs wait already: 20"));
  EXPECT_TRUE(capture.Has("Refused, so many jobs of ours are there already: 40"));
}

TEST(Library, EndsWhatGrowsTooLarge) {
  constexpr std::uint32_t kTooManyBytes = 0x80200064;
  const auto sized = [](std::size_t size) {
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n" +
           std::string(size, 'x');
  };
  const std::string endless = "HTTP/1.1 200 OK\r\n\r\n...";
  const struct {
    const char* label;
    JobPurpose purpose;
    std::string answer;
    std::uint32_t error;
  } cases[] = {
      {"an answer at its limit", JobPurpose::kReport, sized(kMaxAnswerBytes), 0},
      {"an answer above it", JobPurpose::kReport, sized(kMaxAnswerBytes + 1), kTooManyBytes},
      {"an endless answer", JobPurpose::kReport, endless, kTooManyBytes},
      {"a feed", JobPurpose::kCheck, sized(kMaxAnswerBytes + 1), 0},
      {"an endless feed", JobPurpose::kHostFeed, endless, kTooManyBytes},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const RawServer web([&](const std::string&) { return c.answer; });
    const OwnService service("job5\nany-server");
    ASSERT_TRUE(service.Transfer(c.purpose, web.Url("/")));
    const auto job = [] { return ListOwnJobs().at(0); };
    const JobState want = c.error ? JobState::kError : JobState::kTransferred;
    ASSERT_TRUE(Eventually([&] { return job().state == want; }));
    EXPECT_EQ(job().error, c.error);
    EXPECT_FALSE(IsTooLarge(c.purpose, job().bytesTransferred));
  }
}
