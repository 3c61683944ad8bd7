// Patience with programs that hold a file for a moment: a scanner, an editor.
#ifndef KUPDATE_UTIL_WIN_WHILE_HELD_H_
#define KUPDATE_UTIL_WIN_WHILE_HELD_H_

#include <string>

#include "util/clock.h"
#include "util/win/windows_lean.h"

/// The use that a caller wants of a file.
enum class Use { kRead, kChange };

/// Whether a file that refuses with `error` may do so only because a program has it open.
bool MayBeHeld(const std::wstring& path, Use use, DWORD error);

/// Calls `tryOnce` until it returns true, or fails for another reason than that the file is held,
/// or 100 ms have passed. Leaves the last error of the last try.
template <class Try>
bool TryWhileHeld(const std::wstring& path, Use use, Try tryOnce) {
  constexpr unsigned kTries = 10;
  constexpr unsigned kPauseMilliseconds = 10;
  for (unsigned tries = 0; !tryOnce(); ++tries) {
    const DWORD error = ::GetLastError();
    if (tries == kTries || !MayBeHeld(path, use, error)) {
      ::SetLastError(error);
      return false;
    }
    SleepMilliseconds(kPauseMilliseconds);
  }
  return true;
}

#endif  // KUPDATE_UTIL_WIN_WHILE_HELD_H_
