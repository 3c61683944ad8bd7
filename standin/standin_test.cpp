// The service as its clients meet it: activated through COM, in a process of its own.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "gtest/gtest.h"
#include "util/clock.h"
#include "util/text.h"
#include "util/win/windows_lean.h"
// After the system's header, which they need.
#include <bits.h>
#include <comdef.h>
#include <winsock2.h>

_COM_SMARTPTR_TYPEDEF(IBackgroundCopyManager, __uuidof(IBackgroundCopyManager));
_COM_SMARTPTR_TYPEDEF(IBackgroundCopyJob, __uuidof(IBackgroundCopyJob));
_COM_SMARTPTR_TYPEDEF(IBackgroundCopyJob2, __uuidof(IBackgroundCopyJob2));
_COM_SMARTPTR_TYPEDEF(IBackgroundCopyError, __uuidof(IBackgroundCopyError));
_COM_SMARTPTR_TYPEDEF(IEnumBackgroundCopyJobs, __uuidof(IEnumBackgroundCopyJobs));

namespace {

namespace fs = std::filesystem;

// The toolchain's constants of the service are unsigned.
constexpr HRESULT Code(unsigned long code) { return static_cast<HRESULT>(code); }

constexpr HRESULT kTooManyJobs = Code(0x80200049);
constexpr HRESULT kRefusedConnection = Code(0x80072EFD);
constexpr HRESULT kAnyCode = 0;  // systems differ in it

std::wstring Setting(const wchar_t* name) {
  const wchar_t* const value = ::_wgetenv(name);
  return value ? value : L"";
}

std::string ReadAll(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void WriteAll(const fs::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::string IdText(const GUID& id) {
  wchar_t text[40] = L"";
  ::StringFromGUID2(id, text, 40);
  return NarrowUtf8(text);
}

// Looks every 20 ms, at most `rounds` times, whether it is `done`.
bool Eventually(const std::function<bool()>& done, int rounds = 1000) {
  for (int i = 0; i < rounds; ++i) {
    if (done()) return true;
    SleepMilliseconds(20);
  }
  return false;
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
  BG_JOB_PROGRESS Progress() const {
    BG_JOB_PROGRESS progress = {};
    EXPECT_EQ(S_OK, job->GetProgress(&progress));
    return progress;
  }
  bool Reaches(BG_JOB_STATE state) const {
    return Eventually([&] { return State() == state; });
  }
};

class Standin : public testing::Test {
 protected:
  Standin() {
    Control("");
    journalStart_ = ReadAll(folder_ / "journal.jsonl").size();
    fs::remove_all(target_);
    fs::create_directories(target_);
    EXPECT_EQ(S_OK, manager_.CreateInstance(__uuidof(BackgroundCopyManager)));
  }
  ~Standin() override {
    Control("");
    for (const Client& client : clients_) client.job->Cancel();
  }

  void Control(const std::string& text) { WriteAll(folder_ / "control.txt", text); }
  std::string Journal() { return ReadAll(folder_ / "journal.jsonl").substr(journalStart_); }
  bool Journals(const std::string& text) {
    return Eventually([&] { return Journal().find(text) != std::string::npos; });
  }

  Client Create() {
    Client client;
    EXPECT_EQ(S_OK, manager_->CreateJob(L"job", BG_JOB_TYPE_DOWNLOAD, &client.id, &client.job));
    client.job2 = client.job;
    clients_.push_back(client);
    return client;
  }
  // A resumed job that gets `url` (a path on the web server, or a whole address) as `name`.
  Client Start(const std::wstring& url, const std::wstring& name) {
    Client client = Create();
    EXPECT_EQ(S_OK, Add(client, url, name));
    EXPECT_EQ(S_OK, client.job->Resume());
    return client;
  }
  HRESULT Add(const Client& client, const std::wstring& url, const std::wstring& name) {
    return client.job->AddFile((url[0] == L'/' ? http_ + url : url).c_str(),
                               (target_ / name).c_str());
  }
  std::vector<fs::path> TempFiles() {
    std::vector<fs::path> found;
    for (const fs::path& path : fs::directory_iterator(target_)) {
      if (path.filename().wstring().starts_with(L"BIT")) found.push_back(path);
    }
    return found;
  }

  const fs::path folder_ = Setting(L"KUPDATE_STANDIN_FOLDER");
  const fs::path www_ = Setting(L"KUPDATE_WWW");
  const std::wstring http_ = Setting(L"KUPDATE_HTTP");
  const fs::path target_ = folder_ / L"target \u0444";
  std::size_t journalStart_ = 0;
  IBackgroundCopyManagerPtr manager_;
  std::vector<Client> clients_;
};

TEST_F(Standin, HandsTransferredFilesOverAtComplete) {
  const std::string content = "one\r\ntwo\n" + std::string(70'000, '\0');
  WriteAll(www_ / "a.bin", content);
  WriteAll(target_ / L"a.bin", "old");
  const Client client = Create();
  EXPECT_EQ(BG_JOB_STATE_SUSPENDED, client.State());
  EXPECT_EQ(Code(BG_E_EMPTY), client.job->Resume());
  EXPECT_EQ(S_OK, Add(client, L"/a.bin", L"a.bin"));
  EXPECT_EQ(S_OK, client.job->Resume());
  ASSERT_TRUE(client.Reaches(BG_JOB_STATE_TRANSFERRED));
  const BG_JOB_PROGRESS progress = client.Progress();
  EXPECT_EQ(content.size(), progress.BytesTotal);
  EXPECT_EQ(content.size(), progress.BytesTransferred);
  EXPECT_EQ(1u, progress.FilesTransferred);
  EXPECT_EQ("old", ReadAll(target_ / L"a.bin"));
  ASSERT_EQ(1u, TempFiles().size());
  EXPECT_NE(0u, ::GetFileAttributesW(TempFiles()[0].c_str()) & FILE_ATTRIBUTE_HIDDEN);
  {
    const std::ifstream holder(target_ / L"a.bin");
    EXPECT_EQ(E_ACCESSDENIED, client.job->Complete());
  }
  EXPECT_EQ(BG_JOB_STATE_TRANSFERRED, client.State());
  EXPECT_EQ(S_OK, client.job->Complete());
  EXPECT_EQ(content, ReadAll(target_ / L"a.bin"));
  EXPECT_EQ(0u, ::GetFileAttributesW((target_ / L"a.bin").c_str()) & FILE_ATTRIBUTE_HIDDEN);
  EXPECT_TRUE(TempFiles().empty());
  EXPECT_EQ(BG_JOB_STATE_ACKNOWLEDGED, client.State());
  EXPECT_EQ(Code(BG_E_INVALID_STATE), client.job->Resume());
  EXPECT_EQ(Code(BG_E_INVALID_STATE), client.job2->SetNotifyCmdLine(nullptr, nullptr));
  IBackgroundCopyJobPtr again;
  EXPECT_EQ(Code(BG_E_NOT_FOUND), manager_->GetJob(client.id, &again));
}

TEST_F(Standin, RefusesBadArguments) {
  const Client c = Create();
  const std::wstring url = http_ + L"/a.bin";
  const std::wstring file = (target_ / L"a").wstring();
  const std::wstring longest(4000, L'p');
  const struct {
    const char* label;
    HRESULT got;
    HRESULT want;
  } cases[] = {
      {"relative target", c.job->AddFile(url.c_str(), L"a.bin"), E_INVALIDARG},
      {"drive without root", c.job->AddFile(url.c_str(), L"C:a.bin"), E_INVALIDARG},
      {"folder", c.job->AddFile(url.c_str(), L"C:\\folder\\"), E_INVALIDARG},
      {"other protocol", c.job->AddFile(L"ftp://127.0.0.1/a", file.c_str()), E_INVALIDARG},
      {"no host", c.job->AddFile(L"/a.bin", file.c_str()), E_INVALIDARG},
      {"longest parameters", c.job2->SetNotifyCmdLine(L"C:\\p", longest.c_str()), S_OK},
      {"longer parameters", c.job2->SetNotifyCmdLine(L"C:\\p", (longest + L"p").c_str()),
       Code(BG_E_STRING_TOO_LONG)},
      {"longest program", c.job2->SetNotifyCmdLine(longest.substr(0, 260).c_str(), nullptr), S_OK},
      {"longer program", c.job2->SetNotifyCmdLine(longest.substr(0, 261).c_str(), nullptr),
       Code(BG_E_STRING_TOO_LONG)},
      {"parameters alone", c.job2->SetNotifyCmdLine(nullptr, L"p"), E_INVALIDARG},
      {"unknown flag", c.job->SetNotifyFlags(0x20), E_INVALIDARG},
      {"not offered", c.job->TakeOwnership(), E_NOTIMPL},
  };
  for (const auto& test : cases) EXPECT_EQ(test.want, test.got) << test.label;
  IBackgroundCopyJobPtr upload;
  GUID id;
  EXPECT_EQ(E_NOTIMPL, manager_->CreateJob(L"up", BG_JOB_TYPE_UPLOAD, &id, &upload));
}

TEST_F(Standin, FailsAsTheServerDoes) {
  const struct {
    const char* label;
    std::wstring url;
    std::wstring name;
    BG_JOB_STATE state;
    HRESULT code;
    BG_ERROR_CONTEXT context;
  } cases[] = {
      {"missing", L"/none", L"a", BG_JOB_STATE_ERROR, Code(BG_E_HTTP_ERROR_404),
       BG_ERROR_CONTEXT_REMOTE_FILE},
      {"busy", L"/busy", L"a", BG_JOB_STATE_TRANSIENT_ERROR, Code(BG_E_HTTP_ERROR_503),
       BG_ERROR_CONTEXT_REMOTE_FILE},
      {"no answer", L"/drop", L"a", BG_JOB_STATE_TRANSIENT_ERROR, kAnyCode,
       BG_ERROR_CONTEXT_GENERAL_TRANSPORT},
      {"refused", L"http://127.0.0.1:9/", L"a", BG_JOB_STATE_TRANSIENT_ERROR, kRefusedConnection,
       BG_ERROR_CONTEXT_GENERAL_TRANSPORT},
      {"no folder", L"/a.bin", L"none\\a", BG_JOB_STATE_ERROR, HRESULT_FROM_WIN32(ERROR_DIRECTORY),
       BG_ERROR_CONTEXT_LOCAL_FILE},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.label);
    const Client client = Start(test.url, test.name);
    ASSERT_TRUE(client.Reaches(test.state)) << client.State();
    IBackgroundCopyErrorPtr error;
    ASSERT_EQ(S_OK, client.job->GetError(&error));
    BG_ERROR_CONTEXT context = BG_ERROR_CONTEXT_NONE;
    HRESULT code = S_OK;
    EXPECT_EQ(S_OK, error->GetError(&context, &code));
    EXPECT_EQ(test.code == kAnyCode ? code : test.code, code) << std::hex << code;
    EXPECT_EQ(test.context, context);
  }
}

TEST_F(Standin, GivesUpAfterTheTimeoutOfAFastClock) {
  Control("clock 10000000");
  const Client byDefault = Start(L"/busy", L"a");
  EXPECT_TRUE(byDefault.Reaches(BG_JOB_STATE_ERROR));
  // At this speed a year takes 3 seconds: the job must still be trying when the first is long over.
  const Client patient = Create();
  EXPECT_EQ(S_OK, patient.job->SetNoProgressTimeout(0xFFFFFFFF));
  EXPECT_EQ(S_OK, Add(patient, L"/busy", L"b"));
  EXPECT_EQ(S_OK, patient.job->Resume());
  EXPECT_TRUE(Start(L"/busy", L"c").Reaches(BG_JOB_STATE_ERROR));
  EXPECT_NE(BG_JOB_STATE_ERROR, patient.State());
}

// Answers each connection in turn with one of the texts, then hears no more.
class ScriptedServer {
 public:
  explicit ScriptedServer(std::vector<std::string> answers) : answers_(std::move(answers)) {
    WSADATA data;
    ::WSAStartup(MAKEWORD(2, 2), &data);
    listener_ = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    int size = sizeof address;
    EXPECT_EQ(0, ::bind(listener_, reinterpret_cast<sockaddr*>(&address), size));
    ::listen(listener_, 5);
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
    url_ = L"http://127.0.0.1:" + std::to_wstring(::ntohs(address.sin_port)) + L"/";
    thread_ = std::thread([this] { Serve(); });
  }
  ~ScriptedServer() {
    ::closesocket(listener_);
    thread_.join();
  }
  const std::wstring& url() const { return url_; }

 private:
  void Serve() {
    for (const std::string& answer : answers_) {
      const SOCKET client = ::accept(listener_, nullptr, nullptr);
      char request[2000];
      ::recv(client, request, sizeof request, 0);
      ::send(client, answer.data(), static_cast<int>(answer.size()), 0);
      ::closesocket(client);
    }
  }

  const std::vector<std::string> answers_;
  SOCKET listener_;
  std::wstring url_;
  std::thread thread_;
};

// The second attempt comes 600 seconds after the first and gets further, which starts the time-out
// anew; the third gets less, but everything.
TEST_F(Standin, TriesACutTransferAgain) {
  const std::string head = "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: ";
  ScriptedServer server({head + "20\r\n\r\n0123456789ab", head + "20\r\n\r\n0123456789abcd",
                         head + "10\r\n\r\n9876543210"});
  Control("clock 10000");
  const Client client = Create();
  EXPECT_EQ(S_OK, client.job->SetNoProgressTimeout(1000));
  EXPECT_EQ(S_OK, Add(client, server.url(), L"a"));
  EXPECT_EQ(S_OK, client.job->Resume());
  ASSERT_TRUE(client.Reaches(BG_JOB_STATE_TRANSFERRED));
  EXPECT_EQ(10u, client.Progress().BytesTransferred);
  EXPECT_EQ(S_OK, client.job->Complete());
  EXPECT_EQ("9876543210", ReadAll(target_ / L"a"));
  EXPECT_TRUE(Journals("\"event\":\"transient_error\""));
}

TEST_F(Standin, CancelDeletesTheTemporaryFile) {
  WriteAll(www_ / "big.bin", std::string(400'000, 'x'));
  const Client client = Start(L"/slow/big.bin", L"a");
  ASSERT_TRUE(client.Reaches(BG_JOB_STATE_TRANSFERRING));
  EXPECT_EQ(1u, TempFiles().size());
  EXPECT_EQ(S_OK, client.job->Cancel());
  EXPECT_TRUE(TempFiles().empty());
  EXPECT_EQ(BG_JOB_STATE_CANCELLED, client.State());
  EXPECT_FALSE(fs::exists(target_ / L"a"));
}

TEST_F(Standin, SuspendEndsATransferAndResumeStartsItAgain) {
  WriteAll(www_ / "c.bin", std::string(50'000, 'c') + "end");
  const Client resumed = Start(L"/slow/c.bin", L"a");
  const Client left = Start(L"/slow/c.bin", L"b");
  ASSERT_TRUE(left.Reaches(BG_JOB_STATE_TRANSFERRING));
  // So late that the rest of the first transfer would not make the second one whole.
  ASSERT_TRUE(Eventually([&] { return resumed.Progress().BytesTransferred > 30'000; }));
  EXPECT_EQ(S_OK, left.job->Suspend());
  EXPECT_EQ(S_OK, resumed.job->Suspend());
  EXPECT_EQ(S_OK, resumed.job->Resume());
  ASSERT_TRUE(resumed.Reaches(BG_JOB_STATE_TRANSFERRED));
  EXPECT_EQ(BG_JOB_STATE_SUSPENDED, left.State());
  EXPECT_EQ(S_OK, resumed.job->Complete());
  EXPECT_EQ(ReadAll(www_ / "c.bin"), ReadAll(target_ / L"a"));
}

TEST_F(Standin, TransfersTwoJobsAtOnceAndSeveralFilesInOne) {
  WriteAll(www_ / "a.bin", "aaa");
  WriteAll(www_ / "b.bin", std::string(50'000, 'b'));
  const Client one = Start(L"/slow/b.bin", L"b1");
  const Client two = Create();
  EXPECT_EQ(S_OK, Add(two, L"/a.bin", L"a2"));
  EXPECT_EQ(S_OK, Add(two, L"/slow/b.bin", L"b2"));
  EXPECT_EQ(S_OK, two.job->Resume());
  ASSERT_TRUE(one.Reaches(BG_JOB_STATE_TRANSFERRING));
  EXPECT_TRUE(Eventually([&] { return two.Progress().FilesTransferred == 1; }));
  EXPECT_EQ(BG_JOB_STATE_TRANSFERRING, one.State());
  EXPECT_EQ(BG_S_PARTIAL_COMPLETE, two.job->Complete());
  EXPECT_EQ("aaa", ReadAll(target_ / L"a2"));
  EXPECT_FALSE(fs::exists(target_ / L"b2"));
  ASSERT_TRUE(one.Reaches(BG_JOB_STATE_TRANSFERRED));
  EXPECT_EQ(S_OK, one.job->Complete());
  EXPECT_EQ(std::string(50'000, 'b'), ReadAll(target_ / L"b1"));
}

std::wstring OwnPath() {
  wchar_t path[MAX_PATH] = L"";
  ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  return path;
}

constexpr int kEchoExitCode = 7;

TEST_F(Standin, StartsTheNotifyProgramWithItsExactCommandLine) {
  WriteAll(www_ / "a.bin", "aaa");
  const std::wstring out = (target_ / L"out.txt").wstring();
  const std::wstring command =
      L"\"" + OwnPath() + L"\" --echo \"" + out + L"\"  a \"b  c\\\\\" \u0444 %PATH% ";
  const struct {
    const char* label;
    const wchar_t* url;
    ULONG flags;
    bool want;
  } cases[] = {
      {"error not wanted", L"/none", BG_NOTIFY_JOB_TRANSFERRED, false},
      {"disabled", L"/a.bin", BG_NOTIFY_JOB_TRANSFERRED | BG_NOTIFY_DISABLE, false},
      {"error", L"/none", BG_NOTIFY_JOB_ERROR, true},
      {"transferred", L"/a.bin", BG_NOTIFY_JOB_TRANSFERRED | BG_NOTIFY_JOB_ERROR, true},
  };
  std::vector<std::string> ids;
  for (const auto& test : cases) {
    SCOPED_TRACE(test.label);
    fs::remove(out);
    const Client client = Create();
    const std::string id = ids.emplace_back(IdText(client.id));
    EXPECT_EQ(S_OK, Add(client, test.url, L"a"));
    EXPECT_EQ(S_OK, client.job2->SetNotifyFlags(test.flags));
    EXPECT_EQ(S_OK, client.job2->SetNotifyCmdLine(OwnPath().c_str(), command.c_str()));
    EXPECT_EQ(S_OK, client.job2->Resume());
    ASSERT_TRUE(Journals(std::string("\"event\":\"") +
                         (test.url[1] == L'n' ? "error" : "transferred") + "\",\"job\":\"" + id));
    if (!test.want) continue;
    ASSERT_TRUE(Journals("\"event\":\"notify_exit\",\"job\":\"" + id + "\",\"exit_code\":7}"));
    EXPECT_EQ(NarrowUtf8(command), ReadAll(out));
  }
  for (std::size_t i = 0; i < ids.size(); ++i) {
    const bool notified = Journal().find("\"notify\",\"job\":\"" + ids[i]) != std::string::npos;
    EXPECT_EQ(cases[i].want, notified) << cases[i].label;
  }
}

TEST_F(Standin, ObeysTheControlFile) {
  const Client client = Create();
  IBackgroundCopyJobPtr job;
  Control(
      "# comment\nfail GetJob 0x80070005 call 2 times 2\r\nbogus line\nfail Suspend 0x8007000E\n");
  const HRESULT wantGet[] = {S_OK, E_ACCESSDENIED, E_ACCESSDENIED, S_OK};
  for (const HRESULT want : wantGet) EXPECT_EQ(want, manager_->GetJob(client.id, &job));
  EXPECT_EQ(E_OUTOFMEMORY, client.job->Suspend());
  EXPECT_TRUE(Journals("control.txt, line 3 is not understood: bogus line"));

  Control("no-job2\nstates CONNECTING 9\n");
  IBackgroundCopyJobPtr plain;
  EXPECT_EQ(S_OK, manager_->GetJob(client.id, &plain));
  IBackgroundCopyJob2Ptr job2;
  EXPECT_EQ(E_NOINTERFACE,
            plain->QueryInterface(__uuidof(IBackgroundCopyJob2), reinterpret_cast<void**>(&job2)));
  const int wantStates[] = {BG_JOB_STATE_CONNECTING, 9, 9};
  for (const int want : wantStates) EXPECT_EQ(want, static_cast<int>(client.State()));

  Control("vanish " + IdText(client.id) + "\nfail CreateInstance 0x80070005 times 1\n");
  EXPECT_EQ(Code(BG_E_NOT_FOUND), manager_->GetJob(client.id, &job));
  IBackgroundCopyManagerPtr manager;
  EXPECT_EQ(E_ACCESSDENIED, manager.CreateInstance(__uuidof(BackgroundCopyManager)));
  EXPECT_EQ(S_OK, manager.CreateInstance(__uuidof(BackgroundCopyManager)));
}

TEST_F(Standin, HoldsSixtyJobs) {
  for (int i = 0; i < 60; ++i) Create();
  GUID id;
  IBackgroundCopyJobPtr job;
  EXPECT_EQ(kTooManyJobs, manager_->CreateJob(L"61", BG_JOB_TYPE_DOWNLOAD, &id, &job));
  EXPECT_EQ(S_OK, clients_[7].job->Cancel());
  IEnumBackgroundCopyJobsPtr list;
  ULONG count = 0;
  EXPECT_EQ(S_OK, manager_->EnumJobs(0, &list));
  EXPECT_EQ(S_OK, list->GetCount(&count));
  EXPECT_EQ(59u, count);
  EXPECT_EQ(S_OK, manager_->CreateJob(L"60", BG_JOB_TYPE_DOWNLOAD, &id, &job));
  EXPECT_EQ(S_OK, job->Cancel());
}

TEST_F(Standin, EndsWhenNoJobAndNoClientIsLeft) {
  Control("linger 0");
  const auto hasEnded = [&] { return Journal().find("\"event\":\"stop\"") != std::string::npos; };
  constexpr int kAFewRoundsOfTheServer = 15;
  const GUID id = Create().id;
  clients_.clear();
  manager_ = nullptr;
  EXPECT_FALSE(Eventually(hasEnded, kAFewRoundsOfTheServer)) << "with a job";
  ASSERT_EQ(S_OK, manager_.CreateInstance(__uuidof(BackgroundCopyManager)));
  IBackgroundCopyJobPtr job;
  ASSERT_EQ(S_OK, manager_->GetJob(id, &job));
  EXPECT_EQ(S_OK, job->Cancel());
  job = nullptr;
  EXPECT_FALSE(Eventually(hasEnded, kAFewRoundsOfTheServer)) << "with a client";
  manager_ = nullptr;
  EXPECT_TRUE(Eventually(hasEnded));
}

// What the notify test has started: leaves the command line it was given in a file.
int Echo(const wchar_t* path) {
  WriteAll(path, NarrowUtf8(::GetCommandLineW()));
  return kEchoExitCode;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc > 2 && std::wstring_view(argv[1]) == L"--echo") return Echo(argv[2]);
  testing::InitGoogleTest(&argc, argv);
  ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  const int result = RUN_ALL_TESTS();
  ::CoUninitialize();
  return result;
}
