#include "util/registry.h"

#include <cstring>

#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/win/registry_key.h"

namespace {

const char* RootName(RegistryRoot root) {
  return root == RegistryRoot::kCurrentUser ? "HKEY_CURRENT_USER" : "HKEY_LOCAL_MACHINE";
}

bool IsMissing(LSTATUS status) {
  return status == ERROR_FILE_NOT_FOUND || status == ERROR_PATH_NOT_FOUND;
}

// Reads a number of the given type; `size` bytes at `value`.
template <class Number>
bool ReadNumber(RegistryRoot root, const std::wstring& keyPath, const std::wstring& valueName,
                RegistryType type, Number* value, bool* wrongType) {
  RegistryData data;
  *wrongType = false;
  if (!ReadFromRegistry(root, keyPath, valueName, &data)) return false;
  // The size too: a program may have written any bytes under this type.
  *wrongType = data.type != static_cast<std::uint32_t>(type) || data.bytes.size() != sizeof *value;
  if (*wrongType) return false;
  std::memcpy(value, data.bytes.data(), sizeof *value);
  return true;
}

}  // namespace

HKEY RootKey(RegistryRoot root) {
  return root == RegistryRoot::kCurrentUser ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
}

UniqueKey OpenKey(RegistryRoot root, const std::wstring& path, REGSAM access, LSTATUS* status) {
  UniqueKey key;
  *status = ::RegOpenKeyExW(RootKey(root), path.c_str(), 0, access, key.put());
  return key;
}

std::wstring TextOfData(const std::vector<std::byte>& bytes) {
  std::wstring text(bytes.size() / sizeof(wchar_t), L'\0');
  if (!text.empty()) std::memcpy(text.data(), bytes.data(), text.size() * sizeof(wchar_t));
  return text;
}

bool ReadFromRegistry(RegistryRoot root, const std::wstring& keyPath, const std::wstring& valueName,
                      RegistryData* data) {
  LSTATUS status = 0;
  const UniqueKey key = OpenKey(root, keyPath, KEY_READ, &status);
  if (!key) {
    LOG_E << "Can't open key: " << keyPath << "Root: " << RootName(root);
    return false;
  }
  DWORD type = 0;
  DWORD size = 0;
  status = ::RegQueryValueExW(key.get(), valueName.c_str(), nullptr, &type, nullptr, &size);
  if (status != ERROR_SUCCESS || size == 0) {
    LOG_E << "Size == 0.";
    return false;
  }
  data->bytes.resize(size);
  status = ::RegQueryValueExW(key.get(), valueName.c_str(), nullptr, &type,
                              reinterpret_cast<BYTE*>(data->bytes.data()), &size);
  if (status != ERROR_SUCCESS) {
    LOG_E << "No data.";
    return false;
  }
  // The value may have become shorter since its size was asked.
  data->bytes.resize(size);
  data->type = type;
  return true;
}

namespace JustUtil {

std::wstring ReadStringFromRegistry(RegistryRoot root, const std::wstring& keyPath,
                                    const std::wstring& valueName) {
  RegistryData data;
  if (!ReadFromRegistry(root, keyPath, valueName, &data)) return {};
  if (data.type != REG_SZ && data.type != REG_EXPAND_SZ) {
    LOG_E << "have wrong type.";
    return {};
  }
  std::wstring text = TextOfData(data.bytes);
  // The registry keeps the bytes that a program wrote, with or without an ending zero.
  if (text.empty() || text.back() != L'\0') {
    LOG_E << "Strange value in" << keyPath;
  } else {
    text.pop_back();
  }
  return text;
}

bool ReadIntFromRegistry(RegistryRoot root, const std::wstring& keyPath,
                         const std::wstring& valueName, std::uint32_t* value) {
  bool wrongType = false;
  const bool read = ReadNumber(root, keyPath, valueName, RegistryType::kInt, value, &wrongType);
  if (wrongType) LOG_E << "have wrong type.";
  return read;
}

bool ReadLongFromRegistry(RegistryRoot root, const std::wstring& keyPath,
                          const std::wstring& valueName, std::uint64_t* value) {
  bool wrongType = false;
  const bool read = ReadNumber(root, keyPath, valueName, RegistryType::kLong, value, &wrongType);
  if (wrongType) LOG_E << "have wrong type.";
  return read;
}

bool WriteIntToRegistry(const std::wstring& keyPath, const std::wstring& valueName,
                        std::uint32_t value) {
  UniqueKey key;
  LSTATUS status = ::RegCreateKeyExW(HKEY_CURRENT_USER, keyPath.c_str(), 0, nullptr, 0,
                                     KEY_ALL_ACCESS, nullptr, key.put(), nullptr);
  if (status != ERROR_SUCCESS) {
    LOG_E << "Can't create key:" << keyPath;
    return false;
  }
  status = ::RegSetValueExW(key.get(), valueName.c_str(), 0, REG_DWORD,
                            reinterpret_cast<const BYTE*>(&value), sizeof value);
  if (status != ERROR_SUCCESS) {
    ::SetLastError(static_cast<DWORD>(status));  // the registry returns its errors
    LOG_E << "RegSetValueExW." << kLastError;
    return false;
  }
  return true;
}

bool IsKeyNotExist(const std::wstring& keyPath) {
  LSTATUS status = 0;
  const UniqueKey key = OpenKey(RegistryRoot::kCurrentUser, keyPath, KEY_READ, &status);
  return status == ERROR_FILE_NOT_FOUND;
}

bool IsValueNotExist(const std::wstring& keyPath, const std::wstring& valueName,
                     RegistryRoot root) {
  LSTATUS status = 0;
  const UniqueKey key = OpenKey(root, keyPath, KEY_READ, &status);
  if (!key) {
    // In doubt the value exists: an id that may have been made must not be made again.
    if (IsMissing(status)) return true;
    LOG_E << "Can't open key: " << keyPath;
    return false;
  }
  status = ::RegQueryValueExW(key.get(), valueName.c_str(), nullptr, nullptr, nullptr, nullptr);
  return status == ERROR_FILE_NOT_FOUND;
}

}  // namespace JustUtil
