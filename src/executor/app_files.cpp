#include "executor/app_files.h"

#include <algorithm>
#include <optional>

#include "appinfo/app_info2.h"
#include "appinfo/local_record.h"
#include "executor/block_confirm.h"
#include "layout/file_names.h"
#include "layout/folders.h"
#include "util/diag_log.h"
#include "util/folder_content.h"
#include "util/locker.h"
#include "util/log_line.h"
#include "util/text.h"

namespace {

// A file of that name, a replacement that a killed process left, or a damaged one that was kept.
bool IsFamilyOf(std::string_view name, std::string_view file) {
  if (!name.starts_with(file)) return false;
  const std::string_view rest = name.substr(file.size());
  return rest.empty() || rest == ".new" || rest == ".bak";
}

bool IsAnyOf(std::string_view name, std::initializer_list<std::string_view> files) {
  return std::any_of(files.begin(), files.end(),
                     [&](std::string_view file) { return IsFamilyOf(name, file); });
}

bool IsRecord(std::string_view name) { return IsAnyOf(name, {kRecordFile, kUpdateFile}); }

bool IsStateFile(std::string_view name) {
  const std::size_t end = name.find(".xml");
  return IsRecord(name) || IsFamilyOf(name, kStatisticsFile) ||
         (end != name.npos && BlockIdOfFile(name.substr(0, end + 4)) &&
          IsFamilyOf(name, name.substr(0, end + 4)));
}

bool IsLocalFile(std::string_view name) {
  return IsAnyOf(name,
                 {kLocalRecordFile, kAnswerFile, kFeedFile, kLocalLockFile, kExecutorLockFile});
}

void RemoveLocalFiles(const std::string& appId) {
  const std::string folder = NarrowUtf8(GetUpdaterLocalFolder(appId, CreateFolder::kNo));
  if (folder.empty()) return;
  FileSystem::DeleteFilesIn(folder, IsLocalFile);
  FileSystem::RemoveEmptyFolder(folder);
}

}  // namespace

void ForgetRemovedApplication(const std::string& appId, TLocker* lock) {
  const LockScope scope(lock);
  // Asked under the lock: a host that installs the application again takes it too.
  if (!scope || IsLiving(appId)) return;
  FileSystem::DeleteFilesIn(GetUpdaterDataPath(appId), IsRecord);
  RemoveLocalFiles(appId);
  LOG_I << "Application forgotten:" << appId;
}

void RemoveApplicationData(const std::string& appId, TLocker* lock) {
  const LockScope scope(lock);
  if (!scope || IsLiving(appId)) return;
  const std::string folder = GetUpdaterDataPath(appId);
  FileSystem::DeleteFilesIn(folder, IsStateFile);
  FileSystem::RemoveEmptyFolder(folder);
  RemoveLocalFiles(appId);
  LOG_I << "Application data removed:" << appId;
}
