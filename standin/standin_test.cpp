// What no other test of the service shows: its life, control file, retries and error codes; then the
// limits of the library's transfers.
#include <gtest/gtest.h>

#include "standin/com_manager.h"
#include "standin/service.h"
#include "testing/log_capture.h"
#include "testing/raw_server.h"
#include "testing/transfer_service.h"
#include "transfer/bits_interfaces.h"
#include "transfer/bits_transfer.h"
#include "transfer/com_apartment.h"
#include "transfer/transfer.h"
#include "util/clock.h"
#include "util/text.h"
#include "util/win/windows_lean.h"
// After the system's header, which it needs.
#include <bits.h>

namespace {

using namespace testing_dll;
namespace fs = std::filesystem;

// The head of an answer that the service takes.
std::string Ok(std::size_t size) {
  return "HTTP/1.1 200 OK\r\nAccept-Ranges: bytes\r\nContent-Length: " + std::to_string(size) +
         "\r\n\r\n";
}

constexpr std::uint64_t kDay = 86400;
constexpr wchar_t kProgram[] = L"C:\\none.exe";

// So many jobs of ours, made and last touched so many seconds ago.
struct Group {
  int count;
  const char* state;
  std::uint64_t age;
  bool startsProgram = false;
};

// The service within this process. So jobs can have any history, and clients get the newer
// interfaces, for which Wine has no proxies.
class OwnService {
 public:
  explicit OwnService(std::string_view control, const std::vector<Group>& groups = {})
      : files(control, NewFolder()) {
    WriteBytes(files.File("jobs.txt"), TextOf(groups));
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    // Leaked: a transfer may outlast the test.
    service_ = new standin::Service(files.File("").wstring());
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

  const TransferService files;

  int Calls(const std::string& name) const { return files.Count("\"call\":\"" + name + "\""); }
  // Whether a job was made.
  bool Transfer(JobPurpose purpose, const std::string& url = "http://127.0.0.1:9/") const {
    TBitsTransfer transfer(url, files.File("target").wstring(), purpose);
    if (purpose != JobPurpose::kHostFeed) transfer.NotifyCmdLine(kProgram, L"--appid a");
    transfer.Work();
    return transfer.Added();
  }

 private:
  static std::string TextOf(const std::vector<Group>& groups) {
    constexpr std::uint64_t kTicks = 10'000'000, kTicksBefore1970 = 116'444'736'000'000'000;
    std::string text;
    int number = 10;
    for (const Group& group : groups) {
      const auto time =
          std::to_string((NowSeconds() - group.age) * kTicks + kTicksBefore1970) + "\n";
      for (int i = 0; i < group.count; ++i) {
        text += "job {00000000-0000-0000-0000-0000000000" + std::to_string(number++) +
                "}\nowner self\nname Kupdate-task\nstate " + group.state + "\ncreated " + time +
                "modified " + time;
        if (group.startsProgram) text += "notify-program " + NarrowUtf8(kProgram) + "\n";
      }
    }
    return text;
  }

  static fs::path NewFolder() {
    static int made = 0;
    const fs::path folder = ProcessTempFolder() / std::to_string(++made);
    fs::create_directories(folder);
    return folder;
  }

  standin::Service* service_ = nullptr;
  DWORD cookie_ = 0;
};

}  // namespace

TEST(Standin, EndsWhenNoJobAndNoClientIsLeft) {
  const TransferService service;
  const auto ends = [&](int rounds) {
    return Eventually([&] { return service.Count("\"event\":\"stop\"") > 0; }, rounds);
  };
  const std::string job = StartJob({.url = HttpUrl("busy"), .file = ProcessTempFolder() / "a"});
  service.Control("linger 0");
  EXPECT_FALSE(ends(15)) << "with a job";
  {
    const ComApartment apartment;
    const IBackgroundCopyManagerPtr client = ConnectToService();
    EXPECT_EQ(EndJob(job).end, JobEnd::kCancelled);
    EXPECT_FALSE(ends(15)) << "with a client";
  }
  EXPECT_TRUE(ends(1000));
}

TEST(Standin, ObeysTheControlFile) {
  const OwnService service("# comment\nfail EnumJobs 0x80070005 call 2 times 2\r\nbogus line\n");
  for (const bool isFailed : {false, true, true, false}) {
    bool hasThrown = false;
    try {
      ListOwnJobs();
    } catch (const TransferError&) {
      hasThrown = true;
    }
    EXPECT_EQ(hasThrown, isFailed);
  }
  EXPECT_EQ(service.files.Count("control.txt, line 3 is not understood: bogus line"), 1);
}

// Each attempt comes 600 seconds after the one before. The second gets further, which starts the
// time-out again; the third gets less, but everything.
TEST(Standin, TriesACutTransferAgain) {
  const std::string attempts[] = {Ok(20) + "0123456789ab", Ok(20) + "0123456789abcd",
                                  Ok(10) + "9876543210"};
  std::size_t done = 0;
  const RawServer web([&](const std::string& request) {
    const std::string& answer = attempts[std::min(done, std::size_t{2})];
    if (request.starts_with("HEAD")) return answer.substr(0, answer.find("\r\n\r\n") + 4);
    ++done;
    return answer;
  });
  const OwnService service("clock 10000");
  const fs::path target = service.files.File("target");
  WriteBytes(target, "old");
  const std::string job = StartJob({.url = web.Url("/"), .file = target, .timeoutSeconds = 1000});
  EXPECT_TRUE(Eventually([&] { return AskJob(job).state == JobState::kTransferred; }));
  EXPECT_EQ(ReadBytes(target), "old");
  EXPECT_EQ(EndJob(job).end, JobEnd::kCompleted);
  EXPECT_EQ(ReadBytes(target), "9876543210");
  EXPECT_EQ(done, 3u);
}

TEST(Library, LeavesRoomForOthersAndForChecks) {
  const std::uint64_t now = 60, day = kDay + 60, month = 30 * kDay + 60;
  const struct {
    const char* label;
    std::vector<Group> groups;
    const char* made;  // of a host's feed, a check and a report
    int ended;
    int asked;  // for their programs
  } cases[] = {
      {"room for all", {{18, "QUEUED", month, true}}, "hcr", 0, 0},
      {"the place for a check", {{19, "QUEUED", month, true}}, "hc-", 0, 19},
      {"none", {{20, "QUEUED", month, true}}, "h--", 0, 40},
      {"hosts take none", {{18, "QUEUED", now, true}, {19, "QUEUED", now}}, "hcr", 0, 74},
      {"40 of all kinds", {{19, "ERROR", now, true}, {21, "QUEUED", now}}, "---", 0, 63},
      {"39 of all kinds", {{20, "ERROR", now, true}, {19, "QUEUED", now}}, "hcr", 0, 19},
      {"failed a month ago", {{30, "ERROR", month, true}, {10, "ERROR", now}}, "hcr", 90, 90},
      {"failed a day ago", {{30, "ERROR", day, true}, {10, "ERROR", day}}, "hcr", 30, 120},
      {"of yesterday", {{19, "QUEUED", now, true}, {21, "QUEUED", day}}, "hc-", 63, 120},
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

TEST(Library, LearnsWhatTheServerSentAndEndsWhatGrowsTooLarge) {
  constexpr std::uint32_t kTooManyBytes = 0x80200064;
  const auto sized = [](std::size_t size) { return Ok(size) + std::string(size, 'x'); };
  const std::string endless = "HTTP/1.1 200 OK\r\n\r\n...";
  const struct {
    const char* label;
    JobPurpose purpose;
    std::string answer;
    std::uint32_t error;
    const char* control = "job5\nany-server";
  } cases[] = {
      {"an answer at its limit", JobPurpose::kReport, sized(kMaxAnswerBytes), 0},
      {"an answer above it", JobPurpose::kReport, sized(kMaxAnswerBytes + 1), kTooManyBytes},
      {"an endless answer", JobPurpose::kReport, endless, kTooManyBytes},
      {"a feed", JobPurpose::kCheck, sized(kMaxAnswerBytes + 1), 0},
      {"an endless feed", JobPurpose::kHostFeed, endless, kTooManyBytes},
      {"no such file", JobPurpose::kCheck, "HTTP/1.1 404 Not Found\r\n\r\n", 0x80190194},
      {"no size", JobPurpose::kCheck, "HTTP/1.1 200 OK\r\n\r\n", 0x80200011, ""},
      {"no ranges", JobPurpose::kCheck, "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", 0x80200013,
       ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const RawServer web([&](const std::string&) { return c.answer; });
    const OwnService service(c.control);
    ASSERT_TRUE(service.Transfer(c.purpose, web.Url("/")));
    const auto job = [] { return ListOwnJobs().at(0); };
    const JobState want = c.error ? JobState::kError : JobState::kTransferred;
    ASSERT_TRUE(Eventually([&] { return job().state == want; }));
    EXPECT_EQ(job().error, c.error);
    EXPECT_FALSE(IsTooLarge(c.purpose, job().bytesTransferred));
  }
}
