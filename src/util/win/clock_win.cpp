#include "util/clock.h"

#include "util/win/file_time.h"
#include "util/win/windows_lean.h"

std::uint64_t SecondsOf(const FILETIME& time) {
  constexpr std::uint64_t kTicksPerSecond = 10'000'000;
  constexpr std::uint64_t kSecondsFrom1601To1970 = 11'644'473'600;
  const std::uint64_t ticks = (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
  const std::uint64_t seconds = ticks / kTicksPerSecond;
  return seconds > kSecondsFrom1601To1970 ? seconds - kSecondsFrom1601To1970 : 0;
}

std::uint64_t NowSeconds() {
  FILETIME time;
  ::GetSystemTimeAsFileTime(&time);
  return SecondsOf(time);
}

std::uint64_t SteadyMilliseconds() { return ::GetTickCount64(); }

std::optional<LocalTime> LocalNow() {
  SYSTEMTIME now;
  ::GetLocalTime(&now);
  return LocalTime{now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond};
}

void SleepMilliseconds(unsigned milliseconds) { ::Sleep(milliseconds); }
