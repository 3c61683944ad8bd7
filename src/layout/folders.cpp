#include "layout/folders.h"

#include "layout/file_names.h"
#include "util/diag_log.h"
#include "util/files.h"
#include "util/log_line.h"
#include "util/text.h"

namespace {

constexpr wchar_t kMaker[] = L"Krelix";
constexpr wchar_t kUpdater[] = L"Krelix\\Updater\\";

// `folder`; empty when one of the folders between it and `root` is a link. Any process of the user
// may have put one there, and the file behind it could be any of the user's.
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

std::string GetMakerFolder() { return NarrowUtf8(GetAppDataFolder(kMaker)); }

std::string GetCommonMakerFolder() { return NarrowUtf8(GetCommonAppDataFolder(kMaker)); }

std::wstring GetUpdaterRoamingFolder() { return GetAppDataFolder(kUpdater); }

std::wstring DefaultExecutorPath() {
  const std::wstring folder = GetUpdaterRoamingFolder();
  return folder.empty() ? folder : folder + kExecutorFile;
}

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
    // Folders are named from ANSI text, so a name without an ANSI form stands for no id that could
    // be asked.
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
  // The application's own folder is made by the first write: reading leaves no folder behind.
  if (!folder.empty()) MakeFolder(updater);
  return NarrowUtf8(folder);
}

std::string DataFolder::PathOf(std::string_view fileName) const {
  if (!path_) path_ = GetUpdaterDataPath(name_);
  return path_->empty() ? std::string() : std::string(*path_).append(fileName);
}
