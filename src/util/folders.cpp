// The folders of the system that are made of others.
#include "util/folders.h"

#include <algorithm>

#include "util/diag_log.h"
#include "util/files.h"
#include "util/log_line.h"
#include "util/text.h"

namespace {

constexpr int kCsidlAppData = 0x1A;
constexpr int kCsidlLocalAppData = 0x1C;
constexpr int kCsidlCommonAppData = 0x23;
constexpr wchar_t kMaker[] = L"Krelix";
constexpr wchar_t kUpdater[] = L"Krelix\\Updater\\";

// `folder`, unless one of the folders between it and `root` is a link.
std::wstring UnlessLinked(std::wstring folder, const std::wstring& root) {
  for (std::size_t end = root.size(); (end = folder.find(L'\\', end)) != folder.npos; ++end) {
    const std::wstring part = folder.substr(0, end);
    if (!FileSystem::IsLink(NarrowUtf8(part))) continue;
    LOG_E << "Folder refused, it is a link: " << part;
    return {};
  }
  return folder;
}

}  // namespace

bool HasParentComponent(std::wstring_view path) {
  while (!path.empty()) {
    const std::size_t end = std::min(path.find_first_of(L"\\/"), path.size());
    const std::wstring_view component = path.substr(0, end);
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

std::string GetMakerFolder() { return NarrowUtf8(GetAppDataFolder(kMaker)); }

std::wstring GetUpdaterLocalFolder(const std::string& subPath, CreateFolder create) {
  const std::wstring root = GetLocalAppDataFolder({}, CreateFolder::kNo);
  const std::wstring folder = UnlessLinked(FolderBelow(root, kUpdater + WidenAnsi(subPath)), root);
  if (create == CreateFolder::kYes) MakeFolder(folder);
  return folder;
}

bool ListAppIds(const std::wstring& folder, std::vector<std::string>* ids) {
  ids->clear();
  std::vector<std::string> names;
  bool areAll = !folder.empty() && FileSystem::ListFolders(NarrowUtf8(folder), &names);
  for (const std::string& name : names) {
    std::optional<std::string> id = NarrowAnsi(WidenUtf8(name));
    if (id) {
      ids->push_back(*std::move(id));
    } else {
      areAll = false;
    }
  }
  return areAll;
}

std::wstring GetUpdaterLowFolder(const std::string& subPath) {
  return GetLocalAppDataLowFolder(kUpdater + WidenAnsi(subPath));
}

std::string GetUpdaterDataPath(const std::string& subPath) {
  const std::wstring root = GetLocalAppDataLowFolder({});
  const std::wstring updater = FolderBelow(root, kUpdater);
  const std::wstring folder = UnlessLinked(FolderBelow(updater, WidenAnsi(subPath)), root);
  if (!folder.empty()) MakeFolder(updater);
  return NarrowUtf8(folder);
}

std::string DataFolder::PathOf(std::string_view fileName) const {
  if (!path_) path_ = GetUpdaterDataPath(name_);
  return path_->empty() ? std::string() : std::string(*path_).append(fileName);
}
