// Files and folders on other systems, for tests and fuzzing. Backslashes in paths become slashes
// here, at the last moment.
#include "util/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "util/append_file.h"
#include "util/diag_log.h"
#include "util/folders.h"
#include "util/log_line.h"
#include "util/text.h"
#include "util/text_mode.h"

namespace {

namespace fs = std::filesystem;

std::string Native(std::string path) {
  for (char& c : path) {
    if (c == '\\') c = '/';
  }
  return path;
}

std::string Native(const std::wstring& path) { return Native(NarrowUtf8(path)); }

bool WriteBytes(const std::string& path, std::string_view bytes, int flags) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0600);
  if (file < 0) return false;
  const ssize_t written = write(file, bytes.data(), bytes.size());
  return close(file) == 0 && written == static_cast<ssize_t>(bytes.size());
}

// "\<name>\" in the folder that the environment gives to the tests.
std::wstring HomeFolder(const wchar_t* name) {
  const char* const home = std::getenv("KUPDATE_HOME");
  return home ? WidenUtf8(home) + L"\\" + name : std::wstring();
}

}  // namespace

bool AppendToFile(const std::wstring& path, std::string_view text) {
  return WriteBytes(Native(path), text, O_APPEND);
}

void MakeFolder(const std::wstring& path) {
  std::error_code ignored;
  fs::create_directories(Native(path), ignored);
}

std::wstring GetSpecialFolder(int csidl, const std::wstring& subPath, CreateFolder create) {
  const bool roaming = csidl == 0x1A;
  std::wstring folder = FolderBelow(HomeFolder(roaming         ? L"Roaming"
                                               : csidl == 0x1C ? L"Local"
                                                               : L"Common"),
                                    subPath);
  if (create == CreateFolder::kYes) MakeFolder(folder);
  return folder;
}

std::wstring GetLocalAppDataLowFolder(const std::wstring& subPath) {
  return FolderBelow(HomeFolder(L"LocalLow"), subPath);
}

std::wstring GetTempFolder() {
  std::wstring folder = FolderBelow(HomeFolder(L"Temp"), {});
  MakeFolder(folder);
  return folder;
}

namespace JustUtil {

bool IsPathExist(const std::wstring& path) { return access(Native(path).c_str(), F_OK) == 0; }

void BackupFile(std::wstring& path) {
  if (path.empty()) {
    LOG_D << "File name is empty.";
    return;
  }
  const std::wstring backup = path + L".bak";
  if (!FileSystem::CopyFile(NarrowUtf8(path), NarrowUtf8(backup))) return;
  FileSystem::DeleteFile(NarrowUtf8(path));
  path = backup;
}

}  // namespace JustUtil

namespace FileSystem {

ReadOutcome ReadFile(const std::string& path, std::string* content) {
  content->clear();
  const int file = open(Native(path).c_str(), O_RDONLY | O_CLOEXEC);
  const bool isMissing = file < 0 && errno == ENOENT && !path.empty();
  char bytes[8192];
  ssize_t size = -1;  // stays for a file that cannot be opened; a folder can, but not read
  while (file >= 0 && (size = read(file, bytes, sizeof bytes)) > 0) {
    content->append(bytes, static_cast<std::size_t>(size));
  }
  if (file >= 0) close(file);
  if (size < 0) {
    content->clear();
    LOG_E << "Can't open file: " << path;
    return isMissing ? ReadOutcome::kMissing : ReadOutcome::kFailed;
  }
  DropCrBeforeLf(content);
  return ReadOutcome::kRead;
}

bool WriteFile(const std::string& path, std::string_view content) {
  const std::string native = Native(path);
  std::error_code ignored;
  fs::create_directory(fs::path(native).parent_path(), ignored);
  const bool written = !path.empty() && WriteBytes(native + ".new", WithCrLf(content), O_TRUNC) &&
                       std::rename((native + ".new").c_str(), native.c_str()) == 0;
  if (!written) LOG_E << "Can't open file: " << path;
  if (written) LOG_P << content.size() << "bytes wrote.";
  return written;
}

bool ListFolders(const std::string& path, std::vector<std::string>* names) {
  names->clear();
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(Native(path), error)) {
    if (entry.is_directory()) names->push_back(entry.path().filename().string());
  }
  return !error || error == std::errc::no_such_file_or_directory;
}

bool IsFileExist(const std::string& path) { return access(Native(path).c_str(), R_OK) == 0; }

void DeleteFile(const std::string& path) { unlink(Native(path).c_str()); }

bool CopyFile(const std::string& path, const std::string& target) {
  std::error_code error;
  fs::copy_file(Native(path), Native(target), fs::copy_options::overwrite_existing, error);
  if (error) LOG_E << "CopyFile error. Path: " << path << kLastError;
  return !error;
}

std::string GetFileTime(const std::string& path) {
  struct stat status;
  tm local;
  if (stat(Native(path).c_str(), &status) != 0 || !localtime_r(&status.st_mtime, &local)) {
    LOG_E << "Can't get file time:" << path;
    return {};
  }
  return DateText(local.tm_mday, local.tm_mon + 1, local.tm_year + 1900);
}

}  // namespace FileSystem
