#include "executor/console.h"

#include <string>

#include "util/text.h"
#include "util/win/windows_lean.h"

namespace {

HANDLE HandleOf(ConsoleStream stream) {
  return ::GetStdHandle(stream == ConsoleStream::kOutput ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
}

bool IsUsable(HANDLE handle) { return handle && handle != INVALID_HANDLE_VALUE; }

}  // namespace

void WriteToConsole(ConsoleStream stream, std::string_view text) {
  HANDLE handle = HandleOf(stream);
  // This program has no console of its own. A file or pipe of the parent comes as a handle; its
  // console does not.
  if (!IsUsable(handle) && ::AttachConsole(ATTACH_PARENT_PROCESS)) handle = HandleOf(stream);
  if (!IsUsable(handle)) return;
  DWORD mode = 0;
  DWORD written = 0;
  if (::GetConsoleMode(handle, &mode)) {
    // A console would read bytes in its own code page.
    const std::wstring wide = WidenUtf8(text);
    ::WriteConsoleW(handle, wide.data(), static_cast<DWORD>(wide.size()), &written, nullptr);
  } else {
    ::WriteFile(handle, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
  }
}
