#include "executor/self_removal.h"

#include <algorithm>
#include <vector>

#include "appinfo/app_info2.h"
#include "executor/app_files.h"
#include "executor/program_removal.h"
#include "install/private_file.h"
#include "layout/folders.h"
#include "layout/names.h"
#include "transfer/transfer.h"
#include "util/append_file.h"
#include "util/diag_log.h"
#include "util/files.h"
#include "util/folder_content.h"
#include "util/log_line.h"
#include "util/mutex.h"
#include "util/process.h"
#include "util/text.h"

namespace {

std::wstring NotePath() { return ModulePath() + L".remove"; }

// A file of that name keeps the program: the author's own, in a build folder, has no installer.
std::wstring KeepPath() { return ModulePath() + L".keep"; }

// The ids in the note, one in each line.
std::vector<std::string> NotedApplications() {
  std::vector<std::string> ids;
  const std::string text = FileSystem::ReadFile(NarrowUtf8(NotePath()));
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    ids.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return ids;
}

bool IsNeeded() {
  const std::wstring program = ModulePath();
  const std::wstring defaultProgram = DefaultExecutorPath();
  if (!TAppInfo2::IsApplicationListEmpty(program, defaultProgram)) return true;
  // The service will start this program for these jobs.
  const std::vector<JobFacts> jobs = ListOwnJobs();
  return std::any_of(jobs.begin(), jobs.end(), [&](const JobFacts& job) {
    return EqualsIgnoreCase(job.notifyProgram, program);
  });
}

}  // namespace

void WishSelfRemoval(const std::string& appId) {
  if (!AppendToFile(NotePath(), appId + "\n")) LOG_E << "Can't write file: " << NotePath();
}

void FollowSelfRemovalWish() noexcept {
  try {
    // Nearly every run ends here, so the lists are not read before.
    if (!JustUtil::IsPathExist(NotePath())) return;
    if (IsNeeded()) {
      LOG_I << "The program is to be removed but still needed: a later run will look again.";
      return;
    }
    for (const std::string& appId : NotedApplications()) {
      Mutex lock(StatisticsMutexName(appId));
      RemoveApplicationData(appId, &lock);
    }
    RemoveInstallFolder();
    FileSystem::RemoveEmptyFolder(GetUpdaterDataPath({}));
    FileSystem::RemoveEmptyFolder(NarrowUtf8(GetUpdaterLocalFolder({}, CreateFolder::kNo)));
    // The note goes last. After a kill in between, the next run does all this again.
    if (JustUtil::IsPathExist(KeepPath())) {
      LOG_I << "No application needs the program any more, but it is kept.";
    } else {
      LOG_I << "No application needs the program any more: it removes itself.";
      if (!RemoveRunningProgram(ModulePath())) return;
    }
    FileSystem::DeleteFile(NarrowUtf8(NotePath()));
  } catch (...) {
    LOG_E << "Can't remove the program.";
  }
}
