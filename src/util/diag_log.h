// The one diagnostic log of the process.
#ifndef KUPDATE_UTIL_DIAG_LOG_H_
#define KUPDATE_UTIL_DIAG_LOG_H_

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "util/critical_section.h"

/// Takes finished lines. Not started (no path): lines are held in memory. Started: each line is one
/// open-append-close, so that a crash loses none and several processes can share the file.
/// Any thread may use it. Nothing here throws or reports a failure: a line that cannot be written
/// is lost.
class DiagLog {
 public:
  DiagLog() = default;
  DiagLog(const DiagLog&) = delete;
  DiagLog& operator=(const DiagLog&) = delete;

  /// The log of this process: made on first use, never destroyed.
  static DiagLog& Instance();

  /// Writes or holds one line (no line feed at its end).
  void Write(std::string_view line) noexcept;

  /// Whether lines of level "P:" are written. Set once at load, before there are other threads.
  bool Paranoid() const { return paranoid_; }
  void SetParanoid(bool paranoid) { paranoid_ = paranoid; }

  /// Names the file and writes `heading` and then the held lines into it, unless a file was named
  /// before.
  /// @param choosePath  called under the log's lock, and only when the log is not started yet.
  ///                    Returns the full path; lines written meanwhile are held. Without a path
  ///                    this and all later lines are lost.
  void Start(const std::function<std::wstring()>& choosePath, std::string_view heading) noexcept;

 private:
  std::vector<std::string> heldLines_;
  std::wstring path_;
  bool started_ = false;
  CriticalSection guard_;
  bool paranoid_ = false;
};

#endif  // KUPDATE_UTIL_DIAG_LOG_H_
