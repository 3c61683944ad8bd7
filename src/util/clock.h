// The time of day, the one place that reads it.
#ifndef KUPDATE_UTIL_CLOCK_H_
#define KUPDATE_UTIL_CLOCK_H_

#include <cstdint>
#include <optional>

/// Whole seconds since 1970-01-01 UTC. Callers read it once per operation and pass it on.
std::uint64_t NowSeconds();

/// Milliseconds since some moment before the process began; no change of the clock moves it.
/// Windows only.
std::uint64_t SteadyMilliseconds();

/// A local time, or a date and time of a file converted to local time.
struct LocalTime {
  int year;
  int month;  // 1 to 12
  int day;    // 1 to 31
  int hour;
  int minute;
  int second;
};

/// The local time now; nothing when the system cannot give it.
std::optional<LocalTime> LocalNow();

/// Lets the calling thread rest for `milliseconds`.
void SleepMilliseconds(unsigned milliseconds);

constexpr std::uint64_t kSecondsPerDay = 86400;

/// Whether `then` lies more than `limit` before `now`. As far in the future counts too: it was
/// written before the clock was set back, at an unknown time, and would never grow old otherwise.
constexpr bool IsOlderThan(std::uint64_t then, std::uint64_t now, std::uint64_t limit) {
  return (now > then ? now - then : then - now) > limit;
}

#endif  // KUPDATE_UTIL_CLOCK_H_
