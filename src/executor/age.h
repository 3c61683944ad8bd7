// How old something is, on a clock that people set back.
#ifndef KUPDATE_EXECUTOR_AGE_H_
#define KUPDATE_EXECUTOR_AGE_H_

#include <cstdint>

constexpr std::uint64_t kSecondsPerDay = 86400;

/// Whether `then` lies more than `limit` before `now`. As far in the future counts too: it was
/// written before the clock was set back, nobody knows when, and would else never grow old.
constexpr bool IsOlderThan(std::uint64_t then, std::uint64_t now, std::uint64_t limit) {
  return (now > then ? now - then : then - now) > limit;
}

#endif  // KUPDATE_EXECUTOR_AGE_H_
