// Users, GUIDs and the registry on other systems, for tests: what the environment says, a random
// number, and a map that lives as long as the process.
#include "util/user.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <utility>

#include "util/guid.h"
#include "util/registry.h"
#include "util/system.h"

namespace {

using Values = std::map<std::pair<std::wstring, std::wstring>, std::uint32_t>;

Values& CurrentUser() {
  static Values& values = *new Values;
  return values;
}

}  // namespace

std::wstring LogonName() { return L"user"; }

std::string NewGuidText() {
  std::random_device random;
  const unsigned a = random();
  const unsigned b = random();
  const unsigned c = random();
  const unsigned d = random();
  char text[40];
  static_cast<void>(std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%04X-%04X%08X}", a,
                                  b & 0xFFFF, b >> 16, c & 0xFFFF, c >> 16, d));
  return text;
}

bool IsVistaOrLater() { return true; }

namespace JustUtil {

// NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes it while threads run
bool CheckPMIE8() { return std::getenv("KUPDATE_PROTECTED_MODE") != nullptr; }

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
