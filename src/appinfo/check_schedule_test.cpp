#include "appinfo/check_schedule.h"

#include <gtest/gtest.h>

#include "testing/table.h"

TEST(CheckSchedule, IsDueADayAfterTheLastCheckAndBehindTheNext) {
  constexpr std::uint64_t kNow = 1'700'000'000;
  constexpr std::uint64_t kDay = 86400;
  const Table<std::pair<std::uint64_t, std::uint64_t>, bool> table = {
      {"never checked", {0, 0}, true},
      {"checked a second less than a day ago", {kNow - kDay + 1, 0}, false},
      {"checked a day ago", {kNow - kDay, 0}, true},
      {"checked in the future", {kNow + 1, 0}, true},
      {"next is now", {0, kNow}, false},
      {"next was a second ago", {0, kNow - 1}, true},
      {"next is years ahead", {0, kNow + 1000 * kDay}, false},
  };
  table.Expect([](const auto& times) { return IsCheckDue({times.first, times.second}, kNow); });
  EXPECT_EQ(BoundedNextCheck(kNow + 151 * kDay - 1, kNow), kNow + 151 * kDay - 1);
  EXPECT_EQ(BoundedNextCheck(kNow + 151 * kDay, kNow), kNow + 150 * kDay);
  for (const std::uint64_t random : {0u, 3600u, 3601u}) {
    const std::uint64_t next = NextCheckAfter(kNow, random);
    EXPECT_EQ(next, kNow + kDay + random % 3601);
    EXPECT_FALSE(IsCheckDue({kNow, next}, next));
    EXPECT_TRUE(IsCheckDue({kNow, next}, next + 1)) << "the two rules agree";
    EXPECT_EQ(CheckDueTime({kNow, next}), next);
  }
}
