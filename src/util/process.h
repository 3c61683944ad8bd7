// This process, and starting others.
#ifndef KUPDATE_UTIL_PROCESS_H_
#define KUPDATE_UTIL_PROCESS_H_

#include <cstdint>
#include <optional>
#include <string>

#include "util/handle.h"

/// File name of the host process's program, without its folder; empty when it has no folder.
std::wstring HostProgramName();

/// Full path of the module that this code is in; empty on failure.
std::wstring ModulePath();

/// Keeps the module that this code is in loaded until the process ends. Each load in which
/// something is thrown leaks one thread-local index of the C++ runtime that is linked into the
/// module, and a process has about a thousand of them.
void PinThisModule();

/// Names one run of a process for all processes of the machine: its id and its time of creation.
/// Empty on failure.
std::string RunIdOf(const UniqueHandle& process);
/// The same for this process.
std::string OwnRunId();

/// The exit code of a process that has ended; nothing while it runs.
std::optional<std::uint32_t> ExitCodeOf(const UniqueHandle& process);

class TEnvironment {
 public:
  /// Starts a program without a window; it inherits no handles, and its current folder is the
  /// system's, so that it looks for nothing in the folder that this process happens to be in.
  /// @param program      full path, given to the system as the application name, so that a path
  ///                     with blanks can start nothing else
  /// @param commandLine  the whole command line, program included
  /// @param process      receives the process to wait for; left empty when it was not started
  /// @return 0, or the system's error.
  static std::uint32_t Execute(const std::wstring& program, std::wstring commandLine,
                               UniqueHandle* process);
};

#endif  // KUPDATE_UTIL_PROCESS_H_
