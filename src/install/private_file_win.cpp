#include "install/private_file.h"
#include "util/win/unique.h"

#include <sddl.h>

#include <vector>

#include "util/clock.h"
#include "util/diag_log.h"
#include "util/folders.h"
#include "util/handle.h"
#include "util/log_line.h"
#include "util/text.h"

namespace {

constexpr std::size_t kNameBytes = 16;
constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;
constexpr unsigned kRemoveTries = 20;
constexpr unsigned kRemovePauseMilliseconds = 25;
constexpr std::uint64_t kTicksPerDay = std::uint64_t{24} * 3600 * 10'000'000;

struct LocalTraits {
  using Type = void*;
  static Type None() { return nullptr; }
  static void Close(Type memory) { ::LocalFree(memory); }
};
using UniqueLocal = Unique<LocalTraits>;

// The user of this process as text, "S-1-5-..."; empty on failure.
std::wstring UserSid() {
  HANDLE token = nullptr;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) return {};
  const UniqueHandle owner(token);
  alignas(TOKEN_USER) char buffer[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
  DWORD size = 0;
  if (!::GetTokenInformation(token, TokenUser, buffer, sizeof buffer, &size)) return {};
  wchar_t* text = nullptr;
  if (!::ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(buffer)->User.Sid, &text)) return {};
  const UniqueLocal memory(text);
  return text;
}

// Nothing is inherited from above; what is made below inherits this.
UniqueLocal Descriptor() {
  const std::wstring user = UserSid();
  if (user.empty()) return {};
  const std::wstring text = L"O:" + user + L"D:P(A;OICI;FA;;;" + user +
                            L")(A;OICI;FRFX;;;SY)(A;OICI;FRFX;;;BA)S:(ML;OICI;NW;;;ME)";
  void* descriptor = nullptr;
  ::ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1, &descriptor,
                                                         nullptr);
  return UniqueLocal(descriptor);
}

// The names of what lies directly in a folder and was made more than a day ago.
std::vector<std::wstring> OldNamesIn(const std::wstring& folder) {
  FILETIME now;
  ::GetSystemTimeAsFileTime(&now);
  const auto ticks = [](const FILETIME& time) {
    return (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
  };
  std::vector<std::wstring> names;
  WIN32_FIND_DATAW data;
  const UniqueFind find(::FindFirstFileW((folder + L"*").c_str(), &data));
  if (!find) return names;
  do {
    const std::wstring_view name = data.cFileName;
    const bool isOld = ticks(data.ftCreationTime) + kTicksPerDay < ticks(now);
    if (isOld && name != L"." && name != L"..") names.emplace_back(name);
  } while (::FindNextFileW(find.get(), &data));
  return names;
}

// Best effort: what is in use refuses to go.
void RemoveLeftovers(const std::wstring& base) {
  for (const std::wstring& folder : OldNamesIn(base)) {
    const std::wstring path = std::wstring(base).append(folder).append(L"\\");
    for (const std::wstring& file : OldNamesIn(path)) {
      ::DeleteFileW(std::wstring(path).append(file).c_str());
    }
    ::RemoveDirectoryW(path.c_str());
  }
}

}  // namespace

std::unique_ptr<PrivateFile> PrivateFile::Make(std::wstring_view extension) {
  const std::wstring base = GetLocalAppDataFolder(L"Krelix\\Updater\\Install", CreateFolder::kYes);
  RemoveLeftovers(base);
  const UniqueLocal descriptor = Descriptor();
  const std::wstring folderName = WidenUtf8(RandomHex(kNameBytes));
  // Not "setup": to a program of such a name the system may give rights that it did not ask for.
  const std::wstring fileName = WidenUtf8(RandomHex(kNameBytes));
  if (base.empty() || !descriptor || folderName.empty() || fileName.empty()) {
    LOG_E << "Can't prepare a private folder." << kLastError;
    return nullptr;
  }
  SECURITY_ATTRIBUTES security = {sizeof security, descriptor.get(), FALSE};
  // A folder that is there already is a failure: nobody else's will do.
  if (!::CreateDirectoryW((base + folderName).c_str(), &security)) {
    LOG_E << "Can't create a private folder in" << base << kLastError;
    return nullptr;
  }
  std::unique_ptr<PrivateFile> file(new PrivateFile);
  file->folder_ = base + folderName + L"\\";
  file->path_ = file->folder_ + fileName + std::wstring(extension);
  HANDLE handle = ::CreateFileW(file->path_.c_str(), GENERIC_WRITE, 0, &security, CREATE_NEW,
                                FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    LOG_E << "Can't create a private file in" << file->folder_ << kLastError;
    return nullptr;
  }
  file->file_ = handle;
  return file;
}

PrivateFile::~PrivateFile() {
  Close();
  if (keep_ || folder_.empty()) return;
  // A program that has just ended holds its file and folder for a moment longer, as does a scanner.
  for (unsigned tries = 0; tries < kRemoveTries; ++tries) {
    if (tries > 0) SleepMilliseconds(kRemovePauseMilliseconds);
    ::DeleteFileW(path_.c_str());
    if (::RemoveDirectoryW(folder_.c_str())) return;
  }
  LOG_W << "Can't remove" << folder_ << kLastError;
}

void PrivateFile::Close() {
  if (file_) ::CloseHandle(file_);
  file_ = nullptr;
}

bool PrivateFile::Append(std::string_view bytes) {
  DWORD written = 0;
  if (::WriteFile(file_, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
      written == bytes.size()) {
    return true;
  }
  LOG_E << "Can't store the file." << kLastError;
  return false;
}

bool PrivateFile::Hold() {
  Close();
  // The system runs no program that is open for writing, so the file is opened anew. Whatever
  // happened to it in between is seen by the checks, which read through this handle.
  HANDLE handle = ::CreateFileW(path_.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    LOG_E << "Can't hold the file." << kLastError;
    return false;
  }
  file_ = handle;
  return true;
}

std::uint64_t PrivateFile::Size() const {
  LARGE_INTEGER size;
  return ::GetFileSizeEx(file_, &size) ? static_cast<std::uint64_t>(size.QuadPart) : 0;
}

std::string PrivateFile::Digest(DigestKind kind) const {
  if (!::SetFilePointerEx(file_, {}, nullptr, FILE_BEGIN)) return {};
  Hasher hasher(kind);
  std::vector<char> piece(kPieceBytes);
  for (;;) {
    DWORD read = 0;
    if (!::ReadFile(file_, piece.data(), static_cast<DWORD>(piece.size()), &read, nullptr)) {
      LOG_E << "Can't read the file." << kLastError;
      return {};
    }
    if (read == 0) return HexText(hasher.Finish());
    hasher.Update(std::string_view(piece.data(), read));
  }
}
