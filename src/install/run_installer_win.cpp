#include "install/run_installer.h"
#include "util/win/windows_lean.h"

#include <shellapi.h>

#include "install/silent_update.h"
#include "util/diag_log.h"
#include "util/handle.h"
#include "util/log_line.h"
#include "util/system.h"

namespace {

// ERROR_ELEVATION_REQUIRED, which this SDK lacks. The system gives it for a file that demands an
// administrator's rights.
constexpr DWORD kElevationRequired = 740;

struct Program {
  std::wstring path;
  std::wstring args;
};

std::wstring SystemFolder() {
  wchar_t path[MAX_PATH];
  const UINT chars = ::GetSystemDirectoryW(path, MAX_PATH);
  return chars > 0 && chars < MAX_PATH ? std::wstring(path, chars) + L"\\" : std::wstring();
}

Program ProgramOf(const InstallerCommand& command) {
  if (command.starter == Starter::kProgram) return {command.file, command.args};
  // By full path, so that no other program of that name is found first.
  return {SystemFolder() + L"msiexec.exe", L"/i \"" + command.file + L"\" " + command.args};
}

// 0, or the system's error.
DWORD Start(const Program& program, const std::wstring& folder, UniqueHandle* process) {
  std::wstring commandLine = L"\"" + program.path + L"\" " + program.args;
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION started = {};
  if (!::CreateProcessW(program.path.c_str(), commandLine.data(), nullptr, nullptr, FALSE,
                        CREATE_NO_WINDOW, nullptr, folder.c_str(), &startup, &started)) {
    return ::GetLastError();
  }
  const UniqueHandle thread(started.hThread);
  *process = UniqueHandle(started.hProcess);
  return 0;
}

// The same, after the user has agreed. NOASYNC, because this thread pumps no messages: the call
// must be complete when it returns.
DWORD StartElevated(const Program& program, const std::wstring& folder, UniqueHandle* process) {
  SHELLEXECUTEINFOW info = {};
  info.cbSize = sizeof info;
  info.fMask = SEE_MASK_NOCLOSEPROCESS | SEE_MASK_NOASYNC | SEE_MASK_FLAG_NO_UI;
  info.lpVerb = L"runas";
  info.lpFile = program.path.c_str();
  info.lpParameters = program.args.c_str();
  info.lpDirectory = folder.c_str();
  info.nShow = SW_SHOWNORMAL;
  if (!::ShellExecuteExW(&info)) return ::GetLastError();
  *process = UniqueHandle(info.hProcess);
  return 0;
}

int CodeOfFailure(DWORD error) {
  if (error == kElevationRequired || error == ERROR_CANCELLED) {
    LOG_E << "The installer needs rights that it was not given." << kOtherCode << error;
    return static_cast<int>(error);
  }
  LOG_E << "Can't start the installer." << kOtherCode << error;
  return kInstallCannotStart;
}

}  // namespace

int RunInstaller(const InstallerCommand& command) {
  const Program program = ProgramOf(command);
  LOG_I << "Run:" << program.path << program.args;
  UniqueHandle process;
  // The MSI installer always starts; without a window it then fails where rights are missing.
  const bool asksFirst = command.starter == Starter::kMsi && command.mayElevate && !IsElevated();
  DWORD error = asksFirst ? kElevationRequired : Start(program, command.folder, &process);
  if (error == kElevationRequired && command.mayElevate) {
    error = StartElevated(program, command.folder, &process);
  }
  // A shell that hands the file to another process may succeed without a process to wait for.
  if (error != 0 || !process) return CodeOfFailure(error);
  if (JustUtil::WaitFor(process, command.limitSeconds * 1000) != kWaitSignalled) {
    LOG_E << "The installer is still running after" << command.limitSeconds << "seconds.";
    return kInstallStillRunning;
  }
  DWORD code = 0;
  if (!::GetExitCodeProcess(process.get(), &code)) return CodeOfFailure(::GetLastError());
  LOG_I << "The installer ended." << kOtherCode << code;
  return static_cast<int>(code);
}
