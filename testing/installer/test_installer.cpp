// An installer for tests: says how it was called, and ends as it is told.
//
// Its arguments: /record=FILE (UTF-8 path; the whole command line is written there), /code=N,
// /seconds=N (runs that long first), /crash.
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "util/win/windows_lean.h"

namespace {

// What follows `name` in one of the arguments; null when none begins with it.
const wchar_t* ValueOf(int count, wchar_t** arguments, std::wstring_view name) {
  for (int i = 1; i < count; ++i) {
    if (std::wstring_view(arguments[i]).starts_with(name)) return arguments[i] + name.size();
  }
  return nullptr;
}

void Record(const wchar_t* path) {
  char line[4096];
  const int bytes = ::WideCharToMultiByte(CP_UTF8, 0, ::GetCommandLineW(), -1, line, sizeof line,
                                          nullptr, nullptr);
  std::FILE* const file = bytes > 0 ? ::_wfopen(path, L"wb") : nullptr;
  if (!file) std::exit(99);
  std::fputs(line, file);
  std::fclose(file);
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  if (const wchar_t* const path = ValueOf(count, arguments, L"/record=")) Record(path);
  if (const wchar_t* const seconds = ValueOf(count, arguments, L"/seconds=")) {
    ::Sleep(static_cast<DWORD>(::_wtoi(seconds)) * 1000);
  }
  if (ValueOf(count, arguments, L"/crash"))
    ::RaiseException(EXCEPTION_ACCESS_VIOLATION, 0, 0, nullptr);
  const wchar_t* const code = ValueOf(count, arguments, L"/code=");
  return code ? ::_wtoi(code) : 0;
}
