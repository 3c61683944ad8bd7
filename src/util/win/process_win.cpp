#include "util/process.h"

#include <utility>

#include "util/win/windows_lean.h"

namespace {

constexpr DWORD kPathChars = 32768;
constexpr DWORD kHostPathChars = 260;

std::wstring PathOf(HMODULE module, DWORD chars) {
  std::wstring path(chars, L'\0');
  path.resize(::GetModuleFileNameW(module, path.data(), chars));
  return path;
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
  if (!::GetModuleHandleExW(kByAddress, reinterpret_cast<LPCWSTR>(&ModulePath), &module)) return {};
  return PathOf(module, kPathChars);
}

void PinThisModule() {
  HMODULE module = nullptr;
  ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                       reinterpret_cast<LPCWSTR>(&PinThisModule), &module);
}

std::uint32_t TEnvironment::Execute(const std::wstring& program, std::wstring commandLine,
                                    UniqueHandle* process) {
  if (program.empty()) return ERROR_FILE_NOT_FOUND;
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESHOWWINDOW;
  startup.wShowWindow = SW_HIDE;
  PROCESS_INFORMATION started = {};
  if (!::CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE,
                        CREATE_NO_WINDOW, nullptr, nullptr, &startup, &started)) {
    return ::GetLastError();
  }
  const UniqueHandle thread(started.hThread);
  *process = UniqueHandle(started.hProcess);
  return 0;
}
