#include "util/mutex.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <utility>

#include "util/diag_log.h"
#include "util/handle.h"
#include "util/log_line.h"
#include "util/posix/file_step.h"
#include "util/text.h"

namespace {

int Descriptor(void* handle) {
  return static_cast<int>(reinterpret_cast<std::intptr_t>(handle)) - 1;
}

}  // namespace

// A handle is a file descriptor plus one, so that null means none here too.
UniqueHandle::~UniqueHandle() {
  if (handle_) close(Descriptor(handle_));
}

// A lock file. Like a mutex of Windows it is shared by processes and is free when its owner has
// died.
Mutex::Mutex(std::wstring name) : name_(std::move(name)) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the environment stays while threads run
  const char* const home = std::getenv("KUPDATE_HOME");
  const std::string path = std::string(home ? home : "/tmp") + "/" + NarrowUtf8(name_) + ".lock";
  const int descriptor =
      MayDo("open", path) ? open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600) : -1;
  handle_ = UniqueHandle(reinterpret_cast<void*>(static_cast<std::intptr_t>(descriptor) + 1));
  if (!handle_) LOG_E << "Can't create.";
}

Mutex::~Mutex() { Mutex::Unlock(); }

bool Mutex::Lock() {
  if (!handle_) {
    LOG_E << "Handle == NULL!!!";
    return false;
  }
  locked_ = flock(Descriptor(handle_.get()), LOCK_EX) == 0;
  if (!locked_) LOG_E << kLastError << name_ << "Lock error.";
  return locked_;
}

void Mutex::Unlock() {
  if (!locked_) return;
  flock(Descriptor(handle_.get()), LOCK_UN);
  locked_ = false;
}

CriticalSection::CriticalSection() : impl_(new std::recursive_mutex) {}
CriticalSection::~CriticalSection() { delete static_cast<std::recursive_mutex*>(impl_); }
void CriticalSection::lock() { static_cast<std::recursive_mutex*>(impl_)->lock(); }
void CriticalSection::unlock() { static_cast<std::recursive_mutex*>(impl_)->unlock(); }
