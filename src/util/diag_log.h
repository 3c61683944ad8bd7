// The one diagnostic log of the process.
#ifndef KUPDATE_UTIL_DIAG_LOG_H_
#define KUPDATE_UTIL_DIAG_LOG_H_

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "util/mutex.h"

/// A log file is moved to its name with ".bak" when it has more bytes than this: when a process
/// starts its log, and again after each `kLogBytesPerCheck` that the process wrote.
inline constexpr std::size_t kMaxLogBytes = 0x100000;
inline constexpr std::size_t kLogBytesPerCheck = 0x40000;

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

  /// Writes or holds one line (no line feed at its end). What follows a line feed inside it stands
  /// in a line of its own that begins with four blanks, which no other line does.
  void Write(std::string_view line) noexcept;

  /// Whether lines of level "P:" are written. Set once at load, before there are other threads.
  bool Paranoid() const { return paranoid_; }
  void SetParanoid(bool paranoid) { paranoid_ = paranoid; }

  /// Names the file and writes `heading` and then the held lines into it, unless a file was named
  /// before.
  /// @param choosePath  called under the log's lock, and only when the log is not started yet.
  ///                    Returns the full path; lines written during the call are held. Without a
  ///                    path this and all later lines are lost.
  void Start(const std::function<std::wstring()>& choosePath, std::string_view heading) noexcept;

 private:
  void Append(std::string_view text);

  std::vector<std::string> heldLines_;
  std::wstring path_;
  std::size_t unchecked_ = 0;  // bytes written since the file's size was looked at
  bool started_ = false;
  CriticalSection guard_;
  bool paranoid_ = false;
};

#endif  // KUPDATE_UTIL_DIAG_LOG_H_
