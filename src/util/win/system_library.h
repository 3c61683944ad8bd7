// Functions of the system's DLLs that are looked up when they are first called.
#ifndef KUPDATE_UTIL_WIN_SYSTEM_LIBRARY_H_
#define KUPDATE_UTIL_WIN_SYSTEM_LIBRARY_H_

#include <atomic>
#include <utility>

#include "util/win/unique.h"

/// Loads a DLL of the system by its full path in the system's folder. A DLL of that name
/// beside the program or in the current folder is never loaded instead, and neither is one for its
/// imports. Empty on failure.
UniqueModule LoadSystemLibrary(const wchar_t* name);

/// The part of SystemFunction that knows no type.
class SystemFunctionAddress {
 public:
  constexpr SystemFunctionAddress(const wchar_t* dll, const char* name) : dll_(dll), name_(name) {}

  /// Null, and a line in the log, when the DLL or the function is missing.
  void* Find();
  /// Throws std::runtime_error instead.
  void* Get();

 private:
  const wchar_t* dll_;
  const char* name_;
  std::atomic<void*> address_ = nullptr;
};

/// A function of a DLL that every Windows has. Programs that never call it do not pay for loading
/// the DLL, and no import table names it. The DLL stays loaded for the life of the process.
/// Used by any thread.
template <class Function>
class SystemFunction {
 public:
  /// @param dll   file name; a literal, as the next
  /// @param name  as the DLL exports it
  constexpr SystemFunction(const wchar_t* dll, const char* name) : address_(dll, name) {}

  /// For callers that may not throw: null, and a line in the log, when it is missing.
  Function Find() { return reinterpret_cast<Function>(address_.Find()); }

  /// Calls it. Throws std::runtime_error when it is missing.
  template <class... Arguments>
  auto operator()(Arguments&&... arguments) {
    return reinterpret_cast<Function>(address_.Get())(std::forward<Arguments>(arguments)...);
  }

 private:
  SystemFunctionAddress address_;
};

/// Declares a function under its own name, within a namespace of the caller's:
///
///   namespace com {
///   SYSTEM_FUNCTION("ole32.dll", CoCreateGuid);
///   }
///   hrcheck() = com::CoCreateGuid(&guid);
#define SYSTEM_FUNCTION(dll, name) \
  inline constinit SystemFunction<decltype(&::name)> name(L##dll, #name)

#endif  // KUPDATE_UTIL_WIN_SYSTEM_LIBRARY_H_
