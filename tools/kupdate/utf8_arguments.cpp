#include "kupdate/utf8_arguments.h"

#include <algorithm>

#ifdef _WIN32
#include "util/win/windows_lean.h"

#include <shellapi.h>

#include "util/text.h"

// The arguments of main() have lost what the code page of the system lacks.
std::vector<std::string> Utf8Arguments(int, char**) {
  ::SetConsoleOutputCP(CP_UTF8);
  int count = 0;
  wchar_t** const wide = ::CommandLineToArgvW(::GetCommandLineW(), &count);
  std::vector<std::string> arguments;
  for (int i = count - 1; i > 0; --i) arguments.push_back(NarrowUtf8(wide[i]));
  ::LocalFree(wide);
  return arguments;
}
#else
std::vector<std::string> Utf8Arguments(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  std::reverse(arguments.begin(), arguments.end());
  return arguments;
}
#endif
