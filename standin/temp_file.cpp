#include "standin/temp_file.h"

#include "util/win/windows_lean.h"

namespace standin {
namespace {

// Beside the target, so that Complete only renames: on another volume it would have to copy.
std::wstring MakeBeside(const std::wstring& target) {
  const std::wstring folder = target.substr(0, target.find_last_of(L"\\/") + 1);
  wchar_t path[MAX_PATH] = L"";
  return ::GetTempFileNameW(folder.c_str(), L"BIT", 0, path) ? path : std::wstring();
}

}  // namespace

bool TempFile::Exists() const {
  return !path_.empty() && ::GetFileAttributesW(path_.c_str()) != INVALID_FILE_ATTRIBUTES;
}

HResult TempFile::Start(const std::wstring& target) {
  Close();
  // A retry keeps the file of the first try.
  if (!Exists()) path_ = MakeBeside(target);
  if (path_.empty()) return CodeOfSystemError(::GetLastError());
  HANDLE file = ::CreateFileW(path_.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                              TRUNCATE_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return CodeOfSystemError(::GetLastError());
  file_ = UniqueHandle(file);
  ::SetFileAttributesW(path_.c_str(), FILE_ATTRIBUTE_HIDDEN);
  return S_OK;
}

HResult TempFile::Append(const char* data, std::size_t sizeBytes) {
  DWORD written = 0;
  if (!::WriteFile(file_.get(), data, static_cast<DWORD>(sizeBytes), &written, nullptr)) {
    return CodeOfSystemError(::GetLastError());
  }
  // A short write without an error means that the disk is full.
  return written == sizeBytes ? S_OK : CodeOfSystemError(ERROR_DISK_FULL);
}

HResult TempFile::MoveOnto(const std::wstring& target) {
  Close();
  // Before the rename: the target must not be hidden, not even for a moment.
  ::SetFileAttributesW(path_.c_str(), FILE_ATTRIBUTE_NORMAL);
  if (!::MoveFileExW(path_.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING)) {
    const DWORD error = ::GetLastError();
    ::SetFileAttributesW(path_.c_str(), FILE_ATTRIBUTE_HIDDEN);
    return CodeOfSystemError(error);
  }
  path_.clear();
  return S_OK;
}

bool TempFile::Discard() {
  Close();
  if (path_.empty()) return true;
  // Another program may have deleted the file. The path stays for one that cannot be deleted.
  if (!::DeleteFileW(path_.c_str()) && ::GetLastError() != ERROR_FILE_NOT_FOUND) return false;
  path_.clear();
  return true;
}

}  // namespace standin
