// The content of a folder, its age, and its removal. Windows only. Nothing throws; names and paths
// are UTF-8, folders end with a backslash.
#ifndef KUPDATE_UTIL_FOLDER_CONTENT_H_
#define KUPDATE_UTIL_FOLDER_CONTENT_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace FileSystem {

struct FileEntry {
  std::string name;
  std::uint64_t modified;  ///< seconds since 1970-01-01 UTC
};

/// The files of a folder, in no order; folders are left out. Empty when it cannot be listed.
std::vector<FileEntry> ListFiles(const std::string& folder);

/// Removes a folder that is empty. A link stays. False when it stays.
bool RemoveEmptyFolder(const std::string& folder);

/// Deletes those files of a folder whose names `isOurs` accepts. Follows no link: a folder that is
/// a link is left alone, which is logged, and no program can put a link in its place meanwhile.
void DeleteFilesIn(const std::string& folder, bool (*isOurs)(std::string_view name));

/// Renames a file within its volume, also a program that runs. False when that is refused.
bool RenameFile(const std::string& path, const std::string& target);

}  // namespace FileSystem

#endif  // KUPDATE_UTIL_FOLDER_CONTENT_H_
