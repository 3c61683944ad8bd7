// The calling thread's last system error: GetLastError on Windows, errno natively.
#ifndef KUPDATE_UTIL_LAST_ERROR_H_
#define KUPDATE_UTIL_LAST_ERROR_H_

#include <cstdint>

std::uint32_t LastErrorCode();
void SetLastErrorCode(std::uint32_t code);

/// Keeps the thread's last error over a scope, whatever the scope's own calls do to it.
class LastErrorKeeper {
 public:
  LastErrorKeeper() : code_(LastErrorCode()) {}
  ~LastErrorKeeper() { SetLastErrorCode(code_); }
  LastErrorKeeper(const LastErrorKeeper&) = delete;
  LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

 private:
  std::uint32_t code_;
};

#endif  // KUPDATE_UTIL_LAST_ERROR_H_
