// Transfers: from a server into a file, and what goes wrong on the way.
#include <algorithm>
#include <fstream>

#include "standin/standin_test_client.h"
#include "testing/raw_server.h"

namespace standin_test {
namespace {

constexpr HRESULT kRefusedConnection = Code(0x80072EFD);
constexpr HRESULT kAnyCode = 0;  // systems differ in it

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
  EXPECT_EQ(0u, ::GetFileAttributesW((target_ / "a").c_str()) & FILE_ATTRIBUTE_HIDDEN);
  EXPECT_TRUE(TempFiles().empty());
  EXPECT_EQ(BG_JOB_STATE_ACKNOWLEDGED, client.State());
  EXPECT_EQ(Code(BG_E_INVALID_STATE), client.job->Resume());
  EXPECT_EQ(Code(BG_E_NOT_FOUND), Find(client));
}

TEST_F(Standin, TransfersTwoJobsAtOnceAndCancelsOne) {
  Publish("a.bin", "aaa");
  Publish("big.bin", std::string(400'000, 'x'));
  const Client slow = Start("/slow/big.bin", L"slow");
  ASSERT_TRUE(slow.Reaches(BG_JOB_STATE_TRANSFERRING));
  ASSERT_TRUE(Start("/a.bin", L"fast").Reaches(BG_JOB_STATE_TRANSFERRED));
  EXPECT_EQ(BG_JOB_STATE_TRANSFERRING, slow.State());
  EXPECT_EQ(2u, TempFiles().size());
  EXPECT_EQ(S_OK, slow.job->Cancel());
  EXPECT_EQ(1u, TempFiles().size());
  EXPECT_EQ(BG_JOB_STATE_CANCELLED, slow.State());
  EXPECT_FALSE(fs::exists(target_ / "slow"));
}

TEST_F(Standin, RefusesWhatTheSystemsServiceWould) {
  for (int i = 0; i < 60; ++i) Create();
  Client more;
  EXPECT_EQ(Code(0x80200049), CreateJob(&more)) << "more jobs than a user may have";
  const Client c = clients_[0];
  for (const wchar_t* const file : {L"a.bin", L"C:a.bin", L"C:\\folder\\"}) {
    EXPECT_EQ(E_INVALIDARG, c.job->AddFile(L"http://127.0.0.1/a", file)) << file;
  }
  EXPECT_EQ(E_INVALIDARG, c.job->AddFile(L"ftp://127.0.0.1/a", L"C:\\a"));
  const std::wstring program(260, L'p'), line(4000, L'p');
  const HRESULT tooLong = Code(BG_E_STRING_TOO_LONG);
  EXPECT_EQ(S_OK, c.job2->SetNotifyCmdLine(program.c_str(), line.c_str()));
  EXPECT_EQ(tooLong, c.job2->SetNotifyCmdLine((program + L"p").c_str(), nullptr));
  EXPECT_EQ(tooLong, c.job2->SetNotifyCmdLine(L"p", (line + L"p").c_str()));
}

TEST_F(Standin, FailsAsTheServerDoes) {
  const RawServer odd([](const std::string& request) -> std::string {
    if (request == "HEAD /no-head") return "HTTP/1.1 405 No\r\n\r\n";
    if (request == "HEAD /no-ranges") return "HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\n";
    if (request == "HEAD /no-size-in-the-end") return Ok(3);
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
      {"/drop", transient, kAnyCode},
      {"http://127.0.0.1:9/", transient, kRefusedConnection},
      {odd.Url("/no-head"), error, Code(0x80190195)},
      {odd.Url("/no-size"), error, Code(BG_E_MISSING_FILE_SIZE)},
      {odd.Url("/no-size-in-the-end"), error, Code(BG_E_MISSING_FILE_SIZE)},
      {odd.Url("/no-ranges"), error, Code(BG_E_INSUFFICIENT_RANGE_SUPPORT)},
      {"/busy", error, HRESULT_FROM_WIN32(ERROR_DIRECTORY), L"no folder\\a"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.url);
    const Client client = Start(test.url, test.name);
    ASSERT_TRUE(client.Reaches(test.state)) << client.State();
    EXPECT_TRUE(test.code == kAnyCode || test.code == client.Error()) << std::hex << client.Error();
  }
}

TEST_F(Standin, GivesUpAfterTheTimeoutOfAFastClock) {
  service_.Control("clock 10000000");
  const Client patient = Create();
  EXPECT_EQ(S_OK, patient.job->SetNoProgressTimeout(0xFFFFFFFF));
  Start(patient, "/busy", L"a");
  ASSERT_TRUE(patient.Reaches(BG_JOB_STATE_TRANSIENT_ERROR));
  EXPECT_TRUE(Start("/busy", L"b").Reaches(BG_JOB_STATE_ERROR)) << "after two weeks";
  EXPECT_NE(BG_JOB_STATE_ERROR, patient.State()) << "after a century";
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

}  // namespace
}  // namespace standin_test
