// When an application's next check for updates is due: the one rule for hosts, the executor and its
// status. Times are whole seconds since 1970-01-01 UTC. Nothing here reads a clock or a file.
#ifndef KUPDATE_APPINFO_CHECK_SCHEDULE_H_
#define KUPDATE_APPINFO_CHECK_SCHEDULE_H_

#include <cstdint>

/// How long a check keeps the next one back.
inline constexpr std::uint64_t kSecondsBetweenChecks = 86400;
/// Clients that were installed together must not come together each time: up to so much is added.
inline constexpr std::uint64_t kMaxSpreadSeconds = 3600;

/// The times in the record; 0 for one that it lacks.
struct CheckTimes {
  std::uint64_t last = 0;  ///< of the last check
  std::uint64_t next = 0;  ///< no check before this
};

/// Whole hours since the last check. One in the future (the clock was set back) gives a huge
/// number, so that it does not hold checks back.
std::uint64_t HoursSinceCheck(const CheckTimes& times, std::uint64_t now);

/// Whether the last check still holds the next one back, whatever `next` says.
bool IsCheckRecent(const CheckTimes& times, std::uint64_t now);

/// The next check's time, at most 150 days from now: what lies more than 150 whole days ahead was
/// written by a clock that was wrong.
std::uint64_t BoundedNextCheck(std::uint64_t next, std::uint64_t now);

/// Whether a check is due.
bool IsCheckDue(const CheckTimes& times, std::uint64_t now);

/// From when on a check is due, as far as the record says; 0 when it is due at once.
std::uint64_t CheckDueTime(const CheckTimes& times);

/// The time for `next` after a check that was answered.
/// @param random  any number; it spreads the clients
std::uint64_t NextCheckAfter(std::uint64_t now, std::uint64_t random);

#endif  // KUPDATE_APPINFO_CHECK_SCHEDULE_H_
