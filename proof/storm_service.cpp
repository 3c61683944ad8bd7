#include "proof/storm_service.h"

#include "util/win/windows_lean.h"

#include <comdef.h>
#include <tlhelp32.h>

#include <algorithm>

#include "proof/storm_host.h"
#include "proof/storm_row.h"
#include "proof/storm_stores.h"
#include "testing/dll_client.h"
#include "transfer/transfer.h"
#include "util/handle.h"

namespace storm {

using namespace testing_dll;

namespace {

int restarts = 0;
int secondStarts = 0;

constexpr char kNotStarted[] = "not started";

bool StopService() {
  const UniqueHandle stop(::OpenEventW(EVENT_MODIFY_STATE, FALSE, L"Global\\kupdate-standin-stop"));
  if (!stop) return false;
  ::SetEvent(stop.get());
  return true;
}

// Takes what executors print.
HANDLE Nowhere() {
  static const HANDLE nowhere = [] {
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    return ::CreateFileW(L"NUL", GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                         OPEN_EXISTING, 0, nullptr);
  }();
  return nowhere;
}

// The ids of all processes of the executor under test.
std::vector<DWORD> ExecutorIds() {
  std::vector<DWORD> ids;
  const HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
  PROCESSENTRY32W entry = {};
  entry.dwSize = sizeof entry;
  for (BOOL more = ::Process32FirstW(snapshot, &entry); more;
       more = ::Process32NextW(snapshot, &entry)) {
    if (std::wstring_view(entry.szExeFile) == L"kupdate-exec.exe") {
      ids.push_back(entry.th32ProcessID);
    }
  }
  ::CloseHandle(snapshot);
  return ids;
}

// What an executor says at the end of a job.
std::string RunExecutor(const JobFacts& job) {
  void* const process = StartExecutor(ArgumentsOf(job));
  return process ? std::to_string(EndOf(process)) : kNotStarted;
}

// Waits until all jobs have ended; gives up when none does for a while.
bool AllJobsEnd() {
  for (std::size_t left = Jobs().size(); left > 0;) {
    const std::size_t before = left;
    if (!Eventually([&] { return (left = Jobs().size()) < before; })) return false;
  }
  return true;
}

}  // namespace

std::vector<JobFacts> Jobs() {
  for (int tries = 0;; ++tries) {
    try {
      return ListOwnJobs();
    } catch (const _com_error&) {
      if (tries == 10) throw;
    }
    ++restarts;
    Eventually([] { return !StopService(); });  // the event goes with the server
  }
}

int Restarts() { return restarts; }

std::wstring ArgumentsOf(const JobFacts& job) {
  const std::size_t begin = job.notifyCommandLine.find(L" --");
  if (job.notifyProgram.empty() || begin == std::wstring::npos) {
    return L"--job " + std::wstring(job.id.begin(), job.id.end());
  }
  return job.notifyCommandLine.substr(begin + 1);
}

void* StartExecutor(const std::wstring& arguments) {
  MakeExecutor();
  const std::wstring program = ExecutorPath();
  std::wstring commandLine = program + L" " + arguments;
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = Nowhere();
  startup.hStdError = Nowhere();
  PROCESS_INFORMATION started = {};
  if (!::CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, TRUE,
                        CREATE_NO_WINDOW, nullptr, nullptr, &startup, &started)) {
    return nullptr;
  }
  ::CloseHandle(started.hThread);
  return started.hProcess;
}

std::string RunExecutors(const std::vector<JobFacts>& jobs) {
  std::string fault;
  for (const JobFacts& job : jobs) {
    std::string what = RunExecutor(job);
    if (what == "1" || what == kNotStarted) {
      ++secondStarts;
      Progress("  executor of job " + job.id + ": " + what + ", started again");
      what = RunExecutor(job);
    }
    if (what != "0" && fault.empty()) fault = "executor of job " + job.id + ": " + what;
    Progress("");
  }
  return fault;
}

int SecondStarts() { return secondStarts; }

int KillStrayExecutors() {
  int killed = 0;
  for (const DWORD id : ExecutorIds()) {
    const UniqueHandle process(::OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, id));
    if (!process || !::TerminateProcess(process.get(), 9)) continue;
    ::WaitForSingleObject(process.get(), INFINITE);
    ++killed;
  }
  return killed;
}

bool NoExecutorRuns() {
  return Eventually([] { return ExecutorIds().empty(); });
}

bool Deliver(const std::vector<std::string>& appIds) {
  MakeExecutor();
  Dll().setExecutorPath(ExecutorPath().c_str());
  std::vector<std::string> left = appIds;
  for (const std::string& appId : left) Register(appId, "");
  // Each round sends what the service takes: it limits a user's jobs.
  for (int rounds = 0; rounds < 200 && !left.empty(); ++rounds) {
    for (const std::string& appId : left) Dll().forceUpdateCheck(appId.c_str(), false);
    if (!AllJobsEnd() || !NoExecutorRuns()) break;
    std::erase_if(left, [](const std::string& appId) {
      const Stores stores = ReadStores(appId);
      return stores.waiting.empty() && stores.blocks == 0;
    });
    Progress("");
  }
  Dll().setExecutorPath(kNoExecutor);
  return left.empty();
}

}  // namespace storm
