// Removing a program that runs.
#ifndef KUPDATE_EXECUTOR_PROGRAM_REMOVAL_H_
#define KUPDATE_EXECUTOR_PROGRAM_REMOVAL_H_

#include <string>

/// Renames this process's own program, so that its name is free at once, and has the file deleted
/// shortly after the process has ended: a running program can be renamed but not deleted.
/// @return false when it could not be renamed: then nothing has happened, and that was logged.
bool RemoveRunningProgram(const std::wstring& path);

#endif  // KUPDATE_EXECUTOR_PROGRAM_REMOVAL_H_
