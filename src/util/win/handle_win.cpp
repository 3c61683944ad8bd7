#include "util/handle.h"

#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/win/windows_lean.h"

UniqueHandle::~UniqueHandle() {
  if (handle_) ::CloseHandle(handle_);
}

namespace JustUtil {

UniqueHandle CreateEventW(const std::wstring& name) {
  // Auto-reset: a signal that comes before the wait stays until one host takes it.
  HANDLE handle = ::CreateEventW(nullptr, FALSE, FALSE, name.c_str());
  if (!handle && ::GetLastError() == ERROR_ACCESS_DENIED) {
    // A process of another integrity level made it; creating asks for more rights than it gives.
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
