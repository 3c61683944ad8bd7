// Owners of Windows resources other than kernel objects (those have UniqueHandle).
#ifndef KUPDATE_UTIL_WIN_UNIQUE_H_
#define KUPDATE_UTIL_WIN_UNIQUE_H_

#include <utility>

#include "util/win/windows_lean.h"

/// Owns one resource. Traits: Type, None() and Close(Type). Move-only.
template <class Traits>
class Unique {
 public:
  using Type = typename Traits::Type;

  Unique() = default;
  explicit Unique(Type value) : value_(value) {}
  Unique(Unique&& other) noexcept : value_(other.release()) {}
  Unique& operator=(Unique&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  ~Unique() { reset(); }

  explicit operator bool() const { return value_ != Traits::None(); }
  Type get() const { return value_; }
  /// For out-parameters; the owned resource is closed first.
  Type* put() {
    reset();
    return &value_;
  }
  Type release() { return std::exchange(value_, Traits::None()); }
  void reset(Type value = Traits::None()) {
    if (value_ != Traits::None()) Traits::Close(value_);
    value_ = value;
  }

 private:
  Type value_ = Traits::None();
};

struct FileTraits {
  using Type = HANDLE;
  static Type None() { return INVALID_HANDLE_VALUE; }
  static void Close(Type file) { ::CloseHandle(file); }
};
struct FindTraits {
  using Type = HANDLE;
  static Type None() { return INVALID_HANDLE_VALUE; }
  static void Close(Type find) { ::FindClose(find); }
};
struct KeyTraits {
  using Type = HKEY;
  static Type None() { return nullptr; }
  static void Close(Type key) { ::RegCloseKey(key); }
};
struct ModuleTraits {
  using Type = HMODULE;
  static Type None() { return nullptr; }
  static void Close(Type module) { ::FreeLibrary(module); }
};

using UniqueFile = Unique<FileTraits>;
using UniqueFind = Unique<FindTraits>;
using UniqueKey = Unique<KeyTraits>;
using UniqueModule = Unique<ModuleTraits>;

#endif  // KUPDATE_UTIL_WIN_UNIQUE_H_
