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

// As in the real service, the parameters are the whole command line: its first word is the
// program's own name only if the client has written it there.
UniqueHandle Launch(const std::wstring& program, std::wstring commandLine) {
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION started = {};
  // The system may write into the command line, so this is the caller's copy.
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

// Runs the program to its end. Returns its exit code; nothing if the program cannot be started.
std::optional<DWORD> RunProgram(Service& service, const std::string& jobId,
                                const JobSettings& settings) {
  const std::wstring commandLine = settings.notifyParameters.value_or(L"");
  JsonLine line;
  line.Text("event", "notify").Text("job", jobId);
  line.Text("program", *settings.notifyProgram).Text("command", commandLine);
  // Before the start: the program's own calls must come later in the journal.
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
    // Read each time: a client may change the settings while the notice waits.
    const JobSettings settings = job.Settings();
    if (!IsWanted(settings, job.State())) return EndNotice(service, job, run);
    const std::optional<DWORD> exitCode = RunProgram(service, job.id(), settings);
    // Before the line: a reader who sees it may end the server, and the next one must not start the
    // program again.
    if (exitCode == 0) EndNotice(service, job, run);
    if (exitCode) {
      service.journal.Write(JsonLine()
                                .Text("event", "notify_exit")
                                .Text("job", job.id())
                                .Number("exit_code", *exitCode));
    }
    // Returns at once when the program, or a client meanwhile, has ended the notice.
    service.WaitUntil(service.JobSeconds() + kRetryDelaySeconds, isDue);
  }
}

}  // namespace standin
