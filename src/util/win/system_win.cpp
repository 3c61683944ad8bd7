#include "util/system.h"
#include "util/win/system_library.h"

#include <objbase.h>
#include <winver.h>

#include <vector>

#include "util/handle.h"
#include "util/registry.h"
#include "util/text.h"

namespace {

constexpr DWORD kLogonNameChars = 1024;
constexpr int kGuidChars = 40;

namespace com {
SYSTEM_FUNCTION("ole32.dll", CoCreateGuid);
SYSTEM_FUNCTION("ole32.dll", StringFromGUID2);
}  // namespace com

namespace version {
SYSTEM_FUNCTION("version.dll", GetFileVersionInfoSizeW);
SYSTEM_FUNCTION("version.dll", GetFileVersionInfoW);
SYSTEM_FUNCTION("version.dll", VerQueryValueW);
}  // namespace version

struct OsVersion {
  DWORD major = 0;
  DWORD minor = 0;
  DWORD build = 0;
  bool server = false;
  std::wstring servicePack;
};

// GetVersionEx gives the version that the host's manifest allows; this is the true one.
OsVersion GetOsVersion() {
  using RtlGetVersion = LONG(WINAPI*)(OSVERSIONINFOEXW*);
  OSVERSIONINFOEXW info = {};
  info.dwOSVersionInfoSize = sizeof info;
  const auto getVersion = reinterpret_cast<RtlGetVersion>(
      reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
  if (getVersion) getVersion(&info);
  return {info.dwMajorVersion, info.dwMinorVersion, info.dwBuildNumber,
          info.wProductType != VER_NT_WORKSTATION, info.szCSDVersion};
}

const char* ProductName(const OsVersion& os) {
  constexpr DWORD kFirstBuildOfWindows11 = 22000;
  struct Product {
    DWORD major, minor;
    const char* desktop;
    const char* server;
  };
  static constexpr Product kProducts[] = {
      {5, 1, "XP", "Server"},        {5, 2, "XP", "Server 2003"}, {6, 0, "Vista", "Server 2008"},
      {6, 1, "7", "Server 2008 R2"}, {6, 2, "8", "Server 2012"},  {6, 3, "8.1", "Server 2012 R2"}};
  if (os.major == 10) return os.server ? "Server" : os.build < kFirstBuildOfWindows11 ? "10" : "11";
  for (const Product& product : kProducts) {
    if (os.major == product.major && os.minor == product.minor) {
      return os.server ? product.server : product.desktop;
    }
  }
  return "";
}

std::string MessageFrom(DWORD source, HMODULE module, std::uint32_t code) {
  constexpr DWORD kUserDefaultLanguage = 0x400;
  char text[1024] = {};
  const DWORD length = ::FormatMessageA(source | FORMAT_MESSAGE_IGNORE_INSERTS, module, code,
                                        kUserDefaultLanguage, text, sizeof text, nullptr);
  return std::string(text, length);
}

template <class Answer>
bool AskOwnToken(TOKEN_INFORMATION_CLASS question, Answer* answer) {
  HANDLE token = nullptr;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) return false;
  const UniqueHandle owner(token);
  DWORD size = 0;
  return ::GetTokenInformation(token, question, answer, sizeof *answer, &size) != 0;
}

}  // namespace

std::string OsDisplayName() {
  const OsVersion os = GetOsVersion();
  std::string name = std::string("Microsoft Windows ") + ProductName(os);
  if (!os.servicePack.empty()) name += ", " + NarrowUtf8(os.servicePack);
  return name + " (" + DecimalText(os.major) + "." + DecimalText(os.minor) + "." +
         DecimalText(os.build) + ")";
}

bool IsVistaOrLater() { return GetOsVersion().major >= 6; }

bool IsElevated() {
  TOKEN_ELEVATION elevation = {};
  // Systems before Vista do not know the question.
  return IsVistaOrLater() && AskOwnToken(TokenElevation, &elevation) &&
         elevation.TokenIsElevated != 0;
}

// Without account control all programs of the user have the same rights, so none needs protection
// from the others.
bool IsElevatedUnderUac() {
  TOKEN_ELEVATION_TYPE type = TokenElevationTypeDefault;
  return AskOwnToken(TokenElevationType, &type) && type == TokenElevationTypeFull && IsUacEnabled();
}

bool IsUacEnabled() {
  constexpr auto kRoot = RegistryRoot::kLocalMachine;
  constexpr wchar_t kKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Policies\\System";
  constexpr wchar_t kValue[] = L"EnableLUA";
  std::uint32_t enabled = 0;
  return !JustUtil::IsValueNotExist(kKey, kValue, kRoot) &&
         JustUtil::ReadIntFromRegistry(kRoot, kKey, kValue, &enabled) && enabled != 0;
}

std::string FileVersionText(const std::wstring& path) {
  const auto getSize = version::GetFileVersionInfoSizeW.Find();
  const auto getInfo = version::GetFileVersionInfoW.Find();
  const auto query = version::VerQueryValueW.Find();
  if (!getSize || !getInfo || !query) return {};
  DWORD ignored = 0;
  const DWORD size = getSize(path.c_str(), &ignored);
  if (size == 0) return {};
  std::vector<char> block(size);
  void* found = nullptr;
  UINT length = 0;
  if (!getInfo(path.c_str(), 0, size, block.data()) ||
      !query(block.data(), L"\\", &found, &length) || length < sizeof(VS_FIXEDFILEINFO)) {
    return {};
  }
  const auto* info = static_cast<const VS_FIXEDFILEINFO*>(found);
  return DecimalText(HIWORD(info->dwFileVersionMS)) + "." +
         DecimalText(LOWORD(info->dwFileVersionMS)) + "." +
         DecimalText(HIWORD(info->dwFileVersionLS)) + "." +
         DecimalText(LOWORD(info->dwFileVersionLS));
}

std::string ErrorCodeText(std::uint32_t code) {
  std::string text = MessageFrom(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code);
  // These hold the texts of network errors. They are asked only where the host has loaded them: no
  // text is worth loading a DLL.
  for (const wchar_t* name : {L"wininet.dll", L"urlmon.dll"}) {
    if (!text.empty()) return text;
    if (const HMODULE module = ::GetModuleHandleW(name)) {
      text = MessageFrom(FORMAT_MESSAGE_FROM_HMODULE, module, code);
    }
  }
  if (!text.empty()) return text;
  return "unknown error " + HexText(code);
}

std::uint32_t LastErrorCode() { return ::GetLastError(); }
void SetLastErrorCode(std::uint32_t code) { ::SetLastError(code); }

std::wstring LogonName() {
  wchar_t name[kLogonNameChars] = {};
  DWORD size = kLogonNameChars;
  return ::GetUserNameW(name, &size) ? std::wstring(name) : std::wstring();
}

std::string NewGuidText() {
  GUID guid;
  wchar_t text[kGuidChars] = {};
  const auto create = com::CoCreateGuid.Find();
  const auto print = com::StringFromGUID2.Find();
  if (!create || !print || FAILED(create(&guid)) || print(guid, text, kGuidChars) == 0) return {};
  return NarrowUtf8(text);
}

bool JustUtil::CheckPMIE8() {
  using IsProtectedMode = HRESULT(WINAPI*)(BOOL*);
  const UniqueModule frame = LoadSystemLibrary(L"ieframe.dll");
  if (!frame) return false;
  const auto isProtectedMode = reinterpret_cast<IsProtectedMode>(
      reinterpret_cast<void*>(::GetProcAddress(frame.get(), "IEIsProtectedModeProcess")));
  BOOL isProtected = FALSE;
  return isProtectedMode && SUCCEEDED(isProtectedMode(&isProtected)) && isProtected;
}
