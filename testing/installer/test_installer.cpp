// An installer for tests: says how it was called, and ends as its arguments say.
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
  char line[4096] = "";
  ::WideCharToMultiByte(CP_UTF8, 0, ::GetCommandLineW(), -1, line, sizeof line, nullptr, nullptr);
  std::FILE* const file = ::_wfopen(path, L"wb");
  if (!file) std::exit(99);
  std::fputs(line, file);
  std::fclose(file);
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  const auto given = [&](std::wstring_view name) { return ValueOf(count, arguments, name); };
  if (given(L"/record=")) Record(given(L"/record="));
  if (given(L"/seconds=")) ::Sleep(static_cast<DWORD>(::_wtoi(given(L"/seconds="))) * 1000);
  if (given(L"/crash")) ::RaiseException(EXCEPTION_ACCESS_VIOLATION, 0, 0, nullptr);
  return given(L"/code=") ? ::_wtoi(given(L"/code=")) : 0;
}
