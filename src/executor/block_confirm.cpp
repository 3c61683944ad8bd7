#include "executor/block_confirm.h"

#include "stat/stat_holder.h"
#include "util/diag_log.h"
#include "util/folders.h"
#include "util/locker.h"
#include "util/log_line.h"
#include "util/text.h"

namespace {

constexpr std::int64_t kLastBlockId = 100;

std::string BlockFileName(std::int64_t blockId) {
  return "in_work_" + DecimalText(blockId) + ".xml";
}

// The day stored in a block; empty when there is none. A day can only be read back as a confirmed
// one, and an empty one cannot be confirmed.
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
  const std::string blockFile = folder + BlockFileName(blockId);
  TStatHolder block;
  if (!block.Load(blockFile)) return {};
  const std::string date = StoredDate(&block);
  if (!date.empty() && !ConfirmDate(folder + "statistics.xml", date)) return {};
  TStatHolder sent;
  const std::optional<AppState> state = block.ExtractBlock(1, &sent);
  if (!TStatHolder().Save(blockFile)) return {};
  LOG_I << "Block confirmed:" << blockId;
  return state;
}

std::optional<int> BlockIdOfFile(std::string_view fileName) {
  constexpr std::string_view kPrefix = "in_work_";
  if (!fileName.starts_with(kPrefix)) return {};
  const std::int64_t id = ParseInt64(fileName.substr(kPrefix.size()));
  if (id < 0 || id > kLastBlockId || fileName != BlockFileName(id)) return {};
  return static_cast<int>(id);
}
