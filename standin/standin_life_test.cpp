// Jobs: their notices, their owners, their limits, and the end of the server.
#include "standin/test_client.h"
#include "util/handle.h"
#include "util/text.h"
// After the system's header, which it needs.
#include <bitsmsg.h>

namespace standin_test {
namespace {

constexpr HRESULT kTooManyJobsOfUser = Code(0x80200049);
constexpr HRESULT kTooManyFilesInJob = Code(0x80200051);
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

TEST_F(Standin, LimitsJobsAndFiles) {
  for (int i = 0; i < 60; ++i) Create();
  GUID id;
  IBackgroundCopyJobPtr job;
  EXPECT_EQ(kTooManyJobsOfUser, manager_->CreateJob(L"61", BG_JOB_TYPE_DOWNLOAD, &id, &job));
  Control("user other");
  EXPECT_EQ(S_OK, manager_->CreateJob(L"1", BG_JOB_TYPE_DOWNLOAD, &id, &job));
  EXPECT_EQ(S_OK, job->Cancel());
  Control("");
  EXPECT_EQ(S_OK, clients_[7].job->Cancel());
  EXPECT_EQ(59u, CountJobs(0));
  EXPECT_EQ(S_OK, manager_->CreateJob(L"60", BG_JOB_TYPE_DOWNLOAD, &id, &job));
  EXPECT_EQ(S_OK, job->Cancel());

  wchar_t url[] = L"http://127.0.0.1/a", file[] = L"C:\\a", folder[] = L"C:\\";
  std::vector<BG_FILE_INFO> files(199, BG_FILE_INFO{url, file});
  EXPECT_EQ(S_OK, clients_[0].job->AddFileSet(199, files.data()));
  BG_FILE_INFO more[] = {{url, file}, {url, folder}};
  EXPECT_EQ(E_INVALIDARG, clients_[0].job->AddFileSet(2, more));
  more[1].LocalName = file;
  EXPECT_EQ(kTooManyFilesInJob, clients_[0].job->AddFileSet(2, more));
  EXPECT_EQ(199u, clients_[0].Progress().FilesTotal) << "all of a set or none";
  EXPECT_EQ(S_OK, clients_[0].job->AddFile(url, file));
  EXPECT_EQ(kTooManyFilesInJob, clients_[0].job->AddFile(url, file));
}

TEST_F(Standin, KeepsJobsFromOtherUsers) {
  const Client own = Create();
  Control("user other");
  const Client foreign = Create();
  Control("");
  IBackgroundCopyJobPtr job;
  BG_JOB_STATE state;
  const struct {
    const char* label;
    HRESULT got;
  } calls[] = {
      {"GetJob", manager_->GetJob(foreign.id, &job)},
      {"AddFile", Add(foreign, L"/a.bin", L"a")},
      {"Resume", foreign.job->Resume()},
      {"GetState", foreign.job->GetState(&state)},
      {"SetNotifyCmdLine", foreign.job2->SetNotifyCmdLine(nullptr, nullptr)},
      {"Complete", foreign.job->Complete()},
      {"Cancel", foreign.job->Cancel()},
  };
  for (const auto& call : calls) EXPECT_EQ(E_ACCESSDENIED, call.got) << call.label;
  EXPECT_EQ(1u, CountJobs(0));
  EXPECT_EQ(2u, CountJobs(BG_JOB_ENUM_ALL_USERS));

  Control("owner other " + IdText(own.id));
  EXPECT_EQ(E_ACCESSDENIED, manager_->GetJob(own.id, &job));
  EXPECT_EQ(0u, CountJobs(0));
  Control("user other");
  EXPECT_EQ(E_ACCESSDENIED, own.job->Cancel());
  EXPECT_EQ(S_OK, foreign.job->Cancel());
}

// Three jobs with programs that are not content show how often a fourth could have run.
TEST_F(Standin, StartsTheNotifyProgramUntilItIsContent) {
  WriteAll(www_ / "a.bin", "aaa");
  const auto start = [&](const std::wstring& program, const std::string& exitCode) {
    const std::wstring codeFile = target_ / (L"code" + std::to_wstring(clients_.size()));
    WriteAll(codeFile, exitCode);
    const Client client = Create();
    const std::wstring command = L"program --exit \"" + codeFile + L"\"";
    EXPECT_EQ(S_OK, client.job2->SetNotifyCmdLine(program.c_str(), command.c_str()));
    EXPECT_EQ(S_OK, Add(client, L"/a.bin", L"a"));
    EXPECT_EQ(S_OK, client.job->Resume());
    return client;
  };
  const auto line = [](const char* event, const Client& client) {
    return std::string("\"event\":\"") + event + "\",\"job\":\"" + IdText(client.id);
  };
  Control("clock 10000");
  const Client content = start(OwnPath(), "0");
  const Client ended = start(OwnPath(), "7");
  const Client missing = start(L"C:\\none.exe", "0");
  ASSERT_TRUE(Journals(line("notify_exit", ended)));
  ASSERT_TRUE(Journals(line("notify", missing), 2));
  EXPECT_TRUE(Journals("cannot be started, system error 2: C:\\\\none.exe", 2));
  EXPECT_EQ(S_OK, missing.job2->SetNotifyCmdLine(OwnPath().c_str(), L"program --exit none"));
  EXPECT_TRUE(Journals(line("notify_exit", missing) + "\",\"exit_code\":0")) << "as it is now";
  EXPECT_EQ(S_OK, ended.job->Complete());
  const int runs = CountInJournal(line("notify", ended));

  const Client stubborn = start(OwnPath(), "7");
  EXPECT_TRUE(Journals(line("notify_exit", stubborn) + "\",\"exit_code\":7", 3));
  EXPECT_EQ(runs, CountInJournal(line("notify", ended))) << "with the job ended";
  EXPECT_EQ(1, CountInJournal(line("notify", content)));
  EXPECT_EQ(BG_JOB_STATE_TRANSFERRED, content.State()) << "the job is left alone";
}

class StandinRestart : public Standin {
 protected:
  // A server cannot be killed here: Wine would go on offering its class. But one that writes nothing
  // at its end leaves what a killed one leaves.
  void Restart(const std::function<void()>& meanwhile) {
    const std::string jobs = ReadAll(folder_ / "jobs.txt");
    manager_ = nullptr;
    for (Client& client : clients_) {
      client.job2 = nullptr;
      client.job = nullptr;
    }
    EndServer();
    EXPECT_EQ(jobs, ReadAll(folder_ / "jobs.txt"));
    meanwhile();
    ASSERT_EQ(S_OK, manager_.CreateInstance(__uuidof(BackgroundCopyManager)));
    for (Client& client : clients_) {
      ASSERT_EQ(S_OK, manager_->GetJob(client.id, &client.job));
      client.job2 = client.job;
    }
  }

 private:
  void EndServer() {
    const std::string journal = ReadAll(folder_ / "journal.jsonl");
    const std::string start = "\"event\":\"start\",\"pid\":";
    const auto pid =
        static_cast<DWORD>(ParseInt64(journal.substr(journal.rfind(start) + start.size())));
    const UniqueHandle server(::OpenProcess(SYNCHRONIZE, FALSE, pid));
    const UniqueHandle stop(
        ::OpenEventW(EVENT_MODIFY_STATE, FALSE, L"Global\\kupdate-standin-stop"));
    EXPECT_TRUE(::SetEvent(stop.get()));
    EXPECT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(server.get(), 20'000));
  }
};

TEST_F(StandinRestart, KeepsWhatAClientHasSet) {
  const Client before = Create();
  EXPECT_EQ(S_OK, before.job->SetDisplayName(L"\u0444 100%0A\t "));
  EXPECT_EQ(S_OK, before.job->SetPriority(BG_JOB_PRIORITY_FOREGROUND));
  EXPECT_EQ(S_OK, before.job->SetNoProgressTimeout(0xFFFFFFFF));
  EXPECT_EQ(S_OK, before.job->SetNotifyFlags(BG_NOTIFY_JOB_ERROR));
  EXPECT_EQ(S_OK, before.job2->SetNotifyCmdLine(L"C:\\p", L"  \"a\" \n%\u0444 "));
  EXPECT_EQ(S_OK, Add(before, L"/a.bin", L"a"));
  EXPECT_EQ(S_OK, Add(before, L"/b.bin", L"b"));
  Control("user other");
  const Client foreign = Create();
  clients_.pop_back();
  Control("");
  ASSERT_NO_FATAL_FAILURE(Restart([] {}));
  const Client& after = clients_[0];
  EXPECT_EQ(BG_JOB_STATE_SUSPENDED, after.State());
  EXPECT_EQ(2u, after.Progress().FilesTotal);
  wchar_t* name = nullptr;
  wchar_t* program = nullptr;
  wchar_t* parameters = nullptr;
  BG_JOB_PRIORITY priority;
  ULONG seconds = 0, flags = 0;
  EXPECT_EQ(S_OK, after.job->GetDisplayName(&name));
  EXPECT_EQ(S_OK, after.job2->GetNotifyCmdLine(&program, &parameters));
  EXPECT_EQ(S_OK, after.job->GetPriority(&priority));
  EXPECT_EQ(S_OK, after.job->GetNoProgressTimeout(&seconds));
  EXPECT_EQ(S_OK, after.job->GetNotifyFlags(&flags));
  EXPECT_STREQ(L"\u0444 100%0A\t ", name);
  EXPECT_STREQ(L"C:\\p", program);
  EXPECT_STREQ(L"  \"a\" \n%\u0444 ", parameters);
  EXPECT_EQ(BG_JOB_PRIORITY_FOREGROUND, priority);
  EXPECT_EQ(0xFFFFFFFF, seconds);
  EXPECT_EQ(ULONG{BG_NOTIFY_JOB_ERROR}, flags);
  for (wchar_t* text : {name, program, parameters}) ::CoTaskMemFree(text);
  IBackgroundCopyJobPtr job;
  EXPECT_EQ(E_ACCESSDENIED, manager_->GetJob(foreign.id, &job));
  Control("user other");
  EXPECT_EQ(S_OK, manager_->GetJob(foreign.id, &job));
  EXPECT_EQ(S_OK, job->Cancel());
}

TEST_F(StandinRestart, GoesOnWithTransfers) {
  WriteAll(www_ / "a.bin", "aaa");
  WriteAll(www_ / "c.bin", std::string(30'000, 'c'));
  enum { kLost, kFailed, kDone, kUnderWay };
  EXPECT_TRUE(Start(L"/a.bin", L"l").Reaches(BG_JOB_STATE_TRANSFERRED));
  const fs::path lost = TempFiles().at(0);
  EXPECT_TRUE(Start(L"/none", L"f").Reaches(BG_JOB_STATE_ERROR));
  EXPECT_TRUE(Start(L"/a.bin", L"d").Reaches(BG_JOB_STATE_TRANSFERRED));
  const Client underWay = Start(L"/slow/c.bin", L"u");
  EXPECT_TRUE(Eventually([&] { return underWay.Progress().BytesTransferred > 0; }));
  const auto loseOne = [&] {
    fs::remove(lost);
    WriteAll(www_ / "a.bin", "new");
  };
  ASSERT_NO_FATAL_FAILURE(Restart(loseOne));
  BG_ERROR_CONTEXT context = BG_ERROR_CONTEXT_NONE;
  EXPECT_EQ(BG_JOB_STATE_ERROR, clients_[kFailed].State());
  EXPECT_EQ(Code(BG_E_HTTP_ERROR_404), clients_[kFailed].ErrorCode(&context));
  EXPECT_EQ(3u, clients_[kDone].Progress().BytesTransferred);
  for (const int i : {kLost, kDone, kUnderWay}) {
    EXPECT_TRUE(clients_[i].Reaches(BG_JOB_STATE_TRANSFERRED)) << i;
    EXPECT_EQ(S_OK, clients_[i].job->Complete()) << i;
  }
  EXPECT_EQ(S_OK, clients_[kFailed].job->Cancel());
  EXPECT_EQ("new", ReadAll(target_ / L"l"));
  EXPECT_EQ("aaa", ReadAll(target_ / L"d"));
  EXPECT_EQ(ReadAll(www_ / "c.bin"), ReadAll(target_ / L"u"));
  EXPECT_TRUE(TempFiles().empty());
}

TEST_F(StandinRestart, StillNotifies) {
  WriteAll(www_ / "a.bin", "aaa");
  const fs::path codeFile = target_ / L"code";
  WriteAll(codeFile, "7");
  const Client client = Create();
  const std::wstring command = L"program --exit \"" + codeFile.wstring() + L"\"";
  EXPECT_EQ(S_OK, client.job2->SetNotifyCmdLine(OwnPath().c_str(), command.c_str()));
  EXPECT_EQ(S_OK, Add(client, L"/a.bin", L"a"));
  EXPECT_EQ(S_OK, client.job->Resume());
  ASSERT_TRUE(Journals("\"exit_code\":7"));
  ASSERT_NO_FATAL_FAILURE(Restart([&] { WriteAll(codeFile, "0"); }));
  ASSERT_TRUE(Journals("\"exit_code\":0"));
  ASSERT_NO_FATAL_FAILURE(Restart([] {}));
  EXPECT_EQ(BG_JOB_STATE_TRANSFERRED, clients_[0].State());
  EXPECT_EQ(2, CountInJournal("\"event\":\"notify\"")) << "it was content before the second end";
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

// What the notify tests have started: leaves the command line it was given in a file, or ends with
// the code that a file names (none: 0).
int Echo(const wchar_t* path) {
  WriteAll(path, NarrowUtf8(::GetCommandLineW()));
  return kEchoExitCode;
}

int Exit(const wchar_t* codeFile) { return static_cast<int>(ParseInt64(ReadAll(codeFile))); }

}  // namespace
}  // namespace standin_test

int wmain(int argc, wchar_t** argv) {
  if (argc > 2 && std::wstring_view(argv[1]) == L"--echo") return standin_test::Echo(argv[2]);
  if (argc > 2 && std::wstring_view(argv[1]) == L"--exit") return standin_test::Exit(argv[2]);
  testing::InitGoogleTest(&argc, argv);
  ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  const int result = RUN_ALL_TESTS();
  ::CoUninitialize();
  return result;
}
