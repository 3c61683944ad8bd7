#include "executor/ping_action.h"

#include <optional>

#include "appinfo/app_info2.h"
#include "appinfo/local_record.h"
#include "controller/scheduled_jobs.h"
#include "executor/app_files.h"
#include "executor/block_confirm.h"
#include "executor/run.h"
#include "executor/self_removal.h"
#include "layout/command_line.h"
#include "layout/file_names.h"
#include "layout/names.h"
#include "stat/stat_ctrl.h"
#include "transfer/transfer.h"
#include "util/clock.h"
#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/mutex.h"
#include "util/text.h"

namespace {

void TakeBack(const std::string& appId, int blockId, TLocker* lock) {
  TStatCtrl(appId, lock).Rollback(blockId);
  // Only for an application that hosts registered: any process of the user can make folders in
  // LocalLow.
  const std::optional<LocalRecord> record = ReadLocalRecord(appId);
  TAppInfo2 app(appId);
  const StoreChanges one(app);
  const std::uint64_t now = NowSeconds();
  if (!record || !record->removed || !app.ShouldPing(now)) return;
  LOG_I << "The application is removed: its statistics are sent once more.";
  TStatCtrl::SendStat(app, lock, now, LaunchPing);
}

void Confirm(const std::string& appId, int blockId, TLocker* lock) {
  if (ConfirmBlock(appId, blockId, lock) == AppState::kUninstall) {
    ForgetRemovedApplication(appId, lock);
  }
}

}  // namespace

void SettleBlock(const std::string& appId, int blockId, bool delivered) noexcept {
  try {
    LOG_I << (delivered ? "Delivered, block:" : "Not delivered, block:") << blockId;
    Mutex lock(StatisticsMutexName(appId));
    if (delivered) {
      Confirm(appId, blockId, &lock);
    } else {
      TakeBack(appId, blockId, &lock);
    }
  } catch (...) {
    LOG_E << "Can't settle block:" << blockId;
  }
}

int RunPingAction(const ExecutorCommand& command) {
  const EndedJob job = EndJob(command.jobId);
  if (job.end == JobEnd::kAlive) {
    LOG_E << "The job cannot be ended:" << command.jobId;
    return kExitJobAlive;
  }
  if (job.end == JobEnd::kGone) {
    // The process that ended it took care of its block. By now another report may use the block's
    // number.
    LOG_I << "The job is gone:" << command.jobId;
    return kExitDone;
  }
  SettleBlock(command.appId, command.blockId, job.transferred);
  // The server's answer says nothing; this deletes it.
  FreshTempFile(ReportAnswerFile(command.appId));
  // Only a note: the end of the run looks whether an application still needs the program.
  if (command.suicide) WishSelfRemoval(command.appId);
  return kExitDone;
}
