// The caller's buffer into which a getter copies text.
#ifndef KUPDATE_CONTROLLER_COPY_OUT_H_
#define KUPDATE_CONTROLLER_COPY_OUT_H_

#include <cstdint>
#include <string_view>

/// `size` counts characters of type Char, the ending zero included; null: the caller wants nothing.
template <class Char>
struct CopyOutBuffer {
  Char* buffer;
  std::int32_t* size;

  /// Before the value is looked up: an old content of the buffer must not pass for it.
  void Clear() const {
    if (size && *size > 0 && buffer) buffer[0] = 0;
  }

  /// Copies value and zero where they fit and leaves the size; else the size becomes what is
  /// needed.
  void Deliver(std::basic_string_view<Char> value) const {
    if (!size) return;
    const auto needed = static_cast<std::int64_t>(value.size()) + 1;
    if (!buffer || *size < needed) {
      *size = static_cast<std::int32_t>(needed);
      return;
    }
    value.copy(buffer, value.size());
    buffer[value.size()] = 0;
  }
};

#endif  // KUPDATE_CONTROLLER_COPY_OUT_H_
