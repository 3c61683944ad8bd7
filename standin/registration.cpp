#include "standin/registration.h"

#include <optional>

#include "util/win/unique.h"

namespace standin {
namespace {

// The class of the real service, for all users of the system.
constexpr wchar_t kClassKey[] = L"Software\\Classes\\CLSID\\{4991d34b-80a1-4291-83b6-3328366b9097}";
constexpr wchar_t kServerKey[] =
    L"Software\\Classes\\CLSID\\{4991d34b-80a1-4291-83b6-3328366b9097}\\LocalServer32";
constexpr wchar_t kOwnKey[] = L"Software\\kupdate-standin";
constexpr wchar_t kFolderValue[] = L"Folder";
// In our own key: the former values of the class. Missing if the class had no such value.
constexpr wchar_t kSavedAppId[] = L"SavedAppID";
constexpr wchar_t kSavedServer[] = L"SavedLocalServer32";

// A key's default value has no name.
constexpr const wchar_t* kDefaultValue = nullptr;

std::optional<std::wstring> ReadText(const wchar_t* key, const wchar_t* value) {
  wchar_t text[1024] = L"";
  DWORD size = sizeof text;
  const LSTATUS status =
      ::RegGetValueW(HKEY_LOCAL_MACHINE, key, value, RRF_RT_REG_SZ, nullptr, text, &size);
  if (status != ERROR_SUCCESS) return std::nullopt;
  return text;
}

LSTATUS WriteText(const wchar_t* keyPath, const wchar_t* value, const std::wstring& text) {
  UniqueKey key;
  const LSTATUS opened = ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, keyPath, 0, nullptr, 0,
                                           KEY_SET_VALUE, nullptr, key.put(), nullptr);
  if (opened != ERROR_SUCCESS) return opened;
  return ::RegSetValueExW(key.get(), value, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                          static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

LSTATUS IgnoreMissing(LSTATUS status) {
  return status == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : status;
}

LSTATUS Save(const wchar_t* key, const wchar_t* value, const wchar_t* savedName) {
  const std::optional<std::wstring> text = ReadText(key, value);
  return text ? WriteText(kOwnKey, savedName, *text) : ERROR_SUCCESS;
}

// Runs the steps up to the first that fails.
template <class... Steps>
unsigned long InOrder(Steps... steps) {
  LSTATUS status = ERROR_SUCCESS;
  ((status = steps(), status == ERROR_SUCCESS) && ...);
  return static_cast<unsigned long>(status);
}

// Only the first registration saves: a later one would find the stand-in's own values.
LSTATUS SaveFormer() {
  if (!RegisteredFolder().empty()) return ERROR_SUCCESS;
  const LSTATUS saved = Save(kClassKey, L"AppID", kSavedAppId);
  return saved != ERROR_SUCCESS ? saved : Save(kServerKey, kDefaultValue, kSavedServer);
}

// Without a former server the whole key goes, so that nothing of the stand-in stays.
LSTATUS RestoreServer() {
  const std::optional<std::wstring> saved = ReadText(kOwnKey, kSavedServer);
  if (saved) return WriteText(kServerKey, kDefaultValue, *saved);
  return IgnoreMissing(::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kServerKey));
}

LSTATUS RestoreAppId() {
  const std::optional<std::wstring> saved = ReadText(kOwnKey, kSavedAppId);
  return saved ? WriteText(kClassKey, L"AppID", *saved) : ERROR_SUCCESS;
}

}  // namespace

unsigned long Register(const std::wstring& program, const std::wstring& folder) {
  // The former values come first: nothing is changed before they are safe.
  return InOrder(
      SaveFormer, [&] { return WriteText(kOwnKey, kFolderValue, folder); },
      // A command line: a path with blanks needs the quotes.
      [&] { return WriteText(kServerKey, kDefaultValue, L"\"" + program + L"\""); },
      // With an application id the system would start its own service instead of this program.
      [] { return IgnoreMissing(::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kClassKey, L"AppID")); });
}

unsigned long Unregister() {
  if (RegisteredFolder().empty()) return ERROR_SUCCESS;
  // Our own key goes last: after a failure a second try still finds the former values.
  return InOrder(RestoreServer, RestoreAppId,
                 [] { return ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kOwnKey); });
}

std::wstring RegisteredFolder() { return ReadText(kOwnKey, kFolderValue).value_or(L""); }

}  // namespace standin
