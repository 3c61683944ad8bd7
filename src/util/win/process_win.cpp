#include "util/process.h"

#include <utility>

#include "util/text.h"
#include "util/win/windows_lean.h"

namespace {

constexpr DWORD kPathChars = 32768;
constexpr DWORD kHostPathChars = 260;

std::wstring PathOf(HMODULE module, DWORD chars) {
  std::wstring path(chars, L'\0');
  path.resize(::GetModuleFileNameW(module, path.data(), chars));
  return path;
}

std::wstring SystemFolder() {
  wchar_t path[MAX_PATH];
  const UINT length = ::GetSystemDirectoryW(path, MAX_PATH);
  return length < MAX_PATH ? std::wstring(path, length) : std::wstring();
}

// The system soon gives the id of an ended process to another one, so the time of creation belongs
// to the name.
std::string RunId(HANDLE process) {
  FILETIME created;
  FILETIME ignored;
  const DWORD id = ::GetProcessId(process);
  if (id == 0 || !::GetProcessTimes(process, &created, &ignored, &ignored, &ignored)) return {};
  const std::uint64_t ticks = (std::uint64_t{created.dwHighDateTime} << 32) | created.dwLowDateTime;
  return DecimalText(id) + "-" + DecimalText(static_cast<std::int64_t>(ticks));
}

}  // namespace

std::wstring HostProgramName() {
  const std::wstring path = PathOf(nullptr, kHostPathChars);
  const std::size_t slash = path.rfind(L'\\');
  return slash == std::wstring::npos ? std::wstring() : path.substr(slash + 1);
}

std::wstring ModulePath() {
  HMODULE module = nullptr;
  constexpr DWORD kByAddress =
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  // By an address of ours: in a host this is the library's path, not that of the program.
  if (!::GetModuleHandleExW(kByAddress, reinterpret_cast<LPCWSTR>(&ModulePath), &module)) return {};
  return PathOf(module, kPathChars);
}

void PinThisModule() {
  HMODULE module = nullptr;
  ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                       reinterpret_cast<LPCWSTR>(&PinThisModule), &module);
}

std::string RunIdOf(const UniqueHandle& process) { return RunId(process.get()); }

std::string OwnRunId() { return RunId(::GetCurrentProcess()); }

std::optional<std::uint32_t> ExitCodeOf(const UniqueHandle& process) {
  DWORD code = 0;
  // The code of a running process, 259, could also be that of one that has ended.
  if (::WaitForSingleObject(process.get(), 0) != WAIT_OBJECT_0 ||
      !::GetExitCodeProcess(process.get(), &code)) {
    return {};
  }
  return code;
}

std::uint32_t TEnvironment::Execute(const std::wstring& program, std::wstring commandLine,
                                    UniqueHandle* process) {
  if (program.empty()) return ERROR_FILE_NOT_FOUND;
  const std::wstring systemFolder = SystemFolder();
  if (systemFolder.empty()) return ERROR_PATH_NOT_FOUND;
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESHOWWINDOW;
  startup.wShowWindow = SW_HIDE;
  PROCESS_INFORMATION started = {};
  if (!::CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE,
                        CREATE_NO_WINDOW, nullptr, systemFolder.c_str(), &startup, &started)) {
    return ::GetLastError();
  }
  const UniqueHandle thread(started.hThread);
  *process = UniqueHandle(started.hProcess);
  return 0;
}
