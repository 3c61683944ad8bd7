#include "util/folders.h"
#include "util/win/system_library.h"

#include <objbase.h>
#include <shlobj.h>

#include "util/diag_log.h"
#include "util/files.h"
#include "util/log_line.h"
#include "util/mutex.h"

namespace {

constexpr DWORD kTempPathChars = 4096;
constexpr int kShellFolders = 64;  // more than there are

namespace shell {
SYSTEM_FUNCTION("ole32.dll", CoTaskMemFree);
SYSTEM_FUNCTION("shell32.dll", SHCreateDirectoryExW);
SYSTEM_FUNCTION("shell32.dll", SHGetKnownFolderPath);
SYSTEM_FUNCTION("shell32.dll", SHGetSpecialFolderPathW);
}  // namespace shell

// A system that fails may still fill the buffer, for example when the folder does not exist yet.
// That content counts.
std::wstring ShellFolder(int csidl, BOOL* result) {
  wchar_t path[kMaxShellPathChars] = {};
  const auto getFolder = shell::SHGetSpecialFolderPathW.Find();
  *result = getFolder ? getFolder(nullptr, path, csidl, FALSE) : FALSE;
  return path;
}

std::wstring KnownLowFolder() {
  static constexpr GUID kLocalAppDataLow = {
      0xA520A1A4, 0x1780, 0x4FF6, {0xBD, 0x18, 0x16, 0x73, 0x43, 0xC5, 0xAF, 0x16}};
  constexpr DWORD kNoAlias = 0x1000;
  const auto getKnownFolder = shell::SHGetKnownFolderPath.Find();
  const auto free = shell::CoTaskMemFree.Find();
  if (!getKnownFolder || !free) return {};
  PWSTR path = nullptr;
  std::wstring folder;
  if (SUCCEEDED(getKnownFolder(kLocalAppDataLow, kNoAlias, nullptr, &path))) folder = path;
  free(path);
  return folder;
}

std::wstring FindLowFolder() {
  std::wstring folder = KnownLowFolder();
  if (!folder.empty()) return folder;
  BOOL result = FALSE;
  folder = ShellFolder(CSIDL_LOCAL_APPDATA, &result);
  // FALSE counts as success here, because the buffer holds the path all the same.
  if (result >= 0) return folder;
  wchar_t path[kMaxShellPathChars] = {};
  ::GetEnvironmentVariableW(L"APPDATA", path, kMaxShellPathChars);
  return path;
}

// Folders do not change while the process lives. Every operation asks for some, and each time the
// system would look into its registry.
struct KnownFolders {
  CriticalSection guard;
  std::wstring low;
  std::wstring shell[kShellFolders];
};

KnownFolders& Known() {
  static KnownFolders& known = *new KnownFolders;
  return known;
}

std::wstring LowFolder() {
  const CriticalScope scope(Known().guard);
  std::wstring& low = Known().low;
  if (low.empty()) low = FindLowFolder();
  return low;
}

// A folder that the system failed to name is asked for again, because it may be made later.
std::wstring KnownShellFolder(int csidl) {
  const CriticalScope scope(Known().guard);
  std::wstring& known = Known().shell[csidl % kShellFolders];
  if (!known.empty()) return known;
  BOOL result = FALSE;
  std::wstring folder = ShellFolder(csidl, &result);
  if (result) known = folder;
  return folder;
}

}  // namespace

void MakeFolder(const std::wstring& path) {
  if (path.empty() || ::CreateDirectoryW(path.c_str(), nullptr)) return;
  // Only missing parents need the shell, whose library is loaded for them.
  if (::GetLastError() == ERROR_PATH_NOT_FOUND) {
    const auto createFolders = shell::SHCreateDirectoryExW.Find();
    if (createFolders) createFolders(nullptr, path.c_str(), nullptr);
  }
}

std::wstring GetSpecialFolder(int csidl, const std::wstring& subPath, CreateFolder create) {
  std::wstring folder = FolderBelow(KnownShellFolder(csidl), subPath);
  if (create == CreateFolder::kYes) MakeFolder(folder);
  return folder;
}

std::wstring GetLocalAppDataLowFolder(const std::wstring& subPath) {
  return FolderBelow(LowFolder(), subPath);
}

std::wstring GetTempFolder() {
  std::wstring folder(kTempPathChars, L'\0');
  const DWORD length = ::GetTempPathW(kTempPathChars, folder.data());
  folder.resize(length < kTempPathChars ? length : 0);
  // The system names this folder without a look whether it exists.
  NormalizeFolder(folder);
  MakeFolder(folder);
  return folder;
}
