#include "stat/stat_ctrl.h"

#include <stdexcept>
#include <utility>

#include "appinfo/app_info2.h"
#include "layout/file_names.h"
#include "util/diag_log.h"
#include "util/files.h"
#include "util/log_line.h"
#include "util/text.h"

namespace {

constexpr int kMaxUrlChars = 1024;
constexpr int kFirstDateChars = 10;  // "xx.xx.xxxx"

// The room for the block's query. It is checked as a wide number: if it were narrowed first, an
// address of 64 KiB would look short again.
std::int16_t BudgetBehind(const std::string& baseUrl) {
  const auto budget = kMaxUrlChars - kFirstDateChars - static_cast<std::int64_t>(baseUrl.size());
  if (budget < 1) throw std::runtime_error("BaseUrl too long.");
  return static_cast<std::int16_t>(budget);
}

// The base ends in a value ("...&os=win"), the query begins with a key: without a "&" between them
// the first state would become part of that value. A base without a query is a file or an address
// without a scheme, to which nothing was added; there the query follows bare.
std::string JoinUrl(const std::string& baseUrl, const std::string& query) {
  const bool hasQuery = baseUrl.find_first_of("?&") != baseUrl.npos;
  // Only the first "?" opens the query; a later one belongs to a value.
  const bool isOpen = baseUrl.ends_with('&') || baseUrl.find('?') + 1 == baseUrl.size();
  return baseUrl + (hasQuery && !isOpen ? "&" : "") + query;
}

}  // namespace

// The name of an operation in the log, and its words there when it is postponed.
struct TStatCtrl::Operation {
  std::string_view name;
  std::string_view lockError;

  void Postpone(std::string_view fault) const {
    std::string text(lockError);
    // The words behind the comma are fixed: people search logs for them.
    text.replace(0, text.find(','), fault);
    LogAs(name, __LINE__, "E:") << text;
  }
};

constexpr TStatCtrl::Operation TStatCtrl::kGetPingUrl{"TStatCtrl::GetPingUrl",
                                                      "Lock error, postpone get ping url ."};
constexpr TStatCtrl::Operation TStatCtrl::kRollback{"TStatCtrl::Rollback",
                                                    "Lock error, postpone rollback ."};

TStatCtrl::TStatCtrl(std::string appId, TLocker* lock) : folder_(std::move(appId)), lock_(lock) {}

std::string TStatCtrl::InWorkPath(int blockId) const { return folder_.PathOf(BlockFile(blockId)); }

std::optional<int> TStatCtrl::FreeBlockId() const {
  // A file that cannot be opened at the moment holds a block too.
  for (int id = 0; id <= kLastBlockId; ++id) {
    if (FileSystem::IsNameFree(InWorkPath(id))) return id;
  }
  return {};
}

void TStatCtrl::Change(const Operation& operation, const std::function<bool(TStatHolder&)>& edit) {
  const LockScope lock(lock_);
  if (!lock) {
    operation.Postpone("Lock error");
    return;
  }
  const std::string path = StatisticsPath();
  TStatHolder holder;
  if (!holder.Load(path)) {
    operation.Postpone("Read error");
    return;
  }
  if (edit(holder)) holder.Save(path);
}

TStatHolder TStatCtrl::Read(const Operation& operation) {
  TStatHolder holder;
  Change(operation, [&](TStatHolder& loaded) {
    holder = std::move(loaded);
    return false;
  });
  return holder;
}

void TStatCtrl::AddState(AppState state) {
  Change({"TStatCtrl::AddState", "Lock error, postpone add state ."},
         [&](TStatHolder& holder) { return holder.AddState(state); });
}

void TStatCtrl::AddOptionalParam(const std::string& text) {
  Change({"TStatCtrl::AddOptionalParam", "Lock error, postpone add optional param ."},
         [&](TStatHolder& holder) {
           holder.AddOptionalParam(text);
           return true;
         });
}

void TStatCtrl::AddAction(const std::string& text) {
  Change({"TStatCtrl::AddAction", "Lock error, postpone add action ."}, [&](TStatHolder& holder) {
    holder.AddAction(text);
    return true;
  });
}

void TStatCtrl::SetUniqueParam(const std::string& text) {
  Change({"TStatCtrl::SetUniqueParam", "Lock error, postpone set unique param ."},
         [&](TStatHolder& holder) { return holder.SetUniqueParam(text); });
}

std::string TStatCtrl::GetUniqueParam(std::string_view name) {
  return Read({"TStatCtrl::GetUniqueParam", "Lock error, postpone get unique param ."})
      .GetUniqueParam(name);
}

AppState TStatCtrl::LastState() {
  return Read({"TStatCtrl::LastState", "Lock error, postpone get last state ."}).LastState();
}

std::string TStatCtrl::LastParam() {
  return Read({"TStatCtrl::LastParam", "Lock error, postpone get last param ."}).LastParam();
}

std::optional<PingBlock> TStatCtrl::GetPingUrl(const std::string& baseUrl) {
  return NextBlock(baseUrl, std::nullopt);
}

std::optional<PingBlock> TStatCtrl::NextBlock(const std::string& baseUrl,
                                              std::optional<AppState> state) {
  LockScope lock(lock_);
  if (!lock) {
    kGetPingUrl.Postpone("Lock error");
    return {};
  }
  TStatHolder waiting;
  if (!waiting.Load(StatisticsPath())) {
    kGetPingUrl.Postpone("Read error");
    return {};
  }
  // The state and its block cost one load and one save.
  const bool isChanged = state && waiting.AddState(*state);
  std::optional<PingBlock> ping;
  try {
    ping = CutBlock(baseUrl, &waiting);
  } catch (...) {
    // No block fits behind an address that is too long. The state waits like any other.
    if (isChanged) waiting.Save(StatisticsPath());
    throw;
  }
  if (!ping && isChanged) waiting.Save(StatisticsPath());
  lock.Release();
  if (ping) {
    LogAs(kGetPingUrl.name, __LINE__, "W:")
        << "Statistic block will send to: " << ping->url << " Id: " << ping->id;
  }
  return ping;
}

std::optional<PingBlock> TStatCtrl::CutBlock(const std::string& baseUrl, TStatHolder* waiting) {
  TStatHolder block;
  const std::optional<AppState> state = waiting->ExtractBlock(BudgetBehind(baseUrl), &block);
  if (!state) return {};
  const std::optional<int> id = FreeBlockId();
  if (!id) {
    waiting->Merge(std::move(block));
    kGetPingUrl.Postpone("No free in-work file");
    return {};
  }
  const std::string date = waiting->GetFirstDate(*state);
  block.SetFirstDate(date);
  // In this order a kill in between leaves the block in both files instead of in none. It is then
  // counted twice when the executor takes back a block that no job sends. When the statistics
  // cannot be written, the block must not be sent: it would be cut off and sent again and again.
  if (!block.Save(InWorkPath(*id)) || !waiting->Save(StatisticsPath())) {
    FileSystem::DeleteFile(InWorkPath(*id));
    waiting->Merge(std::move(block));
    kGetPingUrl.Postpone("Write error");
    return {};
  }
  std::string url = JoinUrl(baseUrl, block.MakeQuery());
  if (!date.empty()) url += "&fd=" + date;
  return PingBlock{std::move(url), *state, *id};
}

void TStatCtrl::Rollback(int blockId) {
  LockScope lock(lock_);
  if (!lock) {
    kRollback.Postpone("Lock error");
    return;
  }
  TStatHolder block;
  TStatHolder waiting;
  if (!block.Load(InWorkPath(blockId)) || !waiting.Load(StatisticsPath())) {
    kRollback.Postpone("Read error");
    return;
  }
  waiting.Merge(std::move(block));
  // The block leaves its file only when it is safe in the other: a kill in between leaves it in
  // both.
  if (!waiting.Save(StatisticsPath())) {
    kRollback.Postpone("Write error");
    return;
  }
  TStatHolder().Save(InWorkPath(blockId));
  lock.Release();
  LOG_W << "Rollback block: " << blockId;
}

void TStatCtrl::SendStat(TAppInfo2& app, TLocker* lock, std::uint64_t now, const PingSender& send) {
  const std::string baseUrl = app.GetPingUrl();
  if (baseUrl.empty()) {
    LOG_E << "ping_url is empty!!!";
    return;
  }
  TStatCtrl statistics(app.AppId(), lock);
  std::optional<AppState> state = app.RecordPing(now);
  // Before the first block leaves: after a kill the same report must not be due again.
  app.SaveChanges();
  while (const std::optional<PingBlock> block =
             statistics.NextBlock(baseUrl, std::exchange(state, std::nullopt))) {
    // NextBlock has given its lock back: the sender calls the transfer service.
    if (send(app.AppId(), *block)) continue;
    LOG_E << "Can't send statistic to ping_url: " << baseUrl;
    statistics.Rollback(block->id);
    return;
  }
}
