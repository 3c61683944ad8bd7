// Transfers: from a server into a file, and what goes wrong on the way.
#include <fstream>
#include <thread>

#include "standin/test_client.h"
// After the system's header, which it needs.
#include <bitsmsg.h>
#include <winsock2.h>

namespace standin_test {
namespace {

constexpr HRESULT kRefusedConnection = Code(0x80072EFD);
constexpr HRESULT kAnyCode = 0;  // systems differ in it

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
    BG_ERROR_CONTEXT context = BG_ERROR_CONTEXT_NONE;
    const HRESULT code = client.ErrorCode(&context);
    EXPECT_EQ(test.code == kAnyCode ? code : test.code, code) << std::hex << code;
    EXPECT_EQ(test.context, context);
  }
}

TEST_F(Standin, WantsServersThatTellTheSizeAndOfferRanges) {
  const std::string whole =
      "HTTP/1.1 200 OK\r\nConnection: close\r\nAccept-Ranges: bytes\r\nContent-Length: 3\r\n\r\n";
  const struct {
    const char* label;
    std::vector<std::string> answers;
    HRESULT code;
  } cases[] = {
      {"no HEAD", {"HTTP/1.1 405 No\r\nConnection: close\r\n\r\n"}, Code(0x80190195)},
      {"no such method", {"HTTP/1.1 501 No\r\nConnection: close\r\n\r\n"}, Code(0x801901F5)},
      {"no size",
       {"HTTP/1.1 200 OK\r\nConnection: close\r\nAccept-Ranges: bytes\r\n\r\n"},
       Code(BG_E_MISSING_FILE_SIZE)},
      {"no size in the end",
       {whole, "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\nabc"},
       Code(BG_E_MISSING_FILE_SIZE)},
      {"no ranges",
       {"HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 3\r\n\r\n"},
       Code(BG_E_INSUFFICIENT_RANGE_SUPPORT)},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.label);
    ScriptedServer server(test.answers);
    const Client client = Start(server.url(), L"a");
    ASSERT_TRUE(client.Reaches(BG_JOB_STATE_ERROR)) << client.State();
    BG_ERROR_CONTEXT context = BG_ERROR_CONTEXT_NONE;
    EXPECT_EQ(test.code, client.ErrorCode(&context));
    EXPECT_EQ(BG_ERROR_CONTEXT_REMOTE_FILE, context);
  }
  Control("any-server");
  ScriptedServer plain({"HTTP/1.1 200 OK\r\nConnection: close\r\n\r\nabc"});
  const Client client = Start(plain.url(), L"b");
  ASSERT_TRUE(client.Reaches(BG_JOB_STATE_TRANSFERRED));
  EXPECT_EQ(3u, client.Progress().BytesTransferred);
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

// The second attempt comes 600 seconds after the first and gets further, which starts the time-out
// anew; the third gets less, but everything.
TEST_F(Standin, TriesACutTransferAgain) {
  const auto head = [](int size) {
    return "HTTP/1.1 200 OK\r\nConnection: close\r\nAccept-Ranges: bytes\r\nContent-Length: " +
           std::to_string(size) + "\r\n\r\n";
  };
  ScriptedServer server({head(20), head(20) + "0123456789ab", head(20), head(20) + "0123456789abcd",
                         head(10), head(10) + "9876543210"});
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

}  // namespace
}  // namespace standin_test
