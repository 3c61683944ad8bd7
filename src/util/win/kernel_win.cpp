// Locks, events, the clock and the last error on Windows.
#include <cstdlib>
#include <utility>

#include "util/clock.h"
#include "util/critical_section.h"
#include "util/diag_log.h"
#include "util/event.h"
#include "util/handle.h"
#include "util/last_error.h"
#include "util/log_line.h"
#include "util/mutex.h"
#include "util/win/file_time.h"
#include "util/win/windows_lean.h"

// Stands in for the C++ runtime's own, which prints a readable type name to a terminal that hosts
// do not have, and brings a demangler of 45 KB for it.
namespace __gnu_cxx {
void __verbose_terminate_handler() { std::abort(); }
}  // namespace __gnu_cxx

std::uint32_t LastErrorCode() { return ::GetLastError(); }
void SetLastErrorCode(std::uint32_t code) { ::SetLastError(code); }

UniqueHandle::~UniqueHandle() {
  if (handle_) ::CloseHandle(handle_);
}

CriticalSection::CriticalSection() : impl_(new CRITICAL_SECTION) {
  ::InitializeCriticalSection(static_cast<CRITICAL_SECTION*>(impl_));
}

CriticalSection::~CriticalSection() {
  ::DeleteCriticalSection(static_cast<CRITICAL_SECTION*>(impl_));
  delete static_cast<CRITICAL_SECTION*>(impl_);
}

void CriticalSection::lock() { ::EnterCriticalSection(static_cast<CRITICAL_SECTION*>(impl_)); }
void CriticalSection::unlock() { ::LeaveCriticalSection(static_cast<CRITICAL_SECTION*>(impl_)); }

std::uint64_t SecondsOf(const FILETIME& time) {
  constexpr std::uint64_t kTicksPerSecond = 10'000'000;
  constexpr std::uint64_t kSecondsFrom1601To1970 = 11'644'473'600;
  const std::uint64_t ticks = (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
  const std::uint64_t seconds = ticks / kTicksPerSecond;
  return seconds > kSecondsFrom1601To1970 ? seconds - kSecondsFrom1601To1970 : 0;
}

std::uint64_t NowSeconds() {
  FILETIME time;
  ::GetSystemTimeAsFileTime(&time);
  return SecondsOf(time);
}

std::uint64_t SteadyMilliseconds() { return ::GetTickCount64(); }

std::optional<LocalTime> LocalNow() {
  SYSTEMTIME now;
  ::GetLocalTime(&now);
  return LocalTime{now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond};
}

void SleepMilliseconds(unsigned milliseconds) { ::Sleep(milliseconds); }

Mutex::Mutex(std::wstring name) : name_(std::move(name)) {
  HANDLE handle = ::CreateMutexW(nullptr, FALSE, name_.c_str());
  // A process of a higher integrity level made it: what is asked for here must be no more than to
  // wait.
  if (!handle && ::GetLastError() == ERROR_ACCESS_DENIED) {
    handle = ::OpenMutexW(SYNCHRONIZE, FALSE, name_.c_str());
  }
  handle_ = UniqueHandle(handle);
  if (!handle_) LOG_E << "Can't create.";
}

Mutex::~Mutex() { Mutex::Unlock(); }

bool Mutex::Lock() {
  if (!handle_) {
    LOG_E << "Handle == NULL!!!";
    return false;
  }
  const DWORD result = ::WaitForSingleObject(handle_.get(), INFINITE);
  locked_ = result == WAIT_OBJECT_0 || result == WAIT_ABANDONED;
  if (!locked_) LOG_E << kLastError << name_ << "Lock error.";
  return locked_;
}

void Mutex::Unlock() {
  if (!locked_ || !handle_) return;
  if (::ReleaseMutex(handle_.get())) {
    locked_ = false;
  } else {
    LOG_E << kLastError << "in ReleaseMutex(" << name_ << ")";
  }
}

namespace JustUtil {

UniqueHandle CreateEventW(const std::wstring& name) {
  HANDLE handle = ::CreateEventW(nullptr, FALSE, FALSE, name.c_str());
  if (!handle && ::GetLastError() == ERROR_ACCESS_DENIED) {
    handle = ::OpenEventW(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, name.c_str());
  }
  if (!handle) LOG_E << "Can't create event." << kLastError;
  return UniqueHandle(handle);
}

std::uint32_t WaitFor(const UniqueHandle& handle, std::uint32_t milliseconds) {
  return ::WaitForSingleObject(handle.get(), milliseconds);
}

std::uint32_t WaitForEither(const UniqueHandle& first, const UniqueHandle& second,
                            std::uint32_t milliseconds) {
  const HANDLE handles[] = {first.get(), second.get()};
  return ::WaitForMultipleObjects(2, handles, FALSE, milliseconds);
}

bool Signal(const UniqueHandle& event) { return ::SetEvent(event.get()) != FALSE; }

}  // namespace JustUtil
