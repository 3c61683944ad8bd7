#include "executor/block_confirm.h"

#include "layout/file_names.h"
#include "layout/folders.h"
#include "stat/stat_holder.h"
#include "util/diag_log.h"
#include "util/locker.h"
#include "util/log_line.h"
#include "util/text.h"

namespace {

// The day stored in a block, or empty. A day can only be read back as a confirmed one, and an empty
// one cannot be confirmed.
std::string StoredDate(TStatHolder* block) {
  block->SetConfirmed(true);
  return block->Confirmed() ? block->GetFirstDate(AppState::kDayuse) : std::string();
}

bool ConfirmDate(const std::string& statisticsFile, const std::string& date) {
  TStatHolder statistics;
  if (!statistics.Load(statisticsFile)) return false;
  if (statistics.Confirmed()) return true;
  statistics.SetFirstDate(date);
  statistics.SetConfirmed(true);
  return statistics.Save(statisticsFile);
}

}  // namespace

std::optional<AppState> ConfirmBlock(const std::string& appId, int blockId, TLocker* lock) {
  const LockScope scope(lock);
  const std::string folder = GetUpdaterDataPath(appId);
  if (!scope || folder.empty()) {
    LOG_E << "Lock error, postpone confirm block" << blockId;
    return {};
  }
  const std::string blockFile = folder + BlockFile(blockId);
  TStatHolder block;
  if (!block.Load(blockFile)) return {};
  const std::string date = StoredDate(&block);
  if (!date.empty() && !ConfirmDate(folder + kStatisticsFile, date)) return {};
  TStatHolder sent;
  // A block holds one state, and the smallest budget already gives it.
  const std::optional<AppState> state = block.ExtractBlock(1, &sent);
  // Saving an empty holder deletes the file. This comes last: after a kill before it the block is
  // in work for longer, but its day is not lost.
  if (!TStatHolder().Save(blockFile)) return {};
  LOG_I << "Block confirmed:" << blockId;
  return state;
}
