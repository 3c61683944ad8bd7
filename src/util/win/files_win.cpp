#include "util/files.h"
#include "util/win/unique.h"

#include <algorithm>
#include <limits>
#include <new>

#include "util/append_file.h"
#include "util/clock.h"
#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/text.h"
#include "util/text_mode.h"

namespace {

// Whoever reads a state file must not keep others from replacing it meanwhile.
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

constexpr unsigned kReplaceTries = 10;
constexpr unsigned kReplacePauseMilliseconds = 10;

UniqueFile OpenForReading(const std::wstring& path) {
  return UniqueFile(::CreateFileW(path.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
}

UniqueFile OpenForWriting(const std::wstring& path, DWORD disposition) {
  return UniqueFile(::CreateFileW(path.c_str(), GENERIC_WRITE, kShareAll, nullptr, disposition,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
}

bool ReadAll(HANDLE file, std::string* content) {
  LARGE_INTEGER size;
  if (!::GetFileSizeEx(file, &size) || size.QuadPart > std::numeric_limits<std::int32_t>::max()) {
    return false;
  }
  content->resize(static_cast<std::size_t>(size.QuadPart));
  DWORD read = 0;
  if (!::ReadFile(file, content->data(), static_cast<DWORD>(content->size()), &read, nullptr)) {
    return false;
  }
  content->resize(read);
  return true;
}

enum class WriteOutcome { kWritten, kNotOpened, kShort };

// Writes `bytes` in one call and onto the disk, so that a replacement that survives a power cut does not
// bring an empty file with it.
WriteOutcome WriteBytes(const std::wstring& path, std::string_view bytes, DWORD* written) {
  *written = 0;
  const UniqueFile file = OpenForWriting(path, CREATE_ALWAYS);
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

// Overwrites a file that cannot be replaced. What is beyond its old end comes first: nothing else
// needs room on the disk, and where there is none the old content stays.
WriteOutcome OverwriteBytes(const std::wstring& path, std::string_view bytes, DWORD* written) {
  *written = 0;
  const UniqueFile file = OpenForWriting(path, OPEN_ALWAYS);
  LARGE_INTEGER size;
  if (!file || !::GetFileSizeEx(file.get(), &size)) return WriteOutcome::kNotOpened;
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

// Whether a target that refuses to be replaced may do so only because a program has it open.
bool MayBeHeld(const std::wstring& target, DWORD error) {
  if (error == ERROR_SHARING_VIOLATION) return true;
  if (error != ERROR_ACCESS_DENIED) return false;
  const DWORD attributes = ::GetFileAttributesW(target.c_str());
  return attributes == INVALID_FILE_ATTRIBUTES ||
         (attributes & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_DIRECTORY)) == 0;
}

// A program that has the target open (a scanner, an editor) is given a moment to let it go.
template <class Change>
bool TryWhileHeld(const std::wstring& target, Change change) {
  for (unsigned tries = 0; !change(); ++tries) {
    if (tries == kReplaceTries || !MayBeHeld(target, ::GetLastError())) return false;
    SleepMilliseconds(kReplacePauseMilliseconds);
  }
  return true;
}

bool Replace(const std::wstring& target, const std::wstring& replacement) {
  return TryWhileHeld(target, [&] {
    return ::MoveFileExW(replacement.c_str(), target.c_str(),
                         MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
  });
}

}  // namespace

bool AppendToFile(const std::wstring& path, std::string_view text) {
  const UniqueFile file(::CreateFileW(path.c_str(), FILE_APPEND_DATA, kShareAll, nullptr,
                                      OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return false;
  const std::string bytes = WithCrLf(text);
  DWORD written = 0;
  return ::WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written,
                     nullptr) &&
         written == bytes.size();
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

ReadOutcome ReadFile(const std::string& path, std::string* content) {
  content->clear();
  const UniqueFile file = OpenForReading(WidenUtf8(path));
  if (!file) {
    const DWORD error = ::GetLastError();
    LOG_E << "Can't open file: " << path;
    const bool missing = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    return missing && !path.empty() ? ReadOutcome::kMissing : ReadOutcome::kFailed;
  }
  try {
    if (ReadAll(file.get(), content)) {
      DropCrBeforeLf(content);
      return ReadOutcome::kRead;
    }
    LOG_E << "Can't read file: " << path << kLastError;
  } catch (const std::bad_alloc&) {
    LOG_E << "Can't read file: " << path << "Out of memory.";
  }
  content->clear();
  return ReadOutcome::kFailed;
}

bool WriteFile(const std::string& path, std::string_view content) {
  const std::wstring target = WidenUtf8(path);
  const std::wstring sibling = target + L".new";
  const std::string bytes = WithCrLf(content);
  DWORD written = 0;
  WriteOutcome outcome = WriteOutcome::kNotOpened;
  if (!target.empty()) {
    outcome = WriteBytes(sibling, bytes, &written);
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
      LOG_E << "Try to write " << bytes.size() << ", really - " << written;
      return false;
  }
  return false;
}

bool ListFolders(const std::string& path, std::vector<std::string>* names) {
  names->clear();
  WIN32_FIND_DATAW data;
  const UniqueFind find(::FindFirstFileW((WidenUtf8(path) + L"*").c_str(), &data));
  if (!find) {
    const DWORD error = ::GetLastError();
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
  }
  do {
    const std::wstring_view name = data.cFileName;
    const bool isFolder = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    if (isFolder && name != L"." && name != L"..") names->push_back(NarrowUtf8(name));
  } while (::FindNextFileW(find.get(), &data));
  return ::GetLastError() == ERROR_NO_MORE_FILES;
}

bool IsNameFree(const std::string& path) {
  WIN32_FIND_DATAW data;
  const UniqueFind find(::FindFirstFileW(WidenUtf8(path).c_str(), &data));
  if (find) return false;
  const DWORD error = ::GetLastError();
  const bool missing = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
  if (!missing) LOG_E << "Can't look for file: " << path << kLastError;
  return missing && !path.empty();
}

bool IsFileExist(const std::string& path) {
  return static_cast<bool>(OpenForReading(WidenUtf8(path)));
}

void DeleteFile(const std::string& path) {
  const std::wstring target = WidenUtf8(path);
  TryWhileHeld(target, [&] { return ::DeleteFileW(target.c_str()) != 0; });
}

bool CopyFile(const std::string& path, const std::string& target) {
  if (::CopyFileW(WidenUtf8(path).c_str(), WidenUtf8(target).c_str(), FALSE)) return true;
  LOG_E << "CopyFile error. Path: " << path << kLastError;
  return false;
}

std::string GetFileTime(const std::string& path) {
  const UniqueFile file = OpenForReading(WidenUtf8(path));
  FILETIME modified;
  SYSTEMTIME utc;
  SYSTEMTIME local;
  if (!file || !::GetFileTime(file.get(), nullptr, nullptr, &modified) ||
      !::FileTimeToSystemTime(&modified, &utc) ||
      !::SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local)) {
    LOG_E << "Can't get file time:" << path;
    return {};
  }
  return DateText(local.wDay, local.wMonth, local.wYear);
}

}  // namespace FileSystem
