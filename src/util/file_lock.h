// A lock that only programs of the user's own level can take or hold.
#ifndef KUPDATE_UTIL_FILE_LOCK_H_
#define KUPDATE_UTIL_FILE_LOCK_H_

#include <string>

#include "util/locker.h"

/// A file that is open in one process at a time. A process of low integrity can neither open it nor
/// keep others from opening it, which it can do with a named mutex. Released when its owner dies.
/// Does not nest. Used by one thread at a time.
class FileLock final : public TLocker {
 public:
  /// @param path              UTF-8, in a folder that exists; the file is made and stays behind
  /// @param waitMilliseconds  how long Lock() waits at most
  FileLock(std::string path, unsigned waitMilliseconds);
  ~FileLock() override;
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

  /// False, and a line in the log, after the wait, and at once when the file cannot be opened at
  /// all or is a link.
  bool Lock() override;
  void Unlock() override;

 private:
  /// Null when it cannot be opened; `isHeld` is set when that is because another has it.
  static void* OpenAlone(const std::string& path, bool* isHeld);
  static void Close(void* file);

  std::string path_;
  unsigned waitMilliseconds_;
  void* file_ = nullptr;  // null: not held
};

#endif  // KUPDATE_UTIL_FILE_LOCK_H_
