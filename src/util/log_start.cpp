#include "util/log_start.h"

#include <string>

#include "util/clock.h"
#include "util/diag_log.h"
#include "util/files.h"
#include "util/folders.h"
#include "util/log_line.h"
#include "util/process.h"
#include "util/registry.h"
#include "util/system.h"
#include "util/text.h"

namespace {

std::string LogHeading() {
  const auto today = LocalNow();
  return "Log started at: " +
         (today ? DateText(today->day, today->month, today->year) : "xx.xx.xxxx");
}

// An application id becomes part of the file's name; it must not become part of its folder.
std::wstring OneComponent(std::wstring fileName) {
  for (wchar_t& c : fileName) {
    if (std::wstring_view(L"\\/:*?\"<>|").find(c) != std::wstring_view::npos) c = L'_';
  }
  return fileName;
}

std::wstring PrepareLogFile(const std::wstring& fileName, std::wstring folder) {
  if (folder.empty()) folder = GetAppDataFolder(L"Krelix\\Updater");
  NormalizeFolder(folder);
  if (folder.empty()) return folder;
  MakeFolder(folder);
  std::wstring path = folder + OneComponent(fileName);
  if (JustUtil::IsPathExist(path) && JustUtil::GetFileSize(path) > std::int64_t{kMaxLogBytes}) {
    std::wstring moved = path;
    JustUtil::BackupFile(moved);
  }
  return path;
}

}  // namespace

void LoadLogLevel() noexcept {
  try {
    DiagLog& log = DiagLog::Instance();  // made before the registry is read: that may log
    constexpr wchar_t kKey[] = L"Software\\Krelix";
    constexpr wchar_t kValue[] = L"Log";
    if (JustUtil::IsValueNotExist(kKey, kValue)) return;
    log.SetParanoid(JustUtil::ReadStringFromRegistry(RegistryRoot::kCurrentUser, kKey, kValue) ==
                    L"paranoiac");
  } catch (...) {
    return;  // a host is loading the library: no memory for a level, so it stays the usual one
  }
}

void StartLog(const std::wstring& fileName, const std::wstring& folder) {
  DiagLog::Instance().Start([&] { return PrepareLogFile(fileName, folder); }, LogHeading());
}

void JustUtil::OutBanner() {
  const std::wstring path = ModulePath();
  const std::string version = FileVersionText(path);
  LOG_I << "**********************************************************";
  LOG_I << "Version: " << (version.empty() ? "no version info" : version);
  LOG_I << "Path: " << path;
  LOG_I << "OS: " << OsDisplayName();
  if (IsElevated()) {
    LOG_I << "++++++++++++++++++++++++++ PROCESS ELEVATED! Are you sure|!! "
             "++++++++++++++++++++++++++";
  } else {
    LOG_I << "Non-elevated process";
  }
  if (IsUacEnabled()) {
    LOG_I << "UAC enable";
  } else {
    LOG_I << "------------------- UAC disable!!! -------------------";
  }
}
