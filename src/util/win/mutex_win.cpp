#include "util/mutex.h"

#include <utility>

#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/win/windows_lean.h"

Mutex::Mutex(std::wstring name) : name_(std::move(name)) {
  HANDLE handle = ::CreateMutexW(nullptr, FALSE, name_.c_str());
  // A process of a higher integrity level made it, and gives no more than the right to wait.
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
  // The owner of an abandoned mutex died. Its file is whole, since files are replaced in one step.
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

CriticalSection::CriticalSection() : impl_(new CRITICAL_SECTION) {
  ::InitializeCriticalSection(static_cast<CRITICAL_SECTION*>(impl_));
}

CriticalSection::~CriticalSection() {
  ::DeleteCriticalSection(static_cast<CRITICAL_SECTION*>(impl_));
  delete static_cast<CRITICAL_SECTION*>(impl_);
}

void CriticalSection::lock() { ::EnterCriticalSection(static_cast<CRITICAL_SECTION*>(impl_)); }
void CriticalSection::unlock() { ::LeaveCriticalSection(static_cast<CRITICAL_SECTION*>(impl_)); }
