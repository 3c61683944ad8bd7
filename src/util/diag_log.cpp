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
    if (path_.empty()) {
      heldLines_.emplace_back(line);
      return;
    }
    std::string text;
    text.reserve(line.size() + 1);
    text.append(line).append(1, '\n');
    AppendToFile(path_, text);
  } catch (...) {
    // Out of memory; there is nowhere left to say so.
  }
}

void DiagLog::Begin(std::wstring path, std::string_view heading) noexcept {
  try {
    std::string text(heading);
    text += '\n';
    for (const std::string& line : heldLines_) text.append(line).append(1, '\n');
    path_ = std::move(path);
    if (!path_.empty()) AppendToFile(path_, text);
  } catch (...) {
    // Out of memory: the lines stay held.
  }
}
