// kupdate-exec.exe: the program that the library and the transfer service start.
//
// Linked for the subsystem without a console: the transfer service decides how it starts a notify
// program, and a console program would show a window to the user each time. Help and status still
// reach the console, file or pipe of the person who asks for them.
#include "executor/run.h"
#include "layout/command_line.h"
#include "layout/log_start.h"
#include "util/process.h"
#include "util/win/windows_lean.h"

namespace {

// The user can write into the folder of this program, and any file may lie there. So DLLs that the
// system's own DLLs load by bare names come from the system's folder too. Windows 7 without its
// update of 2011 lacks this function.
void LoadFromSystemOnly() {
  const auto set = reinterpret_cast<decltype(&::SetDefaultDllDirectories)>(reinterpret_cast<void*>(
      ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "SetDefaultDllDirectories")));
  if (set) set(LOAD_LIBRARY_SEARCH_SYSTEM32);
}

}  // namespace

int wmain() {
  LoadFromSystemOnly();
  try {
    // The system shows no box either when this program, or one that it starts, crashes.
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    LoadLogLevel();
    return RunCommand(ParseExecutorCommand(::GetCommandLineW(), ModulePath()));
  } catch (...) {
    return kExitJobAlive;  // the service will try again
  }
}
