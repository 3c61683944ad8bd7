// The folders of the system that are derived from others.
#include "util/folders.h"

#include <algorithm>

#include "util/diag_log.h"
#include "util/files.h"
#include "util/log_line.h"
#include "util/text.h"

namespace {

// The shell's numbers, written here because only Windows has their names.
constexpr int kCsidlAppData = 0x1A;
constexpr int kCsidlLocalAppData = 0x1C;
constexpr int kCsidlCommonAppData = 0x23;

}  // namespace

bool HasParentComponent(std::wstring_view path) {
  while (!path.empty()) {
    const std::size_t end = std::min(path.find_first_of(L"\\/"), path.size());
    const std::wstring_view component = path.substr(0, end);
    // Windows drops blanks and dots at the end of a name, so "..." and ".. " lead out too.
    const bool onlyDots = component.find_first_not_of(L". ") == component.npos;
    if (onlyDots && std::count(component.begin(), component.end(), L'.') >= 2) return true;
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return false;
}

std::wstring FolderBelow(std::wstring folder, const std::wstring& subPath) {
  if (HasParentComponent(subPath)) {
    LOG_E << "Sub-path refused: " << subPath;
    return {};
  }
  NormalizeFolder(folder);
  // Below no folder, the sub-path alone would name one in the current directory.
  if (folder.empty()) return folder;
  folder += subPath;
  return NormalizeFolder(folder);
}

std::wstring GetAppDataFolder(const std::wstring& subPath) {
  return GetSpecialFolder(kCsidlAppData, subPath, CreateFolder::kYes);
}

std::wstring GetLocalAppDataFolder(const std::wstring& subPath, CreateFolder create) {
  return GetSpecialFolder(kCsidlLocalAppData, subPath, create);
}

std::wstring GetCommonAppDataFolder(const std::wstring& subPath) {
  return GetSpecialFolder(kCsidlCommonAppData, subPath, CreateFolder::kNo);
}
