#include "util/files.h"
#include "util/win/unique.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <new>
#include <vector>

#include "util/append_file.h"
#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/text.h"
#include "util/text_mode.h"
#include "util/win/while_held.h"

namespace {

// While this process reads a state file, others must be able to replace it.
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

bool IsLink(DWORD attributes) {
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

bool IsMissing(DWORD error) {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

UniqueFile OpenForReading(const std::wstring& path) {
  UniqueFile file;
  TryWhileHeld(path, Use::kRead, [&] {
    file.reset(::CreateFileW(path.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING,
                             FILE_ATTRIBUTE_NORMAL, nullptr));
    return static_cast<bool>(file);
  });
  return file;
}

// A link is opened itself, so that nothing is written to the file that it leads to.
UniqueFile OpenForWriting(const std::wstring& path, DWORD disposition) {
  return UniqueFile(::CreateFileW(path.c_str(), GENERIC_WRITE, kShareAll, nullptr, disposition,
                                  FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
}

// Makes a new file. A file that a killed process left, or a link, is deleted first.
UniqueFile MakeFile(const std::wstring& path) {
  UniqueFile file = OpenForWriting(path, CREATE_NEW);
  if (!file && ::GetLastError() == ERROR_FILE_EXISTS && ::DeleteFileW(path.c_str())) {
    file = OpenForWriting(path, CREATE_NEW);
  }
  return file;
}

FileSystem::ReadOutcome ReadAll(HANDLE file, std::uint64_t maxBytes, std::string* content) {
  using FileSystem::ReadOutcome;
  LARGE_INTEGER size;
  if (!::GetFileSizeEx(file, &size)) return ReadOutcome::kFailed;
  if (static_cast<std::uint64_t>(size.QuadPart) > maxBytes) return ReadOutcome::kTooLarge;
  // One call reads no more; no file of ours comes near it.
  if (size.QuadPart > std::numeric_limits<std::int32_t>::max()) return ReadOutcome::kFailed;
  content->resize(static_cast<std::size_t>(size.QuadPart));
  DWORD read = 0;
  if (!::ReadFile(file, content->data(), static_cast<DWORD>(content->size()), &read, nullptr)) {
    return ReadOutcome::kFailed;
  }
  content->resize(read);
  return ReadOutcome::kRead;
}

enum class WriteOutcome { kWritten, kNotOpened, kShort };

// Writes `bytes` in one call and flushes them: otherwise a power cut could leave the renaming on
// the disk without the content.
WriteOutcome WriteBytes(const std::wstring& path, std::string_view bytes, DWORD* written) {
  *written = 0;
  const UniqueFile file = MakeFile(path);
  if (!file) return WriteOutcome::kNotOpened;
  ::WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), written, nullptr);
  if (*written != bytes.size()) return WriteOutcome::kShort;
  ::FlushFileBuffers(file.get());
  return WriteOutcome::kWritten;
}

bool WriteAt(HANDLE file, std::size_t place, std::string_view bytes, DWORD* written) {
  LARGE_INTEGER to;
  to.QuadPart = static_cast<LONGLONG>(place);
  *written = 0;
  ::SetFilePointerEx(file, to, nullptr, FILE_BEGIN);
  ::WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), written, nullptr);
  return *written == bytes.size();
}

bool Resize(HANDLE file, std::size_t size) {
  LARGE_INTEGER to;
  to.QuadPart = static_cast<LONGLONG>(size);
  return ::SetFilePointerEx(file, to, nullptr, FILE_BEGIN) && ::SetEndOfFile(file);
}

// Overwrites a file that cannot be replaced. The part beyond the old end comes first, because only
// that needs room on the disk: without room the old content stays.
WriteOutcome OverwriteBytes(const std::wstring& path, std::string_view bytes, DWORD* written) {
  *written = 0;
  const UniqueFile file = OpenForWriting(path, OPEN_ALWAYS);
  LARGE_INTEGER size;
  // A link that was opened itself is not written to either.
  if (!file || IsLink(::GetFileAttributesW(path.c_str())) || !::GetFileSizeEx(file.get(), &size)) {
    return WriteOutcome::kNotOpened;
  }
  const auto oldSize = static_cast<std::size_t>(size.QuadPart);
  const std::size_t kept = std::min(oldSize, bytes.size());
  if (!WriteAt(file.get(), kept, bytes.substr(kept), written)) {
    Resize(file.get(), oldSize);
    return WriteOutcome::kShort;
  }
  if (!WriteAt(file.get(), 0, bytes.substr(0, kept), written)) return WriteOutcome::kShort;
  Resize(file.get(), bytes.size());
  ::FlushFileBuffers(file.get());
  return WriteOutcome::kWritten;
}

// Returns when the renaming is on the disk, so that an acknowledged value survives a power cut.
bool Replace(const std::wstring& target, const std::wstring& replacement) {
  return TryWhileHeld(target, Use::kChange, [&] {
    return ::MoveFileExW(replacement.c_str(), target.c_str(),
                         MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
  });
}

}  // namespace

// A read that is denied for good fails at once and does not wait each time.
bool MayBeHeld(const std::wstring& path, Use use, DWORD error) {
  if (error == ERROR_SHARING_VIOLATION) return true;
  if (error != ERROR_ACCESS_DENIED) return false;
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  // A file that is deleted, and goes when its last reader closes it, does not even give its
  // attributes.
  if (attributes == INVALID_FILE_ATTRIBUTES) return true;
  constexpr DWORD kNeverChanged = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_DIRECTORY;
  return use == Use::kChange && (attributes & kNeverChanged) == 0;
}

bool AppendToFile(const std::wstring& path, std::string_view text) {
  // With this right alone the system writes at the end, also when several processes do so at once.
  const UniqueFile file(::CreateFileW(path.c_str(), FILE_APPEND_DATA, kShareAll, nullptr,
                                      OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return false;
  const std::string bytes = WithCrLf(text);
  DWORD written = 0;
  return ::WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written,
                     nullptr) &&
         written == bytes.size();
}

// Works on a handle, not on the name. If another process has moved the file aside in the meantime,
// this renames the same file again and not the new log.
void MoveAsideAbove(const std::wstring& path, std::uint64_t maxBytes) {
  const UniqueFile file(::CreateFileW(path.c_str(), DELETE | FILE_READ_ATTRIBUTES, kShareAll,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  LARGE_INTEGER size;
  if (!file || !::GetFileSizeEx(file.get(), &size) ||
      static_cast<std::uint64_t>(size.QuadPart) <= maxBytes) {
    return;
  }
  const std::wstring backup = path + L".bak";
  const std::size_t nameBytes = backup.size() * sizeof(wchar_t);
  std::vector<std::byte> buffer(sizeof(FILE_RENAME_INFO) + nameBytes);  // and an ending zero
  auto* const rename = new (buffer.data()) FILE_RENAME_INFO{};
  rename->ReplaceIfExists = TRUE;
  rename->FileNameLength = static_cast<DWORD>(nameBytes);
  std::memcpy(rename->FileName, backup.c_str(), nameBytes);
  ::SetFileInformationByHandle(file.get(), FileRenameInfo, rename,
                               static_cast<DWORD>(buffer.size()));
}

namespace JustUtil {

bool IsPathExist(const std::wstring& path) {
  WIN32_FIND_DATAW data;
  const UniqueFind find(::FindFirstFileW(path.c_str(), &data));
  return static_cast<bool>(find);
}

void BackupFile(std::wstring& path) {
  if (path.empty()) {
    LOG_D << "File name is empty.";
    return;
  }
  const std::wstring backup = path + L".bak";
  if (!::CopyFileW(path.c_str(), backup.c_str(), FALSE)) {
    LOG_E << "CopyFile error. Path: " << path << kLastError;
    return;
  }
  if (!::DeleteFileW(path.c_str())) {
    LOG_E << "DeleteFile error. Path: " << path << kLastError;
    return;
  }
  path = backup;
}

std::int64_t GetFileSize(const std::wstring& path) {
  const UniqueFile file(::CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) {
    LOG_E << "Can't open file: " << path << kLastError;
    return 0;
  }
  LARGE_INTEGER size;
  return ::GetFileSizeEx(file.get(), &size) ? size.QuadPart : 0;
}

}  // namespace JustUtil

namespace FileSystem {

ReadOutcome ReadFileIfAny(const std::string& path, std::string* content, std::uint64_t maxBytes) {
  constexpr std::string_view kOperation = "FileSystem::ReadFile";
  content->clear();
  const UniqueFile file = OpenForReading(WidenUtf8(path));
  if (!file) {
    // An empty path stands for a folder that the system does not name: a failure, not a missing
    // file.
    if (IsMissing(::GetLastError()) && !path.empty()) return ReadOutcome::kMissing;
    LogAs(kOperation, __LINE__, "E:") << "Can't open file: " << path;
    return ReadOutcome::kFailed;
  }
  ReadOutcome outcome = ReadOutcome::kFailed;
  try {
    outcome = ReadAll(file.get(), maxBytes, content);
    if (outcome == ReadOutcome::kRead) {
      DropCrBeforeLf(content);
    } else if (outcome == ReadOutcome::kTooLarge) {
      LogAs(kOperation, __LINE__, "E:") << "File too large: " << path;
    } else {
      LogAs(kOperation, __LINE__, "E:") << "Can't read file: " << path << kLastError;
    }
  } catch (const std::bad_alloc&) {
    LogAs(kOperation, __LINE__, "E:") << "Can't read file: " << path << "Out of memory.";
  }
  if (outcome != ReadOutcome::kRead) content->clear();
  return outcome;
}

bool WriteFile(const std::string& path, std::string_view content) {
  const std::wstring target = WidenUtf8(path);
  const std::wstring sibling = target + L".new";
  const std::string bytes = WithCrLf(content);
  DWORD written = 0;
  WriteOutcome outcome = WriteOutcome::kNotOpened;
  if (!target.empty()) {
    outcome = WriteBytes(sibling, bytes, &written);
    // The folder is made only when it is missed, so most writes do not ask for it.
    if (outcome == WriteOutcome::kNotOpened && ::GetLastError() == ERROR_PATH_NOT_FOUND &&
        ::CreateDirectoryW(GetFolderOfPath(target).c_str(), nullptr)) {
      outcome = WriteBytes(sibling, bytes, &written);
    }
    const bool replaced = outcome == WriteOutcome::kWritten && Replace(target, sibling);
    // A full disk must not cost the old content as well.
    if (!replaced && outcome != WriteOutcome::kShort) {
      outcome = OverwriteBytes(target, bytes, &written);
    }
    if (!replaced) ::DeleteFileW(sibling.c_str());
  }
  switch (outcome) {
    case WriteOutcome::kWritten:
      LOG_P << content.size() << "bytes wrote.";
      return true;
    case WriteOutcome::kNotOpened:
      LOG_E << "Can't open file: " << path;
      return false;
    case WriteOutcome::kShort:
      LOG_E << "Try to write " << content.size() << ", really - " << TextBytesIn(content, written);
      return false;
  }
  return false;
}

bool ListFolders(const std::string& path, std::vector<std::string>* names) {
  names->clear();
  if (path.empty()) return false;
  WIN32_FIND_DATAW data;
  const UniqueFind find(::FindFirstFileW((WidenUtf8(path) + L"*").c_str(), &data));
  if (!find) {
    // Each folder has "." at least, so nothing found means a missing folder or a failure.
    return IsMissing(::GetLastError());
  }
  do {
    const std::wstring_view name = data.cFileName;
    const bool isFolder = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    if (isFolder && name != L"." && name != L"..") names->push_back(NarrowUtf8(name));
  } while (::FindNextFileW(find.get(), &data));
  return ::GetLastError() == ERROR_NO_MORE_FILES;
}

// Looks the name up instead of opening the file: a file that is held, or refuses, is still there.
bool IsNameFree(const std::string& path) {
  WIN32_FIND_DATAW data;
  const UniqueFind find(::FindFirstFileW(WidenUtf8(path).c_str(), &data));
  if (find) return false;
  const bool missing = IsMissing(::GetLastError());
  if (!missing) LOG_E << "Can't look for file: " << path << kLastError;
  return missing && !path.empty();
}

bool IsFileExist(const std::string& path) {
  return static_cast<bool>(OpenForReading(WidenUtf8(path)));
}

void DeleteFile(const std::string& path) {
  const std::wstring target = WidenUtf8(path);
  TryWhileHeld(target, Use::kChange, [&] { return ::DeleteFileW(target.c_str()) != 0; });
}

bool CopyFile(const std::string& path, const std::string& target) {
  const std::wstring from = WidenUtf8(path);
  const std::wstring to = WidenUtf8(target);
  // The copy must not land where a link leads to.
  if (::IsLink(::GetFileAttributesW(to.c_str()))) ::DeleteFileW(to.c_str());
  if (TryWhileHeld(from, Use::kRead,
                   [&] { return ::CopyFileW(from.c_str(), to.c_str(), FALSE) != 0; })) {
    return true;
  }
  LOG_E << "CopyFile error. Path: " << path << kLastError;
  return false;
}

bool IsLink(const std::string& path) {
  std::wstring name = WidenUtf8(path);
  // With a backslash at its end the system may look behind the link.
  while (name.ends_with(L'\\')) name.pop_back();
  return ::IsLink(::GetFileAttributesW(name.c_str()));
}

std::string GetFileTime(const std::string& path) {
  const UniqueFile file = OpenForReading(WidenUtf8(path));
  FILETIME modified;
  SYSTEMTIME utc;
  SYSTEMTIME local;
  // This conversion uses the daylight saving of the file's own day, not that of today.
  if (!file || !::GetFileTime(file.get(), nullptr, nullptr, &modified) ||
      !::FileTimeToSystemTime(&modified, &utc) ||
      !::SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local)) {
    LOG_E << "Can't get file time:" << path;
    return {};
  }
  return DateText(local.wDay, local.wMonth, local.wYear);
}

}  // namespace FileSystem
