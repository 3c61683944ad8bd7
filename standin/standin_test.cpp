// The service as its clients meet it: transfers, notices, limits, faults, and the end of the server.
#include <algorithm>
#include <fstream>

#include <gtest/gtest.h>
#include "testing/data_home.h"
#include "testing/raw_server.h"
#include "testing/transfer_service.h"
#include "util/handle.h"
#include "util/text.h"
#include "util/win/windows_lean.h"
// After the system's header, which they need.
#include <bits.h>
#include <bitsmsg.h>
#include <comdef.h>

_COM_SMARTPTR_TYPEDEF(IBackgroundCopyManager, __uuidof(IBackgroundCopyManager));
_COM_SMARTPTR_TYPEDEF(IBackgroundCopyJob, __uuidof(IBackgroundCopyJob));
_COM_SMARTPTR_TYPEDEF(IBackgroundCopyJob2, __uuidof(IBackgroundCopyJob2));
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
  IBackgroundCopyJobPtr job;
  IBackgroundCopyJob2Ptr job2;
  GUID id = {};

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
  // What journal lines of such an event hold.
  std::string Event(const std::string& event) const {
    wchar_t text[40] = L"";
    ::StringFromGUID2(id, text, 40);
    return "\"event\":\"" + event + "\",\"job\":\"" + NarrowUtf8(text) + "\"";
  }
};

class Standin : public testing::Test {
 protected:
  Standin() {
    fs::remove_all(target_);
    fs::create_directories(target_);
    EXPECT_EQ(S_OK, manager_.CreateInstance(__uuidof(BackgroundCopyManager)));
  }
  ~Standin() override {
    service_.Control({});
    for (const Client& client : clients_) client.job->Cancel();
  }

  Client Create() {
    Client client;
    EXPECT_EQ(S_OK, manager_->CreateJob(L"job", BG_JOB_TYPE_DOWNLOAD, &client.id, &client.job));
    client.job2 = client.job;
    return clients_.emplace_back(client);
  }
  // Resumes a job that gets `url` (a path on the web server, or a whole address) as `name`.
  void Start(const Client& client, const std::string& url, const std::wstring& name) {
    const std::wstring address = WidenUtf8(url[0] == '/' ? HttpUrl(url.substr(1)) : url);
    EXPECT_EQ(S_OK, client.job->AddFile(address.c_str(), (target_ / name).c_str()));
    EXPECT_EQ(S_OK, client.job->Resume());
  }
  Client Start(const std::string& url, const std::wstring& name) {
    Client client = Create();
    Start(client, url, name);
    return client;
  }
  // What a new client gets for a job's id.
  HRESULT Find(const Client& client) {
    IBackgroundCopyJobPtr job;
    return manager_->GetJob(client.id, &job);
  }
  std::vector<fs::path> TempFiles() {
    std::vector<fs::path> found;
    for (const fs::path& path : fs::directory_iterator(target_)) {
      if (path.filename().wstring().starts_with(L"BIT")) found.push_back(path);
    }
    return found;
  }

  // Of a program that leaves this text in `name`.txt and ends with the code in `name`.code.
  std::wstring Command(const std::wstring& name) {
    return L"\"" + ThisProgram() + L"\" --notified \"" + (target_ / name).wstring() +
           L"\"  a \"b  c\\\\\" \u0444 %PATH% ";
  }
  void SetCode(const char* name, const char* code) { WriteBytes(target_ / name, code); }
  Client StartNotifying(const std::wstring& program, const std::wstring& name,
                        const char* url = "/a.bin") {
    Publish("a.bin", "aaa");
    const Client client = Create();
    EXPECT_EQ(S_OK, client.job2->SetNotifyCmdLine(program.c_str(), Command(name).c_str()));
    Start(client, url, name);
    return client;
  }

  void LetGo() {
    manager_ = nullptr;
    for (Client& client : clients_) client.job = client.job2 = nullptr;
  }
  // A server cannot be killed here: Wine would go on offering its class. But one that writes nothing
  // at its end leaves what a killed one leaves.
  void EndServer() {
    const std::string jobs = ReadBytes(service_.File("jobs.txt"));
    LetGo();
    const auto hasEnded = [] {
      const UniqueHandle stop(
          ::OpenEventW(EVENT_MODIFY_STATE, FALSE, L"Global\\kupdate-standin-stop"));
      ::SetEvent(stop.get());
      return !stop;  // it goes with the server
    };
    EXPECT_TRUE(Eventually(hasEnded));
    EXPECT_EQ(jobs, ReadBytes(service_.File("jobs.txt")));
  }
  void StartServer() {
    ASSERT_EQ(S_OK, manager_.CreateInstance(__uuidof(BackgroundCopyManager)));
    for (Client& client : clients_) {
      ASSERT_EQ(S_OK, manager_->GetJob(client.id, &client.job));
      client.job2 = client.job;
    }
  }

  const TransferService service_;
  const fs::path target_ = service_.File("target \u0444");
  IBackgroundCopyManagerPtr manager_;
  std::vector<Client> clients_;
};

TEST_F(Standin, HandsTransferredFilesOverAtComplete) {
  const std::string content = "one\r\ntwo\n" + std::string(70'000, '\0');
  Publish("a.bin", content);
  WriteBytes(target_ / "a", "old");
  const Client client = Create();
  EXPECT_EQ(BG_JOB_STATE_SUSPENDED, client.State());
  EXPECT_EQ(Code(BG_E_EMPTY), client.job->Resume());
  Start(client, "/a.bin", L"a");
  ASSERT_TRUE(client.Reaches(BG_JOB_STATE_TRANSFERRED));
  EXPECT_EQ("old", ReadBytes(target_ / "a"));
  EXPECT_EQ(1u, TempFiles().size());
  {
    const std::ifstream holder(target_ / "a");
    EXPECT_EQ(E_ACCESSDENIED, client.job->Complete());
  }
  EXPECT_EQ(BG_JOB_STATE_TRANSFERRED, client.State());
  EXPECT_EQ(S_OK, client.job->Complete());
  EXPECT_EQ(content, ReadBytes(target_ / "a"));
  EXPECT_TRUE(TempFiles().empty());
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
    std::wstring name = L"a";
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
    const Client client = Start(test.url, test.name);
    ASSERT_TRUE(client.Reaches(test.state)) << client.State();
    EXPECT_EQ(test.code, client.Error()) << std::hex << client.Error();
  }
}

TEST_F(Standin, GivesUpAfterTheTimeoutOfAFastClock) {
  service_.Control("clock 10000000");
  EXPECT_TRUE(Start("/busy", L"a").Reaches(BG_JOB_STATE_ERROR)) << "after two weeks";
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
  Start(client, server.Url("/"), L"a");
  ASSERT_TRUE(client.Reaches(BG_JOB_STATE_TRANSFERRED));
  EXPECT_EQ(S_OK, client.job->Complete());
  EXPECT_EQ("9876543210", ReadBytes(target_ / "a"));
  EXPECT_EQ(3, done);
}

// Three starts of a program that is not content show how often others could have been started.
TEST_F(Standin, StartsTheNotifyProgramUntilItIsContent) {
  service_.Control("clock 10000");
  SetCode("stubborn.code", "7");
  const Client content = StartNotifying(ThisProgram(), L"content");
  const Client failed = StartNotifying(ThisProgram(), L"failed", "/none");
  const Client ended = StartNotifying(ThisProgram(), L"stubborn");
  StartNotifying(L"C:\\none.exe", L"missing");
  EXPECT_TRUE(service_.WaitFor("cannot be started, system error 2: C:\\\\none.exe", 2));
  ASSERT_TRUE(service_.WaitFor(ended.Event("notify_exit")));
  EXPECT_EQ(S_OK, ended.job->Complete());
  const int runs = service_.Count(ended.Event("notify"));
  const Client stubborn = StartNotifying(ThisProgram(), L"stubborn");
  EXPECT_TRUE(service_.WaitFor(stubborn.Event("notify_exit") + ",\"exit_code\":7", 3));
  EXPECT_EQ(runs, service_.Count(ended.Event("notify")));
  EXPECT_EQ(1, service_.Count(content.Event("notify")));
  EXPECT_EQ(1, service_.Count(failed.Event("notify")));
  EXPECT_EQ(NarrowUtf8(Command(L"failed")), ReadBytes(target_ / "failed.txt"));
}

TEST_F(Standin, ObeysTheControlFile) {
  const Client client = Create();
  service_.Control("# comment\nfail GetJob 0x80070005 call 2 times 2\r\nbogus line\n");
  for (const HRESULT want : {S_OK, E_ACCESSDENIED, E_ACCESSDENIED, S_OK}) {
    EXPECT_EQ(want, Find(client));
  }
  EXPECT_EQ(1, service_.Count("control.txt, line 3 is not understood: bogus line"));
}

TEST_F(Standin, GoesOnWithItsJobsAfterARestart) {
  enum { kLost, kNotified, kNew };
  EXPECT_TRUE(StartNotifying(L"C:\\none", L"lost").Reaches(BG_JOB_STATE_TRANSFERRED));
  const fs::path lost = TempFiles().at(0);
  SetCode("notified.code", "7");
  ASSERT_TRUE(service_.WaitFor(StartNotifying(ThisProgram(), L"notified").Event("notify_exit")));
  const Client fresh = Create();
  EXPECT_EQ(S_OK, fresh.job->SetDisplayName(L"\u0444 100%0A\t\n "));
  EXPECT_EQ(S_OK, fresh.job->SetNoProgressTimeout(0xFFFFFFFF));
  ASSERT_NO_FATAL_FAILURE(EndServer());
  fs::remove(lost);
  fs::remove(target_ / "notified.txt");
  Publish("a.bin", "new");
  SetCode("notified.code", "0");
  ASSERT_NO_FATAL_FAILURE(StartServer());

  wchar_t* name = nullptr;
  ULONG seconds = 0;
  EXPECT_EQ(BG_JOB_STATE_SUSPENDED, clients_[kNew].State());
  EXPECT_EQ(S_OK, clients_[kNew].job->GetDisplayName(&name));
  EXPECT_EQ(S_OK, clients_[kNew].job->GetNoProgressTimeout(&seconds));
  EXPECT_STREQ(L"\u0444 100%0A\t\n ", name);
  EXPECT_EQ(0xFFFFFFFF, seconds);
  ::CoTaskMemFree(name);
  EXPECT_TRUE(service_.WaitFor(clients_[kNotified].Event("notify_exit") + ",\"exit_code\":0"));
  EXPECT_EQ(NarrowUtf8(Command(L"notified")), ReadBytes(target_ / "notified.txt"));
  for (const int i : {kLost, kNotified}) {
    EXPECT_TRUE(clients_[i].Reaches(BG_JOB_STATE_TRANSFERRED)) << i;
    EXPECT_EQ(S_OK, clients_[i].job->Complete()) << i;
  }
  EXPECT_EQ("new", ReadBytes(target_ / "lost"));
  EXPECT_EQ("aaa", ReadBytes(target_ / "notified"));
  EXPECT_TRUE(TempFiles().empty());
}

TEST_F(Standin, EndsWhenNoJobAndNoClientIsLeft) {
  service_.Control("linger 0");
  const auto hasEnded = [&] { return service_.Count("\"event\":\"stop\"") > 0; };
  Create();
  LetGo();
  EXPECT_FALSE(Eventually(hasEnded, kAFewRoundsOfTheServer)) << "with a job";
  ASSERT_NO_FATAL_FAILURE(StartServer());
  EXPECT_EQ(S_OK, clients_[0].job->Cancel());
  clients_.clear();
  EXPECT_FALSE(Eventually(hasEnded, kAFewRoundsOfTheServer)) << "with a client";
  manager_ = nullptr;
  EXPECT_TRUE(Eventually(hasEnded));
}

// What the tests have started: leaves the command line it was given in a file, and ends with the
// code that another names (none: 0).
int Notified(const std::wstring& name) {
  WriteBytes(name + L".txt", NarrowUtf8(::GetCommandLineW()));
  return static_cast<int>(ParseInt64(ReadBytes(name + L".code")));
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc > 2 && std::wstring_view(argv[1]) == L"--notified") {
    return Notified(argv[2]);
  }
  testing::InitGoogleTest(&argc, argv);
  ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  const int result = RUN_ALL_TESTS();
  ::CoUninitialize();
  return result;
}
