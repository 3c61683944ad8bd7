#include "install/private_file.h"
#include "util/win/security.h"

#include <sddl.h>

#include <exception>
#include <vector>

#include "layout/file_names.h"
#include "layout/folders.h"
#include "util/clock.h"
#include "util/diag_log.h"
#include "util/file_lock.h"
#include "util/files.h"
#include "util/folder_content.h"
#include "util/log_line.h"
#include "util/text.h"

namespace {

constexpr std::size_t kNameBytes = 16;
constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;
constexpr unsigned kRemoveTries = 20;
constexpr unsigned kRemovePauseMilliseconds = 25;
constexpr unsigned kLockWaitMilliseconds = 1000;

struct LocalTraits {
  using Type = wchar_t*;
  static Type None() { return nullptr; }
  static void Close(Type memory) { ::LocalFree(memory); }
};
using UniqueLocal = Unique<LocalTraits>;

// The security identifier of this process's user, "S-1-5-..."; empty on failure.
std::wstring UserSid() {
  HANDLE token = nullptr;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) return {};
  const UniqueHandle owner(token);
  alignas(TOKEN_USER) char buffer[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
  DWORD size = 0;
  if (!::GetTokenInformation(token, TokenUser, buffer, sizeof buffer, &size)) return {};
  UniqueLocal text;
  if (!::ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(buffer)->User.Sid, text.put())) {
    return {};
  }
  return text.get();
}

// The system's MSI service and an elevated installer open the file with the rights of the system
// and of administrators. The label at the end keeps processes of low integrity from writing,
// whatever rights their user has.
constexpr wchar_t kOthersRead[] = L"(A;OICI;FRFX;;;SY)(A;OICI;FRFX;;;BA)S:(ML;OICI;NW;;;ME)";

// Nothing is inherited from above; what is made below inherits this.
UniqueDescriptor OpenDescriptor(const std::wstring& user) {
  return DescriptorOf((L"O:" + user + L"D:P(A;OICI;FA;;;" + user + L")" + kOthersRead).c_str());
}

// The user reads, runs and deletes, here and below. Without the second entry the user, as the
// owner, could always change that.
UniqueDescriptor SealedDescriptor(const std::wstring& user) {
  constexpr wchar_t kReadRunDelete[] = L"0x1300E9";
  const std::wstring begin = std::wstring(L"(A;OICI;") + kReadRunDelete + L";;;";
  return DescriptorOf(
      (L"O:" + user + L"D:P" + begin + user + L")" + begin + L"S-1-3-4)" + kOthersRead).c_str());
}

bool SetRights(const std::wstring& path, const UniqueDescriptor& descriptor) {
  return ::SetFileSecurityW(path.c_str(),
                            DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                            descriptor.get()) != FALSE;
}

// Opens the folder itself, never the target of a link. Until the handle is closed, the folder can
// be neither renamed nor removed, nor replaced by a link.
UniqueHandle OpenFolder(const std::wstring& folder, DWORD access) {
  HANDLE const handle = ::CreateFileW(
      folder.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
      FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  // UniqueHandle knows one value for "no handle"; files have another one.
  return UniqueHandle(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
}

struct Entry {
  std::wstring name;
  DWORD attributes;

  bool IsFolder() const { return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
  bool IsLink() const { return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0; }
};

std::vector<Entry> EntriesOf(const std::wstring& folder) {
  std::vector<Entry> entries;
  WIN32_FIND_DATAW data;
  const UniqueFind find(::FindFirstFileW((folder + L"*").c_str(), &data));
  if (!find) return entries;
  do {
    const std::wstring_view name = data.cFileName;
    if (name != L"." && name != L"..") {
      entries.push_back({std::wstring(name), data.dwFileAttributes});
    }
  } while (::FindNextFileW(find.get(), &data));
  return entries;
}

// Whether the folder is gone. Nothing happens where another process has it open, or as its current
// folder. This process holds the folder while it deletes the content, so that no link takes its
// place.
bool RemoveFolder(const std::wstring& folder, const UniqueDescriptor& descriptor) {
  if (!OpenFolder(folder, DELETE)) return false;
  if (const UniqueHandle held = OpenFolder(folder, FILE_LIST_DIRECTORY);
      held && !FileSystem::IsLink(NarrowUtf8(folder))) {
    // Windows refuses this in a sealed folder but deletes there all the same. Wine needs it,
    // because it keeps rights as modes.
    SetRights(folder, descriptor);
    for (const Entry& entry : EntriesOf(folder)) {
      const std::wstring path = folder + entry.name;
      if (entry.IsFolder() && !entry.IsLink()) {
        RemoveFolder(path + L"\\", descriptor);
      } else if (entry.IsFolder()) {
        ::RemoveDirectoryW(path.c_str());
      } else {
        ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
        ::DeleteFileW(path.c_str());
      }
    }
  }
  return ::RemoveDirectoryW(folder.c_str()) != FALSE;
}

std::wstring Base(CreateFolder create) { return GetUpdaterLocalFolder("Install", create); }

// Held while a folder is made and while leftovers are removed, so that a new folder does not count
// as a leftover.
FileLock BaseLock(const std::wstring& base) {
  return FileLock(NarrowUtf8(base) + kInstallLockFile, kLockWaitMilliseconds);
}

bool IsNameOfOurs(const std::wstring& name) {
  return name.size() == 2 * kNameBytes && name.find_first_not_of(L"0123456789abcdef") == name.npos;
}

void RemoveLeftoversIn(const std::wstring& base) {
  // The name is empty when the folder is refused; an empty name would stand for the current folder.
  // Without leftovers no lock file is made.
  if (base.empty() || EntriesOf(base).empty()) return;
  FileLock lock = BaseLock(base);
  const LockScope scope(&lock);
  if (!scope) return;
  const UniqueHandle open = OpenFolder(base, FILE_LIST_DIRECTORY);
  const UniqueDescriptor descriptor = OpenDescriptor(UserSid());
  for (const Entry& entry : EntriesOf(base)) {
    if (entry.IsFolder() && IsNameOfOurs(entry.name)) {
      RemoveFolder(base + entry.name + L"\\", descriptor);
    }
  }
}

}  // namespace

std::unique_ptr<PrivateFile> PrivateFile::Make(std::wstring_view extension) {
  const std::wstring base = Base(CreateFolder::kYes);
  const std::wstring user = UserSid();
  const UniqueDescriptor descriptor = OpenDescriptor(user);
  const UniqueDescriptor sealed = SealedDescriptor(user);
  const std::wstring folderName = WidenUtf8(RandomHex(kNameBytes));
  // A random name, not "setup": the system may give rights that a program did not ask for when it
  // has such a name.
  const std::wstring fileName = WidenUtf8(RandomHex(kNameBytes));
  if (base.empty() || !descriptor || !sealed || folderName.empty() || fileName.empty()) {
    LOG_E << "Can't prepare a private folder." << kLastError;
    return nullptr;
  }
  FileLock lock = BaseLock(base);
  const LockScope scope(&lock);
  SECURITY_ATTRIBUTES security = {sizeof security, descriptor.get(), FALSE};
  // An existing folder is a failure, because another program may have made it.
  if (!scope || !::CreateDirectoryW((base + folderName).c_str(), &security)) {
    LOG_E << "Can't create a private folder in" << base << kLastError;
    return nullptr;
  }
  std::unique_ptr<PrivateFile> file(new PrivateFile);
  file->folder_ = base + folderName + L"\\";
  file->path_ = file->folder_ + fileName + std::wstring(extension);
  // From here on no program can rename the folder or put a link in its place.
  file->openFolder_ = OpenFolder(file->folder_, FILE_LIST_DIRECTORY);
  HANDLE const handle = ::CreateFileW(file->path_.c_str(), GENERIC_WRITE, 0, &security, CREATE_NEW,
                                      FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle != INVALID_HANDLE_VALUE) file->file_ = UniqueHandle(handle);
  // The seal comes last. The open handle keeps its right to write, which no new one can get.
  if (!file->openFolder_ || !file->file_ || !SetRights(file->folder_, sealed) ||
      !SetRights(file->path_, sealed)) {
    LOG_E << "Can't create a private file in" << file->folder_ << kLastError;
    return nullptr;
  }
  return file;
}

PrivateFile::~PrivateFile() {
  // Its own handles would keep file and folder from being removed.
  file_ = UniqueHandle();
  openFolder_ = UniqueHandle();
  if (keep_) return;
  const UniqueDescriptor descriptor = OpenDescriptor(UserSid());
  // A program that has just ended holds its file and folder for a moment longer, as does a scanner.
  for (unsigned tries = 0; tries < kRemoveTries; ++tries) {
    if (tries > 0) SleepMilliseconds(kRemovePauseMilliseconds);
    if (RemoveFolder(folder_, descriptor)) return;
  }
  LOG_W << "Can't remove" << folder_ << kLastError;
}

bool PrivateFile::Append(std::string_view bytes) {
  DWORD written = 0;
  if (::WriteFile(file_.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
      written == bytes.size()) {
    return true;
  }
  LOG_E << "Can't store the file." << kLastError;
  return false;
}

bool PrivateFile::Hold() {
  // The system runs no program that is open for writing, so the file is opened once more. The
  // checks read through this handle, so they see all that happened to the file in between.
  file_ = UniqueHandle();
  HANDLE const handle = ::CreateFileW(path_.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    LOG_E << "Can't hold the file." << kLastError;
    return false;
  }
  file_ = UniqueHandle(handle);
  return true;
}

std::uint64_t PrivateFile::Size() const {
  LARGE_INTEGER size;
  return ::GetFileSizeEx(file_.get(), &size) ? static_cast<std::uint64_t>(size.QuadPart) : 0;
}

std::string PrivateFile::Digest(DigestKind kind) const {
  if (!::SetFilePointerEx(file_.get(), {}, nullptr, FILE_BEGIN)) return {};
  Hasher hasher(kind);
  std::vector<char> piece(kPieceBytes);
  for (;;) {
    DWORD read = 0;
    if (!::ReadFile(file_.get(), piece.data(), static_cast<DWORD>(piece.size()), &read, nullptr)) {
      LOG_E << "Can't read the file." << kLastError;
      return {};
    }
    if (read == 0) return HexText(hasher.Finish());
    hasher.Update(std::string_view(piece.data(), read));
  }
}

bool PrivateFile::IsAlone() const { return EntriesOf(folder_).size() == 1; }

void RemoveInstallLeftovers() noexcept {
  try {
    RemoveLeftoversIn(Base(CreateFolder::kNo));
  } catch (const std::exception& error) {
    LOG_E << "Can't remove leftovers:" << error.what();
  }
}

void RemoveInstallFolder() {
  const std::string base = NarrowUtf8(Base(CreateFolder::kNo));
  if (base.empty() || FileSystem::IsLink(base)) return;
  // A lock that another process holds stays, and so does the folder then.
  FileSystem::DeleteFile(base + kInstallLockFile);
  FileSystem::RemoveEmptyFolder(base);
}
