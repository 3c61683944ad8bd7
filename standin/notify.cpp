#include "standin/notify.h"

#include <optional>

#include "util/handle.h"
#include "util/text.h"
#include "util/win/windows_lean.h"
// After the system's header, which it needs.
#include <bits.h>

namespace standin {
namespace {

std::wstring SystemFolder() {
  wchar_t path[MAX_PATH] = L"";
  ::GetSystemDirectoryW(path, MAX_PATH);
  return path;
}

UniqueHandle Launch(const std::wstring& program, std::wstring commandLine) {
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION started = {};
  // The system writes into the command line it is given.
  wchar_t* const line = commandLine.empty() ? nullptr : commandLine.data();
  if (!::CreateProcessW(program.c_str(), line, nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                        SystemFolder().c_str(), &startup, &started)) {
    return {};
  }
  ::CloseHandle(started.hThread);
  return UniqueHandle(started.hProcess);
}

bool IsWanted(const JobSettings& settings, JobState state) {
  const std::uint32_t reason =
      state == JobState::kError ? BG_NOTIFY_JOB_ERROR : BG_NOTIFY_JOB_TRANSFERRED;
  const bool flagged =
      (settings.notifyFlags & reason) && !(settings.notifyFlags & BG_NOTIFY_DISABLE);
  return flagged && settings.notifyProgram;
}

// Runs the program to its end. Returns its exit code; nothing when it cannot be started.
std::optional<DWORD> RunProgram(Service& service, const std::string& jobId,
                                const JobSettings& settings) {
  const std::wstring commandLine = settings.notifyParameters.value_or(L"");
  JsonLine line;
  line.Text("event", "notify").Text("job", jobId);
  line.Text("program", *settings.notifyProgram).Text("command", commandLine);
  // Journalled before the start, so that nothing the program does comes earlier in the journal.
  service.journal.Write(line);
  const UniqueHandle process = Launch(*settings.notifyProgram, commandLine);
  if (!process) {
    const DWORD error = ::GetLastError();
    service.journal.Problem("the notify program of " + jobId + " cannot be started, system error " +
                            std::to_string(error) + ": " + NarrowUtf8(*settings.notifyProgram));
    return std::nullopt;
  }
  ::WaitForSingleObject(process.get(), INFINITE);
  DWORD exitCode = 0;
  ::GetExitCodeProcess(process.get(), &exitCode);
  return exitCode;
}

void EndNotice(Service& service, Job& job, Job::Run run) {
  job.EndNotice(run);
  service.SaveJobs();
}

}  // namespace

void DeliverNotice(Service& service, Job& job, Job::Run run) {
  const auto isDue = [&] { return job.IsNoticeDue(run); };
  while (isDue()) {
    // Read anew each time: a client may change them while the notice waits.
    const JobSettings settings = job.Settings();
    if (!IsWanted(settings, job.State())) return EndNotice(service, job, run);
    const std::optional<DWORD> exitCode = RunProgram(service, job.id(), settings);
    if (exitCode == 0) EndNotice(service, job, run);
    if (exitCode) {
      service.journal.Write(JsonLine()
                                .Text("event", "notify_exit")
                                .Text("job", job.id())
                                .Number("exit_code", *exitCode));
    }
    service.WaitUntil(service.JobSeconds() + kRetryDelaySeconds, isDue);
  }
}

}  // namespace standin
