// Times as the system stores them.
#ifndef KUPDATE_UTIL_WIN_FILE_TIME_H_
#define KUPDATE_UTIL_WIN_FILE_TIME_H_

#include <cstdint>

#include "util/win/windows_lean.h"

/// Whole seconds since 1970-01-01 UTC; 0 for anything before.
std::uint64_t SecondsOf(const FILETIME& time);

#endif  // KUPDATE_UTIL_WIN_FILE_TIME_H_
