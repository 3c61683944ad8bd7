#include "util/diag_log.h"

#include <utility>

#include "util/append_file.h"

namespace {

// A line and its end. A foreign text may hold line ends, and what follows one could pass for a line
// of ours: so it is indented.
std::string EntryOf(std::string_view line) {
  const std::size_t last = line.find_last_not_of("\r\n");
  line = line.substr(0, last == line.npos ? 0 : last + 1);
  std::string entry;
  entry.reserve(line.size() + 1);
  for (std::size_t i = 0; i < line.size(); ++i) {
    const bool isCrLf = line.substr(i).starts_with("\r\n");
    if (isCrLf || line[i] == '\n') {
      entry += "\n    ";
      i += isCrLf;
    } else {
      entry += line[i] == '\r' ? ' ' : line[i];
    }
  }
  return entry += '\n';
}

}  // namespace

DiagLog& DiagLog::Instance() {
  static DiagLog& instance = *new DiagLog;  // leaked: lines are written until the process ends
  return instance;
}

void DiagLog::Write(std::string_view line) noexcept {
  try {
    CriticalScope scope(guard_);
    std::string entry = EntryOf(line);
    if (!path_.empty()) {
      Append(entry);
    } else if (!started_) {
      heldLines_.push_back(std::move(entry));
    }
  } catch (...) {
    // Out of memory, and the log itself is the place for failures.
  }
}

void DiagLog::Start(const std::function<std::wstring()>& choosePath,
                    std::string_view heading) noexcept {
  try {
    // The guard keeps lines of several threads apart. It may be taken again, because choosing a
    // path logs.
    CriticalScope scope(guard_);
    if (started_) return;
    std::wstring path = choosePath();
    // Also without a path: otherwise the held lines would grow without limit.
    started_ = true;
    std::string text(heading);
    text += '\n';
    for (const std::string& entry : heldLines_) text += entry;
    heldLines_.clear();
    path_ = std::move(path);
    if (!path_.empty()) Append(text);
  } catch (...) {
    // Out of memory: the next call tries again.
  }
}

void DiagLog::Append(std::string_view text) {
  AppendToFile(path_, text);
  unchecked_ += text.size();
  if (unchecked_ < kLogBytesPerCheck) return;
  unchecked_ = 0;
  MoveAsideAbove(path_, kMaxLogBytes);
}
