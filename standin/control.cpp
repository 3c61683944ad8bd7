#include "standin/control.h"

#include <algorithm>

#include "util/text.h"
#include "util/win/unique.h"

namespace standin {

// A file that cannot be read counts as empty: a test may just be replacing it. The next question
// reads it again.
Control::Content Control::Read(const std::wstring& path) {
  // Tests replace the file at any moment; this handle must not keep them from it.
  constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  const UniqueFile file(
      ::CreateFileW(path.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr));
  Content content;
  FILETIME written;
  if (file && ::GetFileTime(file.get(), nullptr, nullptr, &written)) {
    content.writeTicks = (std::uint64_t{written.dwHighDateTime} << 32) | written.dwLowDateTime;
  }
  char buffer[4096];
  DWORD got = 0;
  while (file && ::ReadFile(file.get(), buffer, sizeof buffer, &got, nullptr) && got > 0) {
    content.text.append(buffer, got);
  }
  return content;
}

void Control::Refresh() {
  Content content = Read(path_);
  // The time of writing is part of the content: writing the same text again restarts the counts.
  if (content == content_) return;
  content_ = std::move(content);
  script_ = ParseControlScript(content_.text);
  calls_.clear();
  nextState_ = 0;
  for (const std::string& problem : script_.problems) journal_.Problem(problem);
}

std::optional<HResult> Control::FailureOf(std::string_view call) {
  const std::lock_guard lock(mutex_);
  Refresh();
  // Counted before the rules are asked: a call that they fail counts too.
  const std::uint64_t number = ++calls_[std::string(call)];
  const auto applies = [&](const FailRule& rule) {
    // Not "number < first + count", which would overflow: the default count is the largest number.
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

bool Control::Job5Offered() {
  const std::lock_guard lock(mutex_);
  Refresh();
  return script_.offerJob5;
}

std::optional<int> Control::NextScriptedState() {
  const std::lock_guard lock(mutex_);
  Refresh();
  if (script_.states.empty()) return std::nullopt;
  const int state = script_.states[nextState_];
  // The last state repeats for ever.
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

std::string Control::User() {
  const std::lock_guard lock(mutex_);
  Refresh();
  return script_.user;
}

bool Control::IsForeign(std::string_view jobId, const std::string& owner) {
  const std::lock_guard lock(mutex_);
  Refresh();
  // An "owner" line wins over the job's own owner, but only as long as it stands in the file.
  const auto other = script_.owners.find(std::string(jobId));
  return (other == script_.owners.end() ? owner : other->second) != script_.user;
}

bool Control::AnyServerWillDo() {
  const std::lock_guard lock(mutex_);
  Refresh();
  return script_.anyServer;
}

double Control::ClockFactor() {
  const std::lock_guard lock(mutex_);
  Refresh();
  return script_.clockFactor;
}

double Control::LaterSeconds() {
  const std::lock_guard lock(mutex_);
  Refresh();
  return script_.laterSeconds;
}

std::uint32_t Control::LingerSeconds() {
  const std::lock_guard lock(mutex_);
  Refresh();
  return script_.lingerSeconds;
}

}  // namespace standin
