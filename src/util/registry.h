// The registry. Failures are logged at "E:" and reported as false, empty or absent; nothing throws
// and nothing is retried. Paths and names are wide. A key that cannot be opened is never made by a
// read.
#ifndef KUPDATE_UTIL_REGISTRY_H_
#define KUPDATE_UTIL_REGISTRY_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

enum class RegistryRoot { kCurrentUser, kLocalMachine };

/// The types of registry values that are understood, by their numbers in the system.
enum class RegistryType : std::uint32_t { kString = 1, kExpandString = 2, kInt = 4, kLong = 11 };

struct RegistryData {
  std::uint32_t type = 0;
  std::vector<std::byte> bytes;
};

/// Reads a value of any type. True only with data.
bool ReadFromRegistry(RegistryRoot root, const std::wstring& keyPath, const std::wstring& valueName,
                      RegistryData* data);

struct RegistryValue {
  std::wstring name;
  RegistryType type;
  std::wstring text;         ///< of kString
  std::uint64_t number = 0;  ///< of kInt and kLong
};

namespace JustUtil {

/// Strings, expandable ones unexpanded. A string that is stored without its ending zero is returned
/// whole and logged.
std::wstring ReadStringFromRegistry(RegistryRoot root, const std::wstring& keyPath,
                                    const std::wstring& valueName);
bool ReadIntFromRegistry(RegistryRoot root, const std::wstring& keyPath,
                         const std::wstring& valueName, std::uint32_t* value);
bool ReadLongFromRegistry(RegistryRoot root, const std::wstring& keyPath,
                          const std::wstring& valueName, std::uint64_t* value);

/// Under the current user; the key is made when absent.
bool WriteIntToRegistry(const std::wstring& keyPath, const std::wstring& valueName,
                        std::uint32_t value);

/// The strings and numbers of a key of the current user; values of other types are left out.
std::vector<RegistryValue> EnumValues(const std::wstring& keyPath);

/// Removes the key with all below it.
bool RemoveKey(RegistryRoot root, const std::wstring& keyPath);
/// Under the current user.
bool RemoveValue(const std::wstring& keyPath, const std::wstring& valueName);

/// Under the current user. A key that is there and cannot be opened exists.
bool IsKeyNotExist(const std::wstring& keyPath);
/// True when the value or its key is not there, which is not logged; any other failure answers
/// false.
bool IsValueNotExist(const std::wstring& keyPath, const std::wstring& valueName,
                     RegistryRoot root = RegistryRoot::kCurrentUser);

}  // namespace JustUtil

#endif  // KUPDATE_UTIL_REGISTRY_H_
