// Kernel objects: their owner, events, and waiting. An event wakes a waiting host.
#ifndef KUPDATE_UTIL_HANDLE_H_
#define KUPDATE_UTIL_HANDLE_H_

#include <cstdint>
#include <string>
#include <utility>

/// Owns one kernel object handle and closes it. Null means none; files have their own owner, since
/// for them "none" is another value. Move-only. Used by one thread at a time.
class UniqueHandle {
 public:
  UniqueHandle() = default;
  /// Takes over `handle`, which may be null.
  explicit UniqueHandle(void* handle) : handle_(handle) {}
  UniqueHandle(UniqueHandle&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  ~UniqueHandle();

  explicit operator bool() const { return handle_ != nullptr; }
  void* get() const { return handle_; }

 private:
  void* handle_ = nullptr;
};

constexpr std::uint32_t kWaitSignalled = 0;
constexpr std::uint32_t kWaitAbandoned = 0x80;
constexpr std::uint32_t kWaitTimeout = 0x102;
constexpr std::uint32_t kWaitFailed = 0xFFFFFFFF;
constexpr std::uint32_t kWaitForever = 0xFFFFFFFF;

namespace JustUtil {

/// Creates or opens an auto-reset event, initially not signalled, with default security. One made
/// by a process of another integrity level is opened with the rights to wait and to signal.
/// @param name  kernel object name, no namespace prefix.
/// @return the event, or an empty owner after an "E:" line with the system error.
UniqueHandle CreateEventW(const std::wstring& name);

/// Waits for `handle`, at most `milliseconds` (kWaitForever: no limit). Returns the system's
/// result: kWaitSignalled, kWaitAbandoned, kWaitTimeout or kWaitFailed.
std::uint32_t WaitFor(const UniqueHandle& handle, std::uint32_t milliseconds);

/// Waits until one of the two is signalled; the first wins when both are. Returns 0 or 1 for the
/// one that ended the wait, else kWaitTimeout or kWaitFailed.
std::uint32_t WaitForEither(const UniqueHandle& first, const UniqueHandle& second,
                            std::uint32_t milliseconds);

/// Signals `event`. Returns false when the system refuses.
bool Signal(const UniqueHandle& event);

}  // namespace JustUtil

#endif  // KUPDATE_UTIL_HANDLE_H_
