// The owner of a kernel object: mutex, event, process.
#ifndef KUPDATE_UTIL_HANDLE_H_
#define KUPDATE_UTIL_HANDLE_H_

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

#endif  // KUPDATE_UTIL_HANDLE_H_
