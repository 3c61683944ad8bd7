// Writing to the diagnostic log: LOG_E << "Can't open file: " << path << kLastError;
#ifndef KUPDATE_UTIL_LOG_LINE_H_
#define KUPDATE_UTIL_LOG_LINE_H_

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

class DiagLog;

/// The text that goes before the next number of a line.
enum class CodeMode {
  kNone = 0,
  kSystemError = 1,  ///< "LastError: 0x5."; the number is the thread's last error, appended at once
  kHresult = 2,      ///< "HR= 0x80004005."
  kOther = 3,        ///< "Code: 0x1."
};

inline constexpr CodeMode kLastError = CodeMode::kSystemError;
inline constexpr CodeMode kHresult = CodeMode::kHresult;
inline constexpr CodeMode kOtherCode = CodeMode::kOther;

/// Cuts the text of __PRETTY_FUNCTION__ down to the function's qualified name:
/// "TStatCtrl::AddState", also inside its lambdas.
constexpr std::string_view QualifiedName(std::string_view pretty);

/// A type that is written as a number: no truth value, no character.
template <class T>
concept LogNumber = std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char> &&
                    !std::same_as<T, wchar_t>;

/// One line of the log, written when the statement that builds it ends. Pieces are joined with one
/// blank unless they begin with ",", "." or ":". A line to which nothing was appended is not
/// written. The thread's last error is the same after every step as before it. Nothing throws.
class LogLine {
 public:
  /// @param log       where the line goes; null: nowhere
  /// @param function  name of the writing function as it is to appear
  /// @param line      its source line
  /// @param level     "D:", "I:", "W:", "E:" or "P:"
  LogLine(DiagLog* log, std::string_view function, int line, std::string_view level) noexcept;
  ~LogLine();
  LogLine(const LogLine&) = delete;
  LogLine& operator=(const LogLine&) = delete;

  LogLine& operator<<(std::string_view text) noexcept;
  LogLine& operator<<(const std::string& text) noexcept { return *this << std::string_view(text); }
  /// Null counts as empty text.
  LogLine& operator<<(const char* text) noexcept {
    return *this << (text ? std::string_view(text) : std::string_view());
  }
  LogLine& operator<<(std::wstring_view text) noexcept;
  LogLine& operator<<(const std::wstring& text) noexcept {
    return *this << std::wstring_view(text);
  }
  LogLine& operator<<(const wchar_t* text) noexcept {
    return *this << (text ? std::wstring_view(text) : std::wstring_view());
  }

  /// Decimal, or as the pending CodeMode wants it.
  template <LogNumber T>
  LogLine& operator<<(T number) noexcept {
    if constexpr (std::signed_integral<T>) {
      return AppendNumber(number < 0, static_cast<std::uint64_t>(number));
    } else {
      return AppendNumber(false, number);
    }
  }

  LogLine& operator<<(CodeMode mode) noexcept { return WithError(mode); }
  /// Decorates the next number; kSystemError appends the thread's last error itself.
  LogLine& WithError(CodeMode mode) noexcept;

 private:
  LogLine& AppendNumber(bool negative, std::uint64_t bits) noexcept;
  void AppendPiece(std::string_view piece) noexcept;

  DiagLog* log_;
  std::string text_;
  CodeMode codeMode_ = CodeMode::kNone;
  bool codeHex_ = false;
  bool headerOnly_ = true;
  bool suppressed_ = false;
  bool autoSpace_ = true;
};

/// A line of the process's log under a given name, for functions that it knows by another than
/// their own.
LogLine LogAs(std::string_view function, int line, std::string_view level) noexcept;

#define LOG_AT(level) \
  LogLine(&DiagLog::Instance(), FunctionName(__PRETTY_FUNCTION__), __LINE__, level)
#define LOG_D LOG_AT("D:")
#define LOG_I LOG_AT("I:")
#define LOG_W LOG_AT("W:")
#define LOG_E LOG_AT("E:")
#define LOG_P LOG_AT("P:")

constexpr std::string_view QualifiedName(std::string_view pretty) {
  // The parameter list begins at the first "(" outside template arguments that does not open one of
  // the compilers' spellings of an unnamed namespace.
  std::size_t end = pretty.size();
  int angles = 0;
  for (std::size_t i = 0; i < pretty.size(); ++i) {
    const char c = pretty[i];
    if (c == '<') ++angles;
    if (c == '>') --angles;
    if (c != '(' || angles != 0) continue;
    if (pretty.substr(i).starts_with("(anonymous namespace)")) {
      i += std::string_view("(anonymous namespace)").size() - 1;
      continue;
    }
    end = i;
    break;
  }
  // The name goes back to the blank (or "*", "&") behind the return type, again outside template
  // arguments and unnamed namespaces.
  std::size_t begin = end;
  angles = 0;
  while (begin > 0) {
    const char c = pretty[begin - 1];
    if (c == '>') ++angles;
    if (c == '<') --angles;
    if (c == ')') {
      begin -= std::string_view("(anonymous namespace)").size();
      continue;
    }
    if (angles == 0 && (c == ' ' || c == '*' || c == '&')) break;
    --begin;
  }
  std::string_view name = pretty.substr(begin, end - begin);
  for (const std::string_view unnamed : {"{anonymous}::", "(anonymous namespace)::"}) {
    if (name.starts_with(unnamed)) name.remove_prefix(unnamed.size());
  }
  return name;
}

/// The same, always done by the compiler: a log statement costs no scan and no code for it.
consteval std::string_view FunctionName(std::string_view pretty) { return QualifiedName(pretty); }

#endif  // KUPDATE_UTIL_LOG_LINE_H_
