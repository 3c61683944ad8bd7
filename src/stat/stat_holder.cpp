#include "stat/stat_holder.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "appinfo/app_info.h"
#include "layout/folders.h"
#include "util/clock.h"
#include "util/diag_log.h"
#include "util/files.h"
#include "util/log_line.h"
#include "util/text.h"

namespace {

constexpr std::string_view kStateKey = "stat=";
constexpr std::string_view kActionKey = "action=";
// Each parameter that a host adds writes all that wait. Without this limit, a host that reports
// much and is never online would fill the disk with its log.
constexpr std::size_t kMaxLoggedBytes = 4096;

std::string TodayText() {
  const std::optional<LocalTime> now = LocalNow();
  return now ? DateText(now->day, now->month, now->year) : std::string();
}

// Appends `item` and, where there is something before it, `separator` first.
void Join(std::string_view separator, std::string_view item, std::string* list) {
  if (!list->empty() && !item.empty()) *list += separator;
  *list += item;
}

std::string JoinAll(std::string_view separator, const std::deque<std::string>& items) {
  std::string list;
  for (const std::string& item : items) {
    if (&item != &items.front()) list += separator;
    list += item;
  }
  return list;
}

std::int64_t Length(std::string_view text) { return static_cast<std::int64_t>(text.size()); }

// Moves the oldest items while something of the budget remains; the last one may overrun it.
void MoveWhileFits(std::deque<std::string>* from, std::deque<std::string>* to,
                   std::int64_t* remaining) {
  while (!from->empty() && *remaining > 0) {
    *remaining -= Length(from->front()) + 1;
    to->push_back(std::move(from->front()));
    from->pop_front();
  }
}

template <class Item>
void PutInFront(std::deque<Item>&& items, std::deque<Item>* queue) {
  for (; !items.empty(); items.pop_back()) queue->push_front(std::move(items.back()));
}

bool MoveAside(const std::string& path) {
  // BackupFile shows its success by the changed path only.
  std::wstring moved = WidenUtf8(path);
  JustUtil::BackupFile(moved);
  return moved != WidenUtf8(path);
}

}  // namespace

bool TStatHolder::Load(const std::string& path) {
  LOG_D << "Loading from: " << path;
  std::string text;
  switch (FileSystem::ReadFileIfAny(path, &text, kMaxStoreBytes)) {
    case FileSystem::ReadOutcome::kFailed:
      return false;
    case FileSystem::ReadOutcome::kTooLarge:
      return MoveAside(path);
    case FileSystem::ReadOutcome::kMissing:
    case FileSystem::ReadOutcome::kRead:
      break;
  }
  if (text.empty()) return true;
  try {
    // The next save writes over a damaged file with the part that could be read.
    return ParseXML(std::move(text)) || FileSystem::CopyFile(path, path + ".bak");
  } catch (const std::invalid_argument&) {
    MoveAside(path);
    throw;
  }
}

bool TStatHolder::Save(const std::string& path) const {
  LOG_D << "Path: " << path;
  if (!IsEmpty()) {
    const std::string text = MakeXML();
    LOG_D << std::string_view(text).substr(0, kMaxLoggedBytes);
    return FileSystem::WriteFile(path, text);
  }
  FileSystem::DeleteFile(path);
  // A file that is deleted while a reader has it open can no longer be opened, and counts as gone.
  const bool gone = !FileSystem::IsFileExist(path);
  if (!gone) LOG_E << "Can't delete file: " << path;
  return gone;
}

bool TStatHolder::AddState(AppState state) {
  const std::size_t waiting = states_.size();
  const AppState before = lastState_;
  switch (state) {
    case AppState::kInstall:
    case AppState::kUninstall:
      if (lastState_ == state) {
        LOG_D << (state == AppState::kInstall ? "Duplicate state=install. Suppressed."
                                              : "Duplicate state=uninstall. Suppressed.");
        return false;
      }
      states_.push_back(state);
      break;
    case AppState::kDayuse:
      if (states_.empty() || states_.back() != AppState::kInstall) states_.push_back(state);
      break;
    default:
      LOG_E << "Unknown application state.";
  }
  lastState_ = state;  // an unknown one too: hosts read it back
  KeepFirstDayuse();
  // A dayuse that already waits is the only state that can leave everything as it was.
  return states_.size() != waiting || lastState_ != before;
}

void TStatHolder::KeepFirstDayuse() {
  const auto first = std::find(states_.begin(), states_.end(), AppState::kDayuse);
  if (first == states_.end()) return;
  states_.erase(std::remove(std::next(first), states_.end(), AppState::kDayuse), states_.end());
}

void TStatHolder::AddOptionalParam(std::string text) {
  lastParam_ = text;
  optionalParams_.push_back(std::move(text));
}

void TStatHolder::AddAction(std::string text) {
  lastAction_ = text;
  actions_.push_back(std::move(text));
}

bool TStatHolder::SetUniqueParam(std::string_view text) {
  const std::size_t end = std::min(text.find('='), text.size());
  const std::string_view value = text.substr(std::min(end + 1, text.size()));
  const auto [param, added] = uniqueParams_.try_emplace(std::string(text.substr(0, end)), value);
  if (added) return true;
  if (param->second == value) return false;
  param->second = value;
  return true;
}

std::string TStatHolder::GetUniqueParam(std::string_view name) const {
  const auto param = uniqueParams_.find(name);
  return param == uniqueParams_.end() ? std::string() : param->second;
}

std::string TStatHolder::GetFirstDate(AppState state) const {
  if (confirmed_ && !firstDate_.empty()) return firstDate_;
  if (state == AppState::kInstall) return TodayText();
  const std::string folder = GetMakerFolder();
  return folder.empty() ? std::string() : FileSystem::GetFileTime(folder + "ui");
}

bool TStatHolder::IsEmpty() const {
  return states_.empty() && optionalParams_.empty() && actions_.empty() && uniqueParams_.empty() &&
         lastState_ == AppState::kDayuse && lastParam_.empty() && lastAction_.empty() &&
         !confirmed_;
}

std::optional<AppState> TStatHolder::ExtractBlock(std::int16_t budget, TStatHolder* block) {
  if (states_.empty()) return {};
  const AppState first = states_.front();
  states_.pop_front();
  block->AddState(first);
  // Each 1 stands for a "&", "=" or ",". The sum need not be exact, since the last item may overrun
  // it anyway.
  std::int64_t remaining = budget - Length(kStateKey) - Length(TAppStateHolder::Text(first)) - 1;
  MoveWhileFits(&optionalParams_, &block->optionalParams_, &remaining);
  remaining -= 1;
  while (!uniqueParams_.empty() && remaining > 0) {
    auto param = uniqueParams_.extract(uniqueParams_.begin());
    remaining -= Length(param.key()) + 1 + Length(param.mapped()) + 1;
    block->uniqueParams_.insert(block->uniqueParams_.end(), std::move(param));
  }
  remaining -= 1 + Length(kActionKey);
  MoveWhileFits(&actions_, &block->actions_, &remaining);
  // The last values stay with the application; a block that is taken back must not change them.
  block->lastState_ = AppState::kDayuse;
  block->lastParam_.clear();
  block->lastAction_.clear();
  return first;
}

std::string TStatHolder::MakeQuery() {
  std::string query;
  if (!states_.empty()) {
    query.append(kStateKey).append(TAppStateHolder::Text(states_.front()));
  }
  Join("&", JoinAll("&", optionalParams_), &query);
  for (const auto& [name, value] : uniqueParams_) {
    Join("&", std::string(name).append("=").append(value), &query);
  }
  if (const std::string actions = JoinAll(",", actions_); !actions.empty()) {
    Join("&", kActionKey, &query);
    query += actions;
  }
  Clear();
  return query;
}

void TStatHolder::Merge(TStatHolder&& block) {
  PutInFront(std::move(block.states_), &states_);
  KeepFirstDayuse();
  PutInFront(std::move(block.optionalParams_), &optionalParams_);
  PutInFront(std::move(block.actions_), &actions_);
  // Keeps the value that is here already: the host has set it since.
  uniqueParams_.merge(block.uniqueParams_);
  block.Clear();
}

void TStatHolder::Clear() {
  states_.clear();
  optionalParams_.clear();
  actions_.clear();
  uniqueParams_.clear();
}
