// Files and folders on other systems, for tests and fuzzing. Backslashes in paths become slashes
// here, at the last moment.
#include "util/files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

#include "util/append_file.h"
#include "util/diag_log.h"
#include "util/folders.h"
#include "util/log_line.h"
#include "util/posix/file_step.h"
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

// An open file; false when it could not be opened. Each operation that a proof counts asks the
// guard first.
class OpenFile {
 public:
  OpenFile(const std::string& path, int flags)
      : path_(path),
        file_(MayDo("open", path) ? open(path.c_str(), flags | O_CLOEXEC, 0600) : -1) {}
  ~OpenFile() {
    if (file_ >= 0) close(file_);
  }
  OpenFile(OpenFile&& other) noexcept
      : path_(std::move(other.path_)), file_(std::exchange(other.file_, -1)) {}

  explicit operator bool() const { return file_ >= 0; }

  bool LockAlone() const { return flock(file_, LOCK_EX) == 0; }

  // Whether the name still leads to this file: another process may have moved it aside.
  bool IsNamed(const std::string& path) const {
    struct stat own;
    struct stat named;
    return fstat(file_, &own) == 0 && MayDo("look", path) && stat(path.c_str(), &named) == 0 &&
           own.st_dev == named.st_dev && own.st_ino == named.st_ino;
  }

  std::size_t Size() const {
    struct stat status;
    return fstat(file_, &status) == 0 ? static_cast<std::size_t>(status.st_size) : 0;
  }

  FileSystem::ReadOutcome ReadAll(std::uint64_t maxBytes, std::string* content) const {
    using FileSystem::ReadOutcome;
    if (!MayDo("read", path_)) return ReadOutcome::kFailed;
    char piece[4096];
    ssize_t count = 0;
    while ((count = read(file_, piece, sizeof piece)) > 0) {
      content->append(piece, static_cast<std::size_t>(count));
      if (content->size() > maxBytes) return ReadOutcome::kTooLarge;
    }
    return count == 0 ? ReadOutcome::kRead : ReadOutcome::kFailed;
  }

  // For a proof that watches the steps, a write is two steps: a disk may be full in the middle of
  // one. Returns how many bytes were written.
  std::size_t Write(std::string_view bytes) const {
    const std::size_t half = HasFileStepGuard() ? bytes.size() / 2 : bytes.size();
    const std::size_t written = WritePiece("write", bytes.substr(0, half));
    if (written < half || half == bytes.size()) return written;
    return written + WritePiece("write on", bytes.substr(half));
  }
  bool SeekTo(std::size_t place) const {
    return lseek(file_, static_cast<off_t>(place), SEEK_SET) >= 0;
  }
  bool Resize(std::size_t size) const {
    return MayDo("resize", path_) && ftruncate(file_, static_cast<off_t>(size)) == 0;
  }
  void Flush() const {
    if (MayDo("flush", path_)) fsync(file_);
  }

 private:
  std::size_t WritePiece(const char* step, std::string_view bytes) const {
    if (bytes.empty() || !MayDo(step, path_)) return 0;
    const ssize_t written = write(file_, bytes.data(), bytes.size());
    return written < 0 ? 0 : static_cast<std::size_t>(written);
  }

  std::string path_;
  int file_;
};

enum class WriteOutcome { kWritten, kNotOpened, kShort };

bool Unlink(const std::string& path) { return MayDo("unlink", path) && unlink(path.c_str()) == 0; }

// Makes a new file. A file that a killed process left, or a link, is deleted first.
OpenFile MakeFile(const std::string& path) {
  constexpr int kNew = O_WRONLY | O_CREAT | O_EXCL;
  OpenFile file(path, kNew);
  return !file && errno == EEXIST && Unlink(path) ? OpenFile(path, kNew) : std::move(file);
}

// Writes `bytes` onto the disk, as on Windows.
WriteOutcome WriteBytes(const std::string& path, std::string_view bytes, std::size_t* written) {
  *written = 0;
  const OpenFile file = MakeFile(path);
  if (!file) return WriteOutcome::kNotOpened;
  *written = file.Write(bytes);
  if (*written != bytes.size()) return WriteOutcome::kShort;
  file.Flush();
  return WriteOutcome::kWritten;
}

// Writes the part beyond the old end first, as on Windows.
WriteOutcome OverwriteBytes(const std::string& path, std::string_view bytes, std::size_t* written) {
  *written = 0;
  const OpenFile file(path, O_WRONLY | O_CREAT | O_NOFOLLOW);
  if (!file) return WriteOutcome::kNotOpened;
  const std::size_t oldSize = file.Size();
  const std::size_t kept = std::min(oldSize, bytes.size());
  *written = file.SeekTo(kept) ? file.Write(bytes.substr(kept)) : 0;
  if (*written != bytes.size() - kept) {
    file.Resize(oldSize);
    return WriteOutcome::kShort;
  }
  *written = file.SeekTo(0) ? file.Write(bytes.substr(0, kept)) : 0;
  if (*written != kept) return WriteOutcome::kShort;
  file.Resize(bytes.size());
  file.Flush();
  return WriteOutcome::kWritten;
}

bool Rename(const std::string& from, const std::string& to) {
  return MayDo("rename", to) && std::rename(from.c_str(), to.c_str()) == 0;
}

// "\<name>\" in the folder that the environment gives to the tests.
std::wstring HomeFolder(const wchar_t* name) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the environment stays while threads run
  const char* const home = std::getenv("KUPDATE_HOME");
  return home ? WidenUtf8(home) + L"\\" + name : std::wstring();
}

}  // namespace

bool AppendToFile(const std::wstring& path, std::string_view text) {
  const OpenFile file(Native(path), O_WRONLY | O_CREAT | O_APPEND);
  return file && file.Write(text) == text.size();
}

void MoveAsideAbove(const std::wstring& path, std::uint64_t maxBytes) {
  const std::string native = Native(path);
  const OpenFile file(native, O_RDWR);
  // Processes take turns here: those that had to wait find that the name is another file's by now.
  if (file && file.LockAlone() && file.Size() > maxBytes && file.IsNamed(native)) {
    Rename(native, native + ".bak");
  }
}

void MakeFolder(const std::wstring& path) {
  const std::string native = Native(path);
  std::error_code ignored;
  if (!fs::is_directory(native, ignored) && MayDo("mkdir", native)) {
    fs::create_directories(native, ignored);
  }
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

bool IsPathExist(const std::wstring& path) {
  const std::string native = Native(path);
  return MayDo("look", native) && access(native.c_str(), F_OK) == 0;
}

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

ReadOutcome ReadFileIfAny(const std::string& path, std::string* content, std::uint64_t maxBytes) {
  content->clear();
  const OpenFile file(Native(path), O_RDONLY);
  if (!file && !path.empty() && errno == ENOENT) return ReadOutcome::kMissing;
  const ReadOutcome outcome = file ? file.ReadAll(maxBytes, content) : ReadOutcome::kFailed;
  if (outcome == ReadOutcome::kRead) {
    DropCrBeforeLf(content);
    return outcome;
  }
  content->clear();
  const bool isLarge = outcome == ReadOutcome::kTooLarge;
  // A folder can be opened here, but not read.
  LogAs("FileSystem::ReadFile", __LINE__, "E:")
      << (isLarge ? "File too large: " : "Can't open file: ") << path;
  return outcome;
}

// The same steps in the same order as on Windows: proofs that run here speak for both.
bool WriteFile(const std::string& path, std::string_view content) {
  const std::string target = Native(path);
  const std::string sibling = target + ".new";
  const std::string bytes = WithCrLf(content);
  std::size_t written = 0;
  WriteOutcome outcome = WriteOutcome::kNotOpened;
  if (!target.empty()) {
    const std::string folder = fs::path(target).parent_path();
    if (MayDo("mkdir", folder)) mkdir(folder.c_str(), 0700);
    outcome = WriteBytes(sibling, bytes, &written);
    const bool replaced = outcome == WriteOutcome::kWritten && Rename(sibling, target);
    if (!replaced && outcome != WriteOutcome::kShort) {
      outcome = OverwriteBytes(target, bytes, &written);
    }
    if (!replaced) Unlink(sibling);
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
  const std::string native = Native(path);
  if (!MayDo("list", native)) return false;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(native, error)) {
    if (entry.is_directory()) names->push_back(entry.path().filename().string());
  }
  return !error || error == std::errc::no_such_file_or_directory;
}

bool IsNameFree(const std::string& path) {
  const std::string native = Native(path);
  if (MayDo("look", native) && access(native.c_str(), F_OK) == 0) return false;
  const bool missing = errno == ENOENT;
  if (!missing) LOG_E << "Can't look for file: " << path << kLastError;
  return missing && !path.empty();
}

bool IsFileExist(const std::string& path) {
  const std::string native = Native(path);
  return MayDo("look", native) && access(native.c_str(), R_OK) == 0;
}

void DeleteFile(const std::string& path) { Unlink(Native(path)); }

bool CopyFile(const std::string& path, const std::string& target) {
  std::string bytes;
  std::size_t written = 0;
  const OpenFile source(Native(path), O_RDONLY);
  const bool copied = source && source.ReadAll(kAnySize, &bytes) == ReadOutcome::kRead &&
                      WriteBytes(Native(target), bytes, &written) == WriteOutcome::kWritten;
  if (!copied) LOG_E << "CopyFile error. Path: " << path << kLastError;
  return copied;
}

bool IsLink(const std::string& path) {
  std::string native = Native(path);
  while (native.ends_with('/')) native.pop_back();
  struct stat status;
  return MayDo("look", native) && lstat(native.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

std::string GetFileTime(const std::string& path) {
  struct stat status;
  tm local;
  const std::string native = Native(path);
  if (!MayDo("look", native) || stat(native.c_str(), &status) != 0 ||
      !localtime_r(&status.st_mtime, &local)) {
    LOG_E << "Can't get file time:" << path;
    return {};
  }
  return DateText(local.tm_mday, local.tm_mon + 1, local.tm_year + 1900);
}

}  // namespace FileSystem
