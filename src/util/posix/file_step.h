// The file operations of the native build, one by one. Proofs count them, end the process at one,
// or make one fail.
#ifndef KUPDATE_UTIL_POSIX_FILE_STEP_H_
#define KUPDATE_UTIL_POSIX_FILE_STEP_H_

#include <string>

/// Decides about the next file operation: 0 lets it be done, any other
/// number is the errno with which it fails instead. May end the process.
/// @param step  "open", "write", "write on" (the second half of the bytes), "read", "flush",
///              "resize", "rename", "unlink", "mkdir", "list" or "look"
/// @param path  UTF-8
using FileStepGuard = int (*)(const char* step, const std::string& path);

/// From now on `guard` decides on every file operation of this process; null: all are done, and a
/// write is one operation. Set while no other thread works on files.
void SetFileStepGuard(FileStepGuard guard);
bool HasFileStepGuard();

/// For the sources of this folder, before each operation: whether it is to be done. If not, errno
/// says why.
bool MayDo(const char* step, const std::string& path);

#endif  // KUPDATE_UTIL_POSIX_FILE_STEP_H_
