#include "appinfo/check_schedule.h"

#include <algorithm>

namespace {

constexpr std::uint64_t kSecondsPerHour = 3600;
constexpr std::uint64_t kSecondsPerDay = 24 * kSecondsPerHour;
constexpr std::uint64_t kMaxDaysAhead = 150;

}  // namespace

std::uint64_t HoursSinceCheck(const CheckTimes& times, std::uint64_t now) {
  // Wraps for a last check in the future, on purpose: see the header.
  return (now - times.last) / kSecondsPerHour;
}

bool IsCheckRecent(const CheckTimes& times, std::uint64_t now) {
  return HoursSinceCheck(times, now) < kSecondsBetweenChecks / kSecondsPerHour;
}

std::uint64_t BoundedNextCheck(std::uint64_t next, std::uint64_t now) {
  const bool isTooFar = next > now && (next - now) / kSecondsPerDay > kMaxDaysAhead;
  return isTooFar ? now + kMaxDaysAhead * kSecondsPerDay : next;
}

bool IsCheckDue(const CheckTimes& times, std::uint64_t now) {
  return !IsCheckRecent(times, now) && BoundedNextCheck(times.next, now) < now;
}

std::uint64_t CheckDueTime(const CheckTimes& times) {
  return std::max(times.last == 0 ? 0 : times.last + kSecondsBetweenChecks, times.next);
}

std::uint64_t NextCheckAfter(std::uint64_t now, std::uint64_t random) {
  // The bias of the remainder does not matter for spreading clients.
  return now + kSecondsBetweenChecks + random % (kMaxSpreadSeconds + 1);
}
