#include "util/folder_content.h"

#include "util/diag_log.h"
#include "util/files.h"
#include "util/log_line.h"
#include "util/text.h"
#include "util/win/file_time.h"
#include "util/win/unique.h"
#include "util/win/while_held.h"

namespace {

// Opens a folder. Until it is closed it can be neither renamed nor removed, and no link can replace
// it.
UniqueFile HoldFolder(const std::wstring& folder) {
  UniqueFile held;
  TryWhileHeld(folder, Use::kRead, [&] {
    held.reset(::CreateFileW(folder.c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ, nullptr,
                             OPEN_EXISTING,
                             FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    return static_cast<bool>(held);
  });
  return held;
}

}  // namespace

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
  return !folder.empty() && !IsLink(folder) && ::RemoveDirectoryW(WidenUtf8(folder).c_str());
}

void DeleteFilesIn(const std::string& folder, bool (*isOurs)(std::string_view name)) {
  if (folder.empty()) return;
  const UniqueFile held = HoldFolder(WidenUtf8(folder));
  if (!held) {
    const DWORD error = ::GetLastError();
    const bool missing = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    if (!missing) LOG_E << "Can't hold folder: " << folder << kLastError;
    return;
  }
  // Asked after the folder is held: from now on its name means this folder.
  if (IsLink(folder)) {
    LOG_E << "Folder left alone, it is a link: " << folder;
    return;
  }
  for (const FileEntry& file : ListFiles(folder)) {
    // The system deletes a link itself, never what it leads to.
    if (isOurs(file.name)) DeleteFile(folder + file.name);
  }
}

bool RenameFile(const std::string& path, const std::string& target) {
  if (::MoveFileExW(WidenUtf8(path).c_str(), WidenUtf8(target).c_str(), 0)) return true;
  LOG_E << "Can't rename file: " << path << kLastError;
  return false;
}

}  // namespace FileSystem
