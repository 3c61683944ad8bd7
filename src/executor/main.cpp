// kupdate-exec.exe: what the library and the transfer service start.
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

// The folder that this program lies in belongs to the user, and anything may be put there. What the
// system's own DLLs load by bare names comes from the system's folder too. Windows 7 without its
// update of 2011 lacks this.
void LoadFromSystemOnly() {
  const auto set = reinterpret_cast<decltype(&::SetDefaultDllDirectories)>(reinterpret_cast<void*>(
      ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "SetDefaultDllDirectories")));
  if (set) set(LOAD_LIBRARY_SEARCH_SYSTEM32);
}

}  // namespace

int wmain() {
  LoadFromSystemOnly();
  try {
    // No box of the system's either, should this program or one that it loads crash.
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    LoadLogLevel();
    return RunCommand(ParseExecutorCommand(::GetCommandLineW(), ModulePath()));
  } catch (...) {
    return kExitJobAlive;  // the service will try again
  }
}
