#include "layout/log_start.h"

#include <string>

#include "layout/folders.h"
#include "layout/names.h"
#include "util/clock.h"
#include "util/diag_log.h"
#include "util/files.h"
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

std::wstring PrepareLogFile(const std::wstring& fileName, std::wstring folder) {
  if (folder.empty()) folder = GetUpdaterRoamingFolder();
  NormalizeFolder(folder);
  // Without a folder there is no log; a bare name would go into the host's current directory.
  if (folder.empty()) return folder;
  MakeFolder(folder);
  std::wstring path = folder + fileName;
  if (JustUtil::IsPathExist(path) && JustUtil::GetFileSize(path) > std::int64_t{kMaxLogBytes}) {
    std::wstring moved = path;
    JustUtil::BackupFile(moved);
  }
  return path;
}

}  // namespace

void LoadLogLevel() noexcept {
  try {
    // Made first, because reading the registry may log.
    DiagLog& log = DiagLog::Instance();
    constexpr wchar_t kValue[] = L"Log";
    // Most users have no such value, and reading it would log that as an error.
    if (JustUtil::IsValueNotExist(kSettingsKey, kValue)) return;
    log.SetParanoid(JustUtil::ReadStringFromRegistry(RegistryRoot::kCurrentUser, kSettingsKey,
                                                     kValue) == L"paranoiac");
  } catch (...) {
    // A host is loading the library and must not fail for this: the level stays the usual one.
    return;
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
