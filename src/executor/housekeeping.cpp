#include "executor/housekeeping.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "executor/block_confirm.h"
#include "executor/job_policy.h"
#include "executor/ping_action.h"
#include "executor/self_removal.h"
#include "install/private_file.h"
#include "layout/command_line.h"
#include "layout/file_names.h"
#include "layout/folders.h"
#include "transfer/transfer.h"
#include "util/clock.h"
#include "util/diag_log.h"
#include "util/files.h"
#include "util/folder_content.h"
#include "util/log_line.h"
#include "util/process.h"
#include "util/text.h"

namespace {

// The job of a report may take 14 days. An older block without a job was left by a kill.
constexpr std::uint64_t kMaxSecondsInWork = 15 * kSecondsPerDay;

void EndJobs(const std::vector<OwnJob>& jobs, std::uint64_t now) {
  for (const std::size_t place : JobsToEnd(jobs, now)) {
    const OwnJob& job = jobs[place];
    LOG_I << "Ending abandoned job:" << job.facts.id;
    const EndedJob ended = EndJob(job.facts.id);
    // A job that is gone was ended by another process, which also takes care of its block.
    const bool isEnded = ended.end == JobEnd::kCompleted || ended.end == JobEnd::kCancelled;
    if (job.command.kind == CommandKind::kStatCallback && isEnded) {
      SettleBlock(job.command.appId, job.command.blockId, ended.transferred);
    }
  }
}

bool IsInWork(const std::vector<JobFacts>& jobs, const std::string& appId, int blockId) {
  return std::any_of(jobs.begin(), jobs.end(), [&](const JobFacts& job) {
    const ExecutorCommand command = ParseExecutorCommand(job.notifyCommandLine, job.notifyProgram);
    // One of the two ids comes from a folder's name, where case does not matter.
    return command.kind == CommandKind::kStatCallback &&
           EqualsIgnoreCase(std::string_view(command.appId), std::string_view(appId)) &&
           command.blockId == blockId;
  });
}

void TakeBackOldBlocks(const std::string& appId, const std::vector<JobFacts>& jobs,
                       std::uint64_t now) {
  for (const FileSystem::FileEntry& file : FileSystem::ListFiles(GetUpdaterDataPath(appId))) {
    const std::optional<int> block = BlockIdOfFile(file.name);
    if (!block || !IsOlderThan(file.modified, now, kMaxSecondsInWork)) continue;
    if (!IsInWork(jobs, appId, *block)) SettleBlock(appId, *block, /*delivered=*/false);
  }
}

}  // namespace

void KeepHouse() noexcept {
  try {
    const std::uint64_t now = NowSeconds();
    // Without this list no block is known to lack a job; then this call throws, and nothing is
    // taken back. The list stays true for the blocks below, because a job that ends here takes its
    // block along.
    const std::vector<JobFacts> jobs = ListOwnJobs();
    EndJobs(JobsOf(jobs, ModulePath()), now);
    std::vector<std::string> appIds;
    ListAppIds(GetUpdaterLocalFolder({}, CreateFolder::kNo), &appIds);
    appIds.emplace_back();  // the empty id: its folder holds the folders of the others
    for (const std::string& appId : appIds) TakeBackOldBlocks(appId, jobs, now);
  } catch (...) {
    LOG_E << "Housekeeping was not finished.";
  }
  // These two do not need the service, so they follow also when it does not answer.
  RemoveInstallLeftovers();
  FollowSelfRemovalWish();
}
