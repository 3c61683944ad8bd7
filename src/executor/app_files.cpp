#include "executor/app_files.h"

#include "appinfo/app_info2.h"
#include "update/upd_info.h"
#include "util/diag_log.h"
#include "util/files.h"
#include "util/folder_content.h"
#include "util/folders.h"
#include "util/locker.h"
#include "util/log_line.h"
#include "util/text.h"

namespace {

std::string FeedFolder(const std::string& appId) {
  return NarrowUtf8(GetUpdaterLocalFolder(appId, CreateFolder::kNo));
}

void RemoveFlatFolder(const std::string& folder) {
  for (const FileSystem::FileEntry& file : FileSystem::ListFiles(folder)) {
    FileSystem::DeleteFile(folder + file.name);
  }
  FileSystem::RemoveEmptyFolder(folder);
}

}  // namespace

bool IsRegistered(const std::string& appId) {
  const TAppInfo2 app(appId);
  // A record that cannot be looked at is not one that is gone: its data must not be removed.
  return !FileSystem::IsNameFree(app.Path()) && !app.IsRemoved();
}

void ForgetRemovedApplication(const std::string& appId, TLocker* lock) {
  const LockScope scope(lock);
  if (!scope || IsRegistered(appId)) return;
  FileSystem::DeleteFile(TAppInfo2(appId).Path());
  FileSystem::DeleteFile(TUpdInfo(appId).Path());
  const std::string feedFolder = FeedFolder(appId);
  if (!feedFolder.empty()) FileSystem::DeleteFile(feedFolder + "version.rss");
  LOG_I << "Application forgotten:" << appId;
}

void RemoveApplicationData(const std::string& appId, TLocker* lock) {
  // The folder of the empty id is the one that all others lie in.
  if (appId.empty()) return ForgetRemovedApplication(appId, lock);
  const LockScope scope(lock);
  if (!scope || IsRegistered(appId)) return;
  RemoveFlatFolder(GetUpdaterDataPath(appId));
  RemoveFlatFolder(FeedFolder(appId));
  LOG_I << "Application data removed:" << appId;
}
