// The journal of all calls of the service and of the events between them.
#ifndef KUPDATE_STANDIN_JOURNAL_H_
#define KUPDATE_STANDIN_JOURNAL_H_

#include <mutex>
#include <string>
#include <string_view>

#include "standin/json_line.h"

namespace standin {

/// Appends lines to one file. Every line is in the file, and the file is closed, when a call
/// returns, so that other processes can read it at once. May be used by several threads. Throws
/// only when memory runs out.
class Journal {
 public:
  /// @param path  the file, made if missing. A line that cannot be written goes to stderr.
  explicit Journal(std::wstring path) : path_(std::move(path)) {}

  /// Writes `{"time":"2026-01-31T10:20:30.456Z",` and the line's members.
  void Write(const JsonLine& line);
  /// The same, and also writes the line to stderr.
  void WriteError(const JsonLine& line);
  /// A fault of the service itself or of its settings, as the event "problem".
  void Problem(std::string_view text);
  /// Ends the journal: later lines are dropped, and the end of the process cuts no line.
  void Close();

 private:
  void WriteWhole(const JsonLine& line, bool echo);

  std::mutex mutex_;
  std::wstring path_;
  bool closed_ = false;
};

}  // namespace standin

#endif  // KUPDATE_STANDIN_JOURNAL_H_
