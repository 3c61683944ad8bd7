#include "standin/control.h"

#include <algorithm>

#include "util/text.h"
#include "util/win/unique.h"

namespace standin {
namespace {

// What cannot be read counts as empty: a file that is just being replaced is read at the next question.
std::string ReadText(const std::wstring& path) {
  constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  const UniqueFile file(
      ::CreateFileW(path.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr));
  std::string text;
  char buffer[4096];
  DWORD got = 0;
  while (file && ::ReadFile(file.get(), buffer, sizeof buffer, &got, nullptr) && got > 0) {
    text.append(buffer, got);
  }
  return text;
}

}  // namespace

void Control::Refresh() {
  std::string text = ReadText(path_);
  if (text == text_) return;
  text_ = std::move(text);
  script_ = ParseControlScript(text_);
  calls_.clear();
  nextState_ = 0;
  for (const std::string& problem : script_.problems) journal_.Problem(problem);
}

std::optional<HResult> Control::FailureOf(std::string_view call) {
  const std::lock_guard lock(mutex_);
  Refresh();
  const std::uint64_t number = ++calls_[std::string(call)];
  const auto applies = [&](const FailRule& rule) {
    return rule.call == call && number >= rule.first && number - rule.first < rule.count;
  };
  const auto rule = std::find_if(script_.failures.begin(), script_.failures.end(), applies);
  if (rule == script_.failures.end()) return std::nullopt;
  return rule->code;
}

bool Control::Job2Withheld() {
  const std::lock_guard lock(mutex_);
  Refresh();
  return script_.withholdJob2;
}

std::optional<int> Control::NextScriptedState() {
  const std::lock_guard lock(mutex_);
  Refresh();
  if (script_.states.empty()) return std::nullopt;
  const int state = script_.states[nextState_];
  nextState_ = std::min(nextState_ + 1, script_.states.size() - 1);
  return state;
}

bool Control::IsVanished(std::string_view jobId) {
  const std::lock_guard lock(mutex_);
  Refresh();
  return std::any_of(script_.vanished.begin(), script_.vanished.end(), [&](const std::string& id) {
    return id == "all" || EqualsIgnoreCase(id, jobId);
  });
}

double Control::ClockFactor() {
  const std::lock_guard lock(mutex_);
  Refresh();
  return script_.clockFactor;
}

std::uint32_t Control::LingerSeconds() {
  const std::lock_guard lock(mutex_);
  Refresh();
  return script_.lingerSeconds;
}

}  // namespace standin
