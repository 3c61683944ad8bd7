#include "util/folder_content.h"

#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/text.h"
#include "util/win/file_time.h"
#include "util/win/unique.h"

namespace FileSystem {

std::vector<FileEntry> ListFiles(const std::string& folder) {
  std::vector<FileEntry> files;
  if (folder.empty()) return files;
  WIN32_FIND_DATAW data;
  const UniqueFind find(::FindFirstFileW((WidenUtf8(folder) + L"*").c_str(), &data));
  if (!find) return files;
  do {
    if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) continue;
    files.push_back({NarrowUtf8(data.cFileName), SecondsOf(data.ftLastWriteTime)});
  } while (::FindNextFileW(find.get(), &data));
  return files;
}

bool RemoveEmptyFolder(const std::string& folder) {
  return !folder.empty() && ::RemoveDirectoryW(WidenUtf8(folder).c_str());
}

bool RenameFile(const std::string& path, const std::string& target) {
  if (::MoveFileExW(WidenUtf8(path).c_str(), WidenUtf8(target).c_str(), 0)) return true;
  LOG_E << "Can't rename file: " << path << kLastError;
  return false;
}

}  // namespace FileSystem
