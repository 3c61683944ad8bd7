// Whole files: reading, replacing, moving, measuring. Nothing here throws; every failure is logged.
// Stores name files by narrow UTF-8 paths (FileSystem); shells and logs use wide paths. An empty
// path is a file that cannot be opened, never one in the current directory.
#ifndef KUPDATE_UTIL_FILES_H_
#define KUPDATE_UTIL_FILES_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Turns every "/" into "\" and ends a path that is not empty with "\". Changes `path` and returns
/// a copy.
std::wstring NormalizeFolder(std::wstring& path);

/// The text up to and including the last "\"; the whole path when it holds none.
std::wstring GetFolderOfPath(const std::wstring& path);

/// How long a path may be for the shell's file operations, its ending zero included.
inline constexpr std::size_t kMaxShellPathChars = 260;

/// Copies `path` with a second ending zero, as a list of one file for the shell.
/// @param buffer  kMaxShellPathChars + 1 characters, all of them written
/// @return false, and "Path too long." in the log, for kMaxShellPathChars characters or more.
bool PrepareString(const std::wstring& path, wchar_t* buffer);

namespace JustUtil {

/// Whether a file or folder of that name is there.
bool IsPathExist(const std::wstring& path);

/// Moves a folder with all below it.
/// @return false only when a path was too long. True even when the move failed: callers learn of
///         that from the log alone, and rely on it.
bool MoveDirectory(const std::wstring& source, const std::wstring& destination);

/// Renames the file to its name with ".bak", over an older backup; then `path` is the backup's. A
/// failure leaves `path` as it is.
void BackupFile(std::wstring& path);

/// 0 when the file cannot be opened or measured.
std::int64_t GetFileSize(const std::wstring& path);

}  // namespace JustUtil

namespace FileSystem {

enum class ReadOutcome {
  kRead,      ///< the whole file was read
  kMissing,   ///< there is no such file or folder
  kFailed,    ///< it is there and cannot be read
  kTooLarge,  ///< it has more bytes than the caller accepts; nothing was read
};

/// No limit on the size of a file.
inline constexpr std::uint64_t kAnySize = ~std::uint64_t{0};

/// Reads the whole file in text mode: CR LF becomes LF. A file that another program holds open is
/// tried again for 100 ms. Anything but kRead is logged and leaves `content` empty.
/// @param maxBytes  a larger file is not read
ReadOutcome ReadFile(const std::string& path, std::string* content,
                     std::uint64_t maxBytes = kAnySize);

/// The same for a file that need not exist: kMissing is not logged.
ReadOutcome ReadFileIfAny(const std::string& path, std::string* content,
                          std::uint64_t maxBytes = kAnySize);

/// The same for callers to whom a file that cannot be read is an empty one.
std::string ReadFile(const std::string& path);

/// Replaces the file in text mode (LF becomes CR LF), in one step: a reader, and one that
/// comes after a kill or a power cut, finds the old content or the new. The folder is made, one
/// level only. Where the file cannot be replaced for 100 ms (a program holds it open) it is
/// overwritten in place; then too a full disk leaves the old content.
/// @return whether the whole content was written; else that was logged.
bool WriteFile(const std::string& path, std::string_view content);

/// The names of the folders in a folder, in no order.
/// @return false when it is there and cannot be listed; a missing folder holds no folders.
bool ListFolders(const std::string& path, std::vector<std::string>* names);

/// Whether there is surely nothing of that name: false also when the system does not say, which
/// is logged.
bool IsNameFree(const std::string& path);

/// Whether the file can be opened for reading.
bool IsFileExist(const std::string& path);

/// Deletes the file, also where a program holds it open for less than 100 ms. A file that is not
/// there, or cannot be deleted, is no failure here.
void DeleteFile(const std::string& path);

/// Copies the file over `target`. A failure is logged.
bool CopyFile(const std::string& path, const std::string& target);

/// Whether a name is a link: a junction, a symbolic link or another reparse point, to a file or a
/// folder. False when nothing of that name exists.
bool IsLink(const std::string& path);

/// The day of the last modification, "%02d.%02d.%04d", local time. Empty on failure.
std::string GetFileTime(const std::string& path);

}  // namespace FileSystem

#endif  // KUPDATE_UTIL_FILES_H_
