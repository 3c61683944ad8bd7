#include "util/diag_log.h"

#include <utility>

#include "util/append_file.h"

namespace {

// A line and its end. Foreign texts have line ends of their own, behind which they could pass for
// lines of ours.
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
    for (const std::string& entry : heldLines_) text += entry;
    heldLines_.clear();
    path_ = std::move(path);
    if (!path_.empty()) Append(text);
  } catch (...) {
    // Out of memory: the next line may fare better.
  }
}

void DiagLog::Append(std::string_view text) {
  AppendToFile(path_, text);
  unchecked_ += text.size();
  if (unchecked_ < kLogBytesPerCheck) return;
  unchecked_ = 0;
  MoveAsideAbove(path_, kMaxLogBytes);
}
