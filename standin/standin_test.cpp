// The service as its clients meet it: transfers, limits, faults, and the end of the server; then
// the limits of the library's transfers.
#include <fstream>

#include <gtest/gtest.h>
#include "standin/com_manager.h"
#include "standin/job_file.h"
#include "standin/service.h"
#include "testing/log_capture.h"
#include "testing/raw_server.h"
#include "testing/transfer_service.h"
#include "transfer/bits_transfer.h"
#include "transfer/transfer.h"
#include "util/clock.h"
#include "util/text.h"
#include "util/win/windows_lean.h"
// After the system's header, which they need.
#include <bits.h>
#include <bitsmsg.h>
#include <comdef.h>

_COM_SMARTPTR_TYPEDEF(IBackgroundCopyManager, __uuidof(IBackgroundCopyManager));
_COM_SMARTPTR_TYPEDEF(IBackgroundCopyJob, __uuidof(IBackgroundCopyJob));
_COM_SMARTPTR_TYPEDEF(IBackgroundCopyError, __uuidof(IBackgroundCopyError));

namespace {

using namespace testing_dll;
namespace fs = std::filesystem;

// The toolchain's constants of the service are unsigned.
constexpr HRESULT Code(unsigned long code) { return static_cast<HRESULT>(code); }

// The head of an answer that the service takes.
std::string Ok(std::size_t size) {
  return "HTTP/1.1 200 OK\r\nAccept-Ranges: bytes\r\nContent-Length: " + std::to_string(size) +
         "\r\n\r\n";
}

struct Client {
  BG_JOB_STATE State() const {
    BG_JOB_STATE state = BG_JOB_STATE_QUEUED;
    EXPECT_EQ(S_OK, job->GetState(&state));
    return state;
  }
  bool Reaches(BG_JOB_STATE state) const {
    return Eventually([&] { return State() == state; });
  }
  // S_OK when the job has no error.
  HRESULT Error() const {
    IBackgroundCopyErrorPtr error;
    BG_ERROR_CONTEXT context = BG_ERROR_CONTEXT_NONE;
    HRESULT code = S_OK;
    if (job->GetError(&error) == S_OK) error->GetError(&context, &code);
    return code;
  }

  IBackgroundCopyJobPtr job;
  GUID id = {};
};

class Standin : public testing::Test {
 protected:
  Standin() {
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    fs::remove_all(target_);
    fs::create_directories(target_);
    EXPECT_EQ(S_OK, manager_.CreateInstance(__uuidof(BackgroundCopyManager)));
  }
  ~Standin() override {
    service_.Control({});
    for (const Client& client : clients_) client.job->Cancel();
    clients_.clear();
    manager_ = nullptr;
    ::CoUninitialize();
  }

  Client Create() {
    Client client;
    EXPECT_EQ(S_OK, manager_->CreateJob(L"job", BG_JOB_TYPE_DOWNLOAD, &client.id, &client.job));
    return clients_.emplace_back(client);
  }
  // Resumes a job that gets `url` (a path on the web server, or a whole address) as `name`.
  void Start(const Client& client, const std::string& url, const wchar_t* name = L"a") {
    const std::wstring address = WidenUtf8(url[0] == '/' ? HttpUrl(url.substr(1)) : url);
    EXPECT_EQ(S_OK, client.job->AddFile(address.c_str(), (target_ / name).c_str()));
    EXPECT_EQ(S_OK, client.job->Resume());
  }
  // The result of a new client's search for a job.
  HRESULT Find(const Client& client) {
    IBackgroundCopyJobPtr job;
    return manager_->GetJob(client.id, &job);
  }
  auto TempFiles() const {
    return std::count_if(fs::directory_iterator(target_), {}, [](const fs::path& path) {
      return path.filename().wstring().starts_with(L"BIT");
    });
  }

  const TransferService service_;
  const fs::path target_ = service_.File("target \u0444");
  IBackgroundCopyManagerPtr manager_;
  std::vector<Client> clients_;
};

}  // namespace

TEST_F(Standin, HandsTransferredFilesOverAtComplete) {
  const std::string content = "one\r\ntwo\n" + std::string(70'000, '\0');
  Publish("a.bin", content);
  WriteBytes(target_ / "a", "old");
  const Client client = Create();
  EXPECT_EQ(BG_JOB_STATE_SUSPENDED, client.State());
  EXPECT_EQ(Code(BG_E_EMPTY), client.job->Resume());
  Start(client, "/a.bin");
  ASSERT_TRUE(client.Reaches(BG_JOB_STATE_TRANSFERRED));
  EXPECT_EQ("old", ReadBytes(target_ / "a"));
  EXPECT_EQ(1, TempFiles());
  {
    const std::ifstream holder(target_ / "a");
    EXPECT_EQ(E_ACCESSDENIED, client.job->Complete());
  }
  EXPECT_EQ(BG_JOB_STATE_TRANSFERRED, client.State());
  EXPECT_EQ(S_OK, client.job->Complete());
  EXPECT_EQ(content, ReadBytes(target_ / "a"));
  EXPECT_EQ(0, TempFiles());
  EXPECT_EQ(BG_JOB_STATE_ACKNOWLEDGED, client.State());
  EXPECT_EQ(Code(BG_E_INVALID_STATE), client.job->Resume());
  EXPECT_EQ(Code(BG_E_NOT_FOUND), Find(client));
}

TEST_F(Standin, FailsAsTheServerDoes) {
  const RawServer odd({{"/no-head", "HTTP/1.1 405 No\r\n\r\n"},
                       {"/no-ranges", "HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\n"},
                       {"/no-size", "HTTP/1.1 200 OK\r\nAccept-Ranges: bytes\r\n\r\n"}});
  const auto error = BG_JOB_STATE_ERROR, transient = BG_JOB_STATE_TRANSIENT_ERROR;
  const struct {
    std::string url;
    BG_JOB_STATE state;
    HRESULT code;
    const wchar_t* name = L"a";
  } cases[] = {
      {"/none", error, Code(BG_E_HTTP_ERROR_404)},
      {"/busy", transient, Code(BG_E_HTTP_ERROR_503)},
      {"http://127.0.0.1:9/", transient, Code(0x80072EFD)},  // the connection is refused
      {odd.Url("/no-head"), error, Code(0x80190195)},
      {odd.Url("/no-size"), error, Code(BG_E_MISSING_FILE_SIZE)},
      {odd.Url("/no-ranges"), error, Code(BG_E_INSUFFICIENT_RANGE_SUPPORT)},
      {"/busy", error, HRESULT_FROM_WIN32(ERROR_DIRECTORY), L"no folder\\a"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.url);
    const Client client = Create();
    Start(client, test.url, test.name);
    ASSERT_TRUE(client.Reaches(test.state)) << client.State();
    EXPECT_EQ(test.code, client.Error()) << std::hex << client.Error();
  }
}

TEST_F(Standin, GivesUpAfterTheTimeoutOfAFastClock) {
  service_.Control("clock 10000000");
  const Client client = Create();
  Start(client, "/busy");
  EXPECT_TRUE(client.Reaches(BG_JOB_STATE_ERROR)) << "after two weeks";
}

// Each attempt comes 600 seconds after the one before. The second gets further, which starts the
// time-out again; the third gets less, but everything.
TEST_F(Standin, TriesACutTransferAgain) {
  const std::string attempts[] = {Ok(20) + "0123456789ab", Ok(20) + "0123456789abcd",
                                  Ok(10) + "9876543210"};
  std::size_t done = 0;
  const RawServer server([&](const std::string& request) {
    const std::string& answer = attempts[std::min(done, std::size_t{2})];
    if (request.starts_with("HEAD")) return answer.substr(0, answer.find("\r\n\r\n") + 4);
    ++done;
    return answer;
  });
  service_.Control("clock 10000");
  const Client client = Create();
  EXPECT_EQ(S_OK, client.job->SetNoProgressTimeout(1000));
  Start(client, server.Url("/"));
  ASSERT_TRUE(client.Reaches(BG_JOB_STATE_TRANSFERRED));
  EXPECT_EQ(S_OK, client.job->Complete());
  EXPECT_EQ("9876543210", ReadBytes(target_ / "a"));
  EXPECT_EQ(3u, done);
}

TEST_F(Standin, ObeysTheControlFile) {
  const Client client = Create();
  service_.Control("# comment\nfail GetJob 0x80070005 call 2 times 2\r\nbogus line\n");
  for (const HRESULT want : {S_OK, E_ACCESSDENIED, E_ACCESSDENIED, S_OK}) {
    EXPECT_EQ(want, Find(client));
  }
  EXPECT_EQ(1, service_.Count("control.txt, line 3 is not understood: bogus line"));
}

TEST_F(Standin, EndsWhenNoJobAndNoClientIsLeft) {
  service_.Control("linger 0");
  const auto ends = [&](int rounds) {
    return Eventually([&] { return service_.Count("\"event\":\"stop\"") > 0; }, rounds);
  };
  const GUID id = Create().id;
  clients_.clear();
  manager_ = nullptr;
  EXPECT_FALSE(ends(15)) << "with a job";
  ASSERT_EQ(S_OK, manager_.CreateInstance(__uuidof(BackgroundCopyManager)));
  {
    IBackgroundCopyJobPtr job;
    ASSERT_EQ(S_OK, manager_->GetJob(id, &job));
    EXPECT_EQ(S_OK, job->Cancel());
  }
  EXPECT_FALSE(ends(15)) << "with a client";
  manager_ = nullptr;
  EXPECT_TRUE(ends(1000));
}

namespace {

constexpr std::uint64_t kDay = 86400;
constexpr wchar_t kProgram[] = L"C:\\none.exe";

// So many jobs of ours, made and last touched so many seconds ago.
struct Group {
  int count = 0;
  standin::JobState state = standin::JobState::kQueued;
  std::uint64_t age = 0;
  const wchar_t* program = L"";
};

// The service within this process. So jobs can have any history, and clients get the newer
// interfaces, for which Wine has no proxies.
class OwnService {
 public:
  explicit OwnService(std::string_view control, const std::vector<Group>& groups = {})
      : files_(control, NewFolder()) {
    WriteBytes(files_.File("jobs.txt"), standin::FormatJobs(JobsOf(groups)));
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    // Leaked: a transfer may outlast the test.
    service_ = new standin::Service(files_.File("").wstring());
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

  int Calls(const std::string& name) const { return files_.Count("\"call\":\"" + name + "\""); }
  // Whether a job was made.
  bool Transfer(JobPurpose purpose, const std::string& url = "http://127.0.0.1:9/") const {
    TBitsTransfer transfer(url, files_.File("target").wstring(), purpose);
    if (purpose != JobPurpose::kHostFeed) transfer.NotifyCmdLine(kProgram, L"--appid a");
    transfer.Work();
    return transfer.Added();
  }

 private:
  static std::vector<standin::JobRecord> JobsOf(const std::vector<Group>& groups) {
    constexpr std::uint64_t kTicks = 10'000'000, kTicksBefore1970 = 116'444'736'000'000'000;
    std::vector<standin::JobRecord> jobs;
    for (const Group& group : groups) {
      const std::uint64_t time = (NowSeconds() - group.age) * kTicks + kTicksBefore1970;
      for (int i = 0; i < group.count; ++i) {
        auto& job = jobs.emplace_back();
        job.id = "{00000000-0000-0000-0000-" + DecimalText(100'000'000'000 + jobs.size()) + "}";
        job.owner = "self";
        job.state = group.state;
        job.times = {time, time, 0};
        job.settings.displayName = L"Kupdate-task";
        if (*group.program) job.settings.notifyProgram = group.program;
      }
    }
    return jobs;
  }

  static fs::path NewFolder() {
    static int made = 0;
    const fs::path folder = ProcessTempFolder() / std::to_string(++made);
    fs::create_directories(folder);
    return folder;
  }

  const TransferService files_;
  standin::Service* service_ = nullptr;
  DWORD cookie_ = 0;
};

}  // namespace

TEST(Library, LeavesRoomForOthersAndForChecks) {
  using enum standin::JobState;
  const std::uint64_t now = 60, day = kDay + 60, month = 30 * kDay + 60;
  const struct {
    const char* label;
    std::vector<Group> groups;
    const char* made;  // of a host's feed, a check and a report
    int ended;
    int asked;  // for their programs
  } cases[] = {
      {"room for all", {{18, kQueued, month, kProgram}}, "hcr", 0, 0},
      {"the place for a check", {{19, kQueued, month, kProgram}}, "hc-", 0, 19},
      {"none", {{20, kQueued, month, kProgram}}, "h--", 0, 40},
      {"hosts take none", {{18, kQueued, now, kProgram}, {19, kQueued, now}}, "hcr", 0, 74},
      {"40 of all kinds", {{19, kError, now, kProgram}, {21, kQueued, now}}, "---", 0, 63},
      {"39 of all kinds", {{20, kError, now, kProgram}, {19, kQueued, now}}, "hcr", 0, 19},
      {"failed a month ago", {{30, kError, month, kProgram}, {10, kError, now}}, "hcr", 90, 90},
      {"failed a day ago", {{30, kError, day, kProgram}, {10, kError, day}}, "hcr", 30, 120},
      {"of yesterday", {{19, kQueued, now, kProgram}, {21, kQueued, day}}, "hc-", 63, 120},
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
  const auto sized = [](std::size_t size) { return Ok(size) + std::string(size, 'x'); };
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
