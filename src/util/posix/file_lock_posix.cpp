#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "util/file_lock.h"
#include "util/posix/file_step.h"

// A descriptor plus one, so that null means none.
void* FileLock::OpenAlone(const std::string& path, bool* isHeld) {
  std::string native = path;
  std::replace(native.begin(), native.end(), '\\', '/');
  if (!MayDo("open", native)) return nullptr;
  const int file = open(native.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (file < 0) return nullptr;
  void* const owned = reinterpret_cast<void*>(static_cast<std::intptr_t>(file) + 1);
  // The system frees the lock when the process dies, as Windows does with a file that is open
  // alone.
  if (flock(file, LOCK_EX | LOCK_NB) == 0) return owned;
  *isHeld = errno == EWOULDBLOCK;
  Close(owned);
  return nullptr;
}

void FileLock::Close(void* file) {
  close(static_cast<int>(reinterpret_cast<std::intptr_t>(file)) - 1);
}
