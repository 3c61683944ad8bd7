#include "standin/notify.h"

#include <thread>

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

void AwaitExit(Service& service, const std::string& jobId, const UniqueHandle& process) {
  ::WaitForSingleObject(process.get(), INFINITE);
  DWORD exitCode = 0;
  ::GetExitCodeProcess(process.get(), &exitCode);
  service.journal.Write(
      JsonLine().Text("event", "notify_exit").Text("job", jobId).Number("exit_code", exitCode));
}

}  // namespace

void StartNotify(Service& service, const std::shared_ptr<Job>& job, std::uint32_t reason) {
  const JobSettings settings = job->Settings();
  const bool wanted =
      (settings.notifyFlags & reason) && !(settings.notifyFlags & BG_NOTIFY_DISABLE);
  if (!wanted || !settings.notifyProgram) return;
  const std::wstring commandLine = settings.notifyParameters.value_or(L"");
  JsonLine line;
  line.Text("event", "notify").Text("job", job->id());
  line.Text("program", *settings.notifyProgram).Text("command", commandLine);
  // Journalled before the start, so that nothing the program does comes earlier in the journal.
  service.journal.Write(line);
  UniqueHandle process = Launch(*settings.notifyProgram, commandLine);
  if (!process) {
    const DWORD error = ::GetLastError();
    service.journal.Problem("the notify program of " + job->id() +
                            " cannot be started, system error " + std::to_string(error) + ": " +
                            NarrowUtf8(*settings.notifyProgram));
    return;
  }
  const LifetimeHold hold(service.lifetime);
  auto watch = [&service, hold, id = job->id(), process = std::move(process)] {
    AwaitExit(service, id, process);
  };
  std::thread(std::move(watch)).detach();
}

}  // namespace standin
