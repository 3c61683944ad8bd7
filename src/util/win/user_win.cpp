// Users and GUIDs on Windows.
#include "util/user.h"

#include "util/guid.h"
#include "util/text.h"
#include "util/win/system_library.h"

#include <objbase.h>

namespace {

constexpr DWORD kLogonNameChars = 1024;
constexpr int kGuidChars = 40;

namespace com {
SYSTEM_FUNCTION("ole32.dll", CoCreateGuid);
SYSTEM_FUNCTION("ole32.dll", StringFromGUID2);
}  // namespace com

}  // namespace

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
