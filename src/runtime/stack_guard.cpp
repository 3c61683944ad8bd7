// The guard that functions with arrays on the stack check before they return. The compiler's own
// version asks a provider of cryptography for its random value, and so loads a DLL while the
// library is being loaded.
#include "util/win/windows_lean.h"

#include <cstdint>

// The compiler knows these three by name.
extern "C" {
extern std::uintptr_t __stack_chk_guard;
std::uintptr_t __stack_chk_guard = 0;
[[noreturn]] void __stack_chk_fail();
[[noreturn]] void __chk_fail();
}

namespace {

// Ends the process as a crash and runs no handler of the program: by now the attacker may control
// it.
[[noreturn]] void End() {
  ::RaiseFailFastException(nullptr, nullptr, FAIL_FAST_GENERATE_EXCEPTION_ADDRESS);
  __builtin_trap();
}

// The addresses of this module and of this thread's stack are random, and both clocks are fine
// enough to differ from start to start. A function that has begun with the old value must not check
// the new one, so this one has no guard.
[[gnu::constructor, gnu::no_stack_protector]] void ChooseGuard() {
  constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15;
  LARGE_INTEGER ticks = {};
  FILETIME time = {};
  ::QueryPerformanceCounter(&ticks);
  ::GetSystemTimeAsFileTime(&time);
  const std::uint64_t parts[] = {
      static_cast<std::uint64_t>(ticks.QuadPart),
      std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime,
      std::uint64_t{::GetCurrentProcessId()} << 32 | ::GetCurrentThreadId(),
      reinterpret_cast<std::uintptr_t>(&ticks), reinterpret_cast<std::uintptr_t>(&ChooseGuard)};
  std::uint64_t mixed = 0;
  for (const std::uint64_t part : parts) {
    mixed = (mixed ^ part) * kSpread;
    mixed ^= mixed >> 29;
  }
  __stack_chk_guard = static_cast<std::uintptr_t>(mixed);
}

}  // namespace

void __stack_chk_fail() { End(); }
void __chk_fail() { End(); }
