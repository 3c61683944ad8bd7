// Listing and removing keys and values of the registry, apart from reading: library and executor
// need only that, and would carry the rest along.
#include <cstring>
#include <utility>

#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/registry.h"
#include "util/win/registry_key.h"

namespace {

constexpr DWORD kNameChars = 256;

}  // namespace

namespace JustUtil {

std::vector<RegistryValue> EnumValues(const std::wstring& keyPath) {
  std::vector<RegistryValue> values;
  LSTATUS status = 0;
  const UniqueKey key = OpenKey(RegistryRoot::kCurrentUser, keyPath, KEY_READ, &status);
  if (!key) {
    LOG_E << "Can't open key: " << keyPath;
    return values;
  }
  std::vector<std::byte> bytes;
  for (DWORD index = 0;; ++index) {
    wchar_t name[kNameChars] = {};
    DWORD nameChars = kNameChars;
    DWORD type = 0;
    DWORD size = 0;
    status = ::RegEnumValueW(key.get(), index, name, &nameChars, nullptr, &type, nullptr, &size);
    if (status == ERROR_MORE_DATA) continue;  // a name that does not fit is no value of ours
    if (status != ERROR_SUCCESS) return values;
    bytes.resize(size);
    status = ::RegQueryValueExW(key.get(), name, nullptr, &type,
                                reinterpret_cast<BYTE*>(bytes.data()), &size);
    if (status != ERROR_SUCCESS) continue;
    bytes.resize(size);
    RegistryValue value{name, static_cast<RegistryType>(type), {}, 0};
    if (type == REG_SZ) {
      const std::wstring text = TextOfData(bytes);
      value.text = text.substr(0, text.find(L'\0'));
    } else if ((type == REG_DWORD && size == 4) || (type == REG_QWORD && size == 8)) {
      std::memcpy(&value.number, bytes.data(), size);
    } else {
      continue;
    }
    values.push_back(std::move(value));
  }
}

bool RemoveKey(RegistryRoot root, const std::wstring& keyPath) {
  LSTATUS status = 0;
  // All names first: a key that is deleted during the enumeration ends it.
  std::vector<std::wstring> subKeys;
  {
    const UniqueKey key = OpenKey(root, keyPath, KEY_ALL_ACCESS, &status);
    if (!key) {
      LOG_E << "Can't open key: " << keyPath;
      return false;
    }
    for (DWORD index = 0;; ++index) {
      wchar_t name[kNameChars] = {};
      DWORD nameChars = kNameChars;
      status =
          ::RegEnumKeyExW(key.get(), index, name, &nameChars, nullptr, nullptr, nullptr, nullptr);
      if (status != ERROR_SUCCESS) break;
      subKeys.emplace_back(name);
    }
  }
  for (const std::wstring& name : subKeys) {
    RemoveKey(root, std::wstring(keyPath).append(L"\\").append(name));
  }
  if (::RegDeleteKeyW(RootKey(root), keyPath.c_str()) == ERROR_SUCCESS) return true;
  LOG_E << "Can't delete key.";
  return false;
}

bool RemoveValue(const std::wstring& keyPath, const std::wstring& valueName) {
  LSTATUS status = 0;
  const UniqueKey key = OpenKey(RegistryRoot::kCurrentUser, keyPath, KEY_ALL_ACCESS, &status);
  if (!key) {
    LOG_E << "Can't open key: " << keyPath;
    return false;
  }
  if (::RegDeleteValueW(key.get(), valueName.c_str()) == ERROR_SUCCESS) return true;
  LOG_E << "Can't delete value.";
  return false;
}

}  // namespace JustUtil
