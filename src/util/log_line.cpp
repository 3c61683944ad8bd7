#include "util/log_line.h"

#include <charconv>

#include "util/clock.h"
#include "util/diag_log.h"
#include "util/system.h"
#include "util/text.h"

namespace {

std::string TimeText() {
  const auto now = LocalNow();
  if (!now) return "xx:xx:xx";
  return PaddedText(now->hour, 2) + ":" + PaddedText(now->minute, 2) + ":" +
         PaddedText(now->second, 2);
}

const char* Prefix(CodeMode mode) {
  switch (mode) {
    case CodeMode::kSystemError:
      return "LastError: ";
    case CodeMode::kHresult:
      return "HR= ";
    case CodeMode::kOther:
      return "Code: ";
    case CodeMode::kNone:
      break;
  }
  return "";
}

}  // namespace

// Each function here keeps the thread's last error: what a line does to it must not reach the
// caller, nor a later kLastError of the same line. A line for which memory is short is dropped as a
// whole.
LogLine::LogLine(DiagLog* log, std::string_view function, int line, std::string_view level) noexcept
    : log_(log) {
  const LastErrorKeeper keeper;
  suppressed_ = level == "P:" && log_ && !log_->Paranoid();
  if (!log_ || suppressed_) return;
  try {
    text_ = TimeText();
    text_.append(" ").append(level).append(function).append("(");
    text_.append(DecimalText(line)).append("):");
  } catch (...) {
    suppressed_ = true;
  }
}

LogLine::~LogLine() {
  const LastErrorKeeper keeper;
  // A statement that adds nothing writes nothing.
  if (log_ && !suppressed_ && !headerOnly_ && !text_.empty()) log_->Write(text_);
}

LogLine LogAs(std::string_view function, int line, std::string_view level) noexcept {
  return LogLine(&DiagLog::Instance(), function, line, level);
}

LogLine& LogLine::operator<<(std::string_view text) noexcept {
  const LastErrorKeeper keeper;
  AppendPiece(text);
  return *this;
}

LogLine& LogLine::operator<<(std::wstring_view text) noexcept {
  const LastErrorKeeper keeper;
  try {
    AppendPiece(NarrowUtf8(text));
  } catch (...) {
    suppressed_ = true;
  }
  return *this;
}

LogLine& LogLine::WithError(CodeMode mode) noexcept {
  // First of all, before another call can change it.
  const std::uint32_t code = LastErrorCode();
  codeMode_ = mode;
  codeHex_ = mode != CodeMode::kNone;
  if (mode == CodeMode::kSystemError) *this << code;
  return *this;
}

LogLine& LogLine::AppendNumber(bool negative, std::uint64_t bits) noexcept {
  const LastErrorKeeper keeper;
  try {
    std::string piece = Prefix(codeMode_);
    if (codeHex_) {
      piece += HexText(static_cast<std::uint32_t>(bits));
    } else if (negative) {
      piece += DecimalText(static_cast<std::int64_t>(bits));
    } else {
      char digits[24];
      piece.append(digits, std::to_chars(digits, digits + sizeof digits, bits).ptr);
    }
    if (codeMode_ != CodeMode::kNone) piece += '.';
    codeMode_ = CodeMode::kNone;
    codeHex_ = false;
    AppendPiece(piece);
  } catch (...) {
    suppressed_ = true;
  }
  return *this;
}

void LogLine::AppendPiece(std::string_view piece) noexcept {
  headerOnly_ = false;
  if (!log_ || suppressed_) return;
  try {
    const bool attaches = piece.empty() || piece[0] == ',' || piece[0] == '.' || piece[0] == ':';
    if (!text_.empty() && autoSpace_ && !attaches) text_ += ' ';
    text_ += piece;
  } catch (...) {
    suppressed_ = true;
  }
}
