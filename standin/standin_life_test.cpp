// Jobs: their notices, and the end of the server.
#include "standin/standin_test_client.h"
#include "testing/raw_server.h"
#include "util/handle.h"
#include "util/text.h"

namespace standin_test {
namespace {

constexpr int kAFewRoundsOfTheServer = 15;

std::string Event(const char* event, const Client& client) {
  return std::string("\"event\":\"") + event + "\",\"job\":\"" + client.Id() + "\"";
}

class StandinLife : public Standin {
 protected:
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
};

// Three starts of a program that is not content show how often others could have been started.
TEST_F(StandinLife, StartsTheNotifyProgramUntilItIsContent) {
  service_.Control("clock 10000");
  SetCode("stubborn.code", "7");
  const Client content = StartNotifying(ThisProgram(), L"content");
  const Client failed = StartNotifying(ThisProgram(), L"failed", "/none");
  const Client ended = StartNotifying(ThisProgram(), L"stubborn");
  const Client missing = StartNotifying(L"C:\\none.exe", L"missing");
  ASSERT_TRUE(service_.WaitFor(Event("notify_exit", ended)));
  EXPECT_TRUE(service_.WaitFor("cannot be started, system error 2: C:\\\\none.exe", 2));
  const std::wstring command = Command(L"missing");
  EXPECT_EQ(S_OK, missing.job2->SetNotifyCmdLine(ThisProgram().c_str(), command.c_str()));
  EXPECT_TRUE(service_.WaitFor(Event("notify_exit", missing) + ",\"exit_code\":0"));
  EXPECT_EQ(S_OK, ended.job->Complete());
  const int runs = service_.Count(Event("notify", ended));
  const Client stubborn = StartNotifying(ThisProgram(), L"stubborn");
  EXPECT_TRUE(service_.WaitFor(Event("notify_exit", stubborn) + ",\"exit_code\":7", 3));
  EXPECT_EQ(runs, service_.Count(Event("notify", ended)));
  EXPECT_EQ(1, service_.Count(Event("notify", content)));
  EXPECT_EQ(1, service_.Count(Event("notify", failed)));
  EXPECT_EQ(NarrowUtf8(Command(L"failed")), ReadBytes(target_ / "failed.txt"));
  EXPECT_EQ(BG_JOB_STATE_TRANSFERRED, content.State()) << "the job is left alone";
}

TEST_F(StandinLife, ObeysTheControlFile) {
  const Client client = Create();
  service_.Control("# comment\nfail GetJob 0x80070005 call 2 times 2\r\nbogus line\n");
  for (const HRESULT want : {S_OK, E_ACCESSDENIED, E_ACCESSDENIED, S_OK}) {
    EXPECT_EQ(want, Find(client));
  }
  EXPECT_EQ(1, service_.Count("control.txt, line 3 is not understood: bogus line"));
}

TEST_F(StandinLife, GoesOnWithItsJobsAfterARestart) {
  int gets = 0;
  const RawServer server([&](const std::string& request) {
    return request.starts_with("HEAD") ? Ok(6) : Ok(6) + (++gets == 1 ? "abc" : "defghi");
  });
  enum { kLost, kFailed, kNotified, kCut, kNew };
  EXPECT_TRUE(StartNotifying(L"C:\\none", L"lost").Reaches(BG_JOB_STATE_TRANSFERRED));
  const fs::path lost = TempFiles().at(0);
  EXPECT_TRUE(Start("/none", L"failed").Reaches(BG_JOB_STATE_ERROR));
  SetCode("notified.code", "7");
  ASSERT_TRUE(service_.WaitFor(Event("notify_exit", StartNotifying(ThisProgram(), L"notified"))));
  EXPECT_TRUE(Start(server.Url("/"), L"cut").Reaches(BG_JOB_STATE_TRANSIENT_ERROR));
  const Client fresh = Create();
  EXPECT_EQ(S_OK, fresh.job->SetDisplayName(L"\u0444 100%0A\t\n "));
  EXPECT_EQ(S_OK, fresh.job->SetNoProgressTimeout(0xFFFFFFFF));
  EXPECT_EQ(S_OK, fresh.job2->SetNotifyFlags(BG_NOTIFY_JOB_ERROR));
  ASSERT_NO_FATAL_FAILURE(EndServer());
  fs::remove(lost);
  fs::remove(target_ / "notified.txt");
  Publish("a.bin", "new");
  SetCode("notified.code", "0");
  ASSERT_NO_FATAL_FAILURE(StartServer());

  wchar_t* name = nullptr;
  ULONG seconds = 0, flags = 0;
  EXPECT_EQ(BG_JOB_STATE_SUSPENDED, clients_[kNew].State());
  EXPECT_EQ(S_OK, clients_[kNew].job->GetDisplayName(&name));
  EXPECT_EQ(S_OK, clients_[kNew].job->GetNoProgressTimeout(&seconds));
  EXPECT_EQ(S_OK, clients_[kNew].job->GetNotifyFlags(&flags));
  EXPECT_STREQ(L"\u0444 100%0A\t\n ", name);
  EXPECT_EQ(0xFFFFFFFF, seconds);
  EXPECT_EQ(ULONG{BG_NOTIFY_JOB_ERROR}, flags);
  ::CoTaskMemFree(name);
  EXPECT_EQ(Code(BG_E_HTTP_ERROR_404), clients_[kFailed].Error());
  EXPECT_EQ(S_OK, clients_[kFailed].job->Cancel());
  EXPECT_TRUE(service_.WaitFor(Event("notify_exit", clients_[kNotified]) + ",\"exit_code\":0"));
  EXPECT_EQ(NarrowUtf8(Command(L"notified")), ReadBytes(target_ / "notified.txt"));
  for (const int i : {kLost, kNotified, kCut}) {
    EXPECT_TRUE(clients_[i].Reaches(BG_JOB_STATE_TRANSFERRED)) << i;
    EXPECT_EQ(S_OK, clients_[i].job->Complete()) << i;
  }
  EXPECT_EQ("new", ReadBytes(target_ / "lost"));
  EXPECT_EQ("aaa", ReadBytes(target_ / "notified"));
  EXPECT_EQ("defghi", ReadBytes(target_ / "cut"));
  EXPECT_TRUE(TempFiles().empty());
}

TEST_F(StandinLife, EndsWhenNoJobAndNoClientIsLeft) {
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
}  // namespace standin_test

int wmain(int argc, wchar_t** argv) {
  if (argc > 2 && std::wstring_view(argv[1]) == L"--notified") {
    return standin_test::Notified(argv[2]);
  }
  testing::InitGoogleTest(&argc, argv);
  ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  const int result = RUN_ALL_TESTS();
  ::CoUninitialize();
  return result;
}
