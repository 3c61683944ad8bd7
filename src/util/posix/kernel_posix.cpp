// Locks, the clock and the last error on other systems, for tests and fuzzing.
#include <fcntl.h>
#include <sys/file.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <utility>

#include "util/clock.h"
#include "util/critical_section.h"
#include "util/diag_log.h"
#include "util/handle.h"
#include "util/last_error.h"
#include "util/log_line.h"
#include "util/mutex.h"
#include "util/posix/file_step.h"
#include "util/text.h"

namespace {

int Descriptor(void* handle) {
  return static_cast<int>(reinterpret_cast<std::intptr_t>(handle)) - 1;
}

}  // namespace

std::uint32_t LastErrorCode() { return static_cast<std::uint32_t>(errno); }
void SetLastErrorCode(std::uint32_t code) { errno = static_cast<int>(code); }

// A handle is a file descriptor plus one, so that null means none here too.
UniqueHandle::~UniqueHandle() {
  if (handle_) close(Descriptor(handle_));
}

CriticalSection::CriticalSection() : impl_(new std::recursive_mutex) {}
CriticalSection::~CriticalSection() { delete static_cast<std::recursive_mutex*>(impl_); }
void CriticalSection::lock() { static_cast<std::recursive_mutex*>(impl_)->lock(); }
void CriticalSection::unlock() { static_cast<std::recursive_mutex*>(impl_)->unlock(); }

std::uint64_t NowSeconds() { return static_cast<std::uint64_t>(time(nullptr)); }

std::uint64_t SteadyMilliseconds() {
  timespec time = {};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<std::uint64_t>(time.tv_sec) * 1000 +
         static_cast<std::uint64_t>(time.tv_nsec) / 1'000'000;
}

std::optional<LocalTime> LocalNow() {
  const time_t now = time(nullptr);
  tm local;
  if (!localtime_r(&now, &local)) return {};
  return LocalTime{local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                   local.tm_hour,        local.tm_min,     local.tm_sec};
}

void SleepMilliseconds(unsigned milliseconds) { usleep(milliseconds * 1000); }

// A lock file: like a mutex it is shared by processes and freed when its owner dies.
Mutex::Mutex(std::wstring name) : name_(std::move(name)) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes it while threads run
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
