// The registry on other systems, for tests: a map that lives as long as the process. It holds
// numbers only, as the portable code needs no more.
#include "util/registry.h"

#include <map>
#include <utility>

namespace {

using Values = std::map<std::pair<std::wstring, std::wstring>, std::uint32_t>;

Values& CurrentUser() {
  static Values& values = *new Values;
  return values;
}

}  // namespace

namespace JustUtil {

bool WriteIntToRegistry(const std::wstring& keyPath, const std::wstring& valueName,
                        std::uint32_t value) {
  CurrentUser()[{keyPath, valueName}] = value;
  return true;
}

bool ReadIntFromRegistry(RegistryRoot, const std::wstring& keyPath, const std::wstring& valueName,
                         std::uint32_t* value) {
  const auto found = CurrentUser().find({keyPath, valueName});
  if (found == CurrentUser().end()) return false;
  *value = found->second;
  return true;
}

bool RemoveValue(const std::wstring& keyPath, const std::wstring& valueName) {
  return CurrentUser().erase({keyPath, valueName}) == 1;
}

bool IsValueNotExist(const std::wstring& keyPath, const std::wstring& valueName, RegistryRoot) {
  return CurrentUser().count({keyPath, valueName}) == 0;
}

}  // namespace JustUtil
