#include "util/diag_log.h"

#include <utility>

#include "util/append_file.h"

DiagLog& DiagLog::Instance() {
  static DiagLog& instance = *new DiagLog;  // leaked: lines are written until the process ends
  return instance;
}

void DiagLog::Write(std::string_view line) noexcept {
  try {
    CriticalScope scope(guard_);
    if (!started_) heldLines_.emplace_back(line);
    if (path_.empty()) return;
    std::string text;
    text.reserve(line.size() + 1);
    text.append(line).append(1, '\n');
    AppendToFile(path_, text);
  } catch (...) {
    // Out of memory; there is nowhere left to say so.
  }
}

void DiagLog::Start(const std::function<std::wstring()>& choosePath,
                    std::string_view heading) noexcept {
  try {
    CriticalScope scope(guard_);
    if (started_) return;
    std::wstring path = choosePath();
    started_ = true;  // also without a path: lines must not be held for ever
    std::string text(heading);
    text += '\n';
    for (const std::string& line : heldLines_) text.append(line).append(1, '\n');
    heldLines_.clear();
    path_ = std::move(path);
    if (!path_.empty()) AppendToFile(path_, text);
  } catch (...) {
    // Out of memory: the next line may fare better.
  }
}
