#include "util/file_lock.h"

#include <utility>

#include "util/clock.h"
#include "util/diag_log.h"
#include "util/log_line.h"

FileLock::FileLock(std::string path, unsigned waitMilliseconds)
    : path_(std::move(path)), waitMilliseconds_(waitMilliseconds) {}

FileLock::~FileLock() { FileLock::Unlock(); }

bool FileLock::Lock() {
  // Nothing announces that a file becomes free, so this tries again and again.
  constexpr unsigned kPauseMilliseconds = 20;
  for (unsigned waited = 0;; waited += kPauseMilliseconds) {
    bool isHeld = false;
    file_ = OpenAlone(path_, &isHeld);
    if (file_) return true;
    if (!isHeld) {
      LOG_E << "Can't open lock file: " << path_ << kLastError;
      return false;
    }
    if (waited >= waitMilliseconds_) {
      LOG_E << "Lock file is held by another: " << path_;
      return false;
    }
    SleepMilliseconds(kPauseMilliseconds);
  }
}

void FileLock::Unlock() {
  if (file_) Close(std::exchange(file_, nullptr));
}
