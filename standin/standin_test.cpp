// The service as its clients meet it: transfers, limits, faults, and the end of the server.
#include <algorithm>
#include <fstream>

#include <gtest/gtest.h>
#include "testing/data_home.h"
#include "testing/raw_server.h"
#include "testing/transfer_service.h"
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

constexpr HRESULT kRefusedConnection = Code(0x80072EFD);
constexpr int kAFewRoundsOfTheServer = 15;

// The head of an answer that the service is content with.
std::string Ok(int size) {
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
  // S_OK when there is none.
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
  const RawServer odd([](const std::string& request) -> std::string {
    if (request == "HEAD /no-head") return "HTTP/1.1 405 No\r\n\r\n";
    if (request == "HEAD /no-ranges") return "HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\n";
    return "HTTP/1.1 200 OK\r\nAccept-Ranges: bytes\r\n\r\n";
  });
  const auto error = BG_JOB_STATE_ERROR, transient = BG_JOB_STATE_TRANSIENT_ERROR;
  const struct {
    std::string url;
    BG_JOB_STATE state;
    HRESULT code;
    const wchar_t* name = L"a";
  } cases[] = {
      {"/none", error, Code(BG_E_HTTP_ERROR_404)},
      {"/busy", transient, Code(BG_E_HTTP_ERROR_503)},
      {"http://127.0.0.1:9/", transient, kRefusedConnection},
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
// time-out anew; the third gets less, but everything.
TEST_F(Standin, TriesACutTransferAgain) {
  const struct {
    int size;
    const char* body;
  } attempts[] = {{20, "0123456789ab"}, {20, "0123456789abcd"}, {10, "9876543210"}};
  int done = 0;
  const RawServer server([&](const std::string& request) {
    const auto& attempt = attempts[std::min(done, 2)];
    if (request.starts_with("HEAD")) return Ok(attempt.size);
    ++done;
    return Ok(attempt.size) + attempt.body;
  });
  service_.Control("clock 10000");
  const Client client = Create();
  EXPECT_EQ(S_OK, client.job->SetNoProgressTimeout(1000));
  Start(client, server.Url("/"));
  ASSERT_TRUE(client.Reaches(BG_JOB_STATE_TRANSFERRED));
  EXPECT_EQ(S_OK, client.job->Complete());
  EXPECT_EQ("9876543210", ReadBytes(target_ / "a"));
  EXPECT_EQ(3, done);
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
  const auto ends = [&](int rounds = 1000) {
    return Eventually([&] { return service_.Count("\"event\":\"stop\"") > 0; }, rounds);
  };
  const GUID id = Create().id;
  clients_.clear();
  manager_ = nullptr;
  EXPECT_FALSE(ends(kAFewRoundsOfTheServer)) << "with a job";
  ASSERT_EQ(S_OK, manager_.CreateInstance(__uuidof(BackgroundCopyManager)));
  {
    IBackgroundCopyJobPtr job;
    ASSERT_EQ(S_OK, manager_->GetJob(id, &job));
    EXPECT_EQ(S_OK, job->Cancel());
  }
  EXPECT_FALSE(ends(kAFewRoundsOfTheServer)) << "with a client";
  manager_ = nullptr;
  EXPECT_TRUE(ends());
}
