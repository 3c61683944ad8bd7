#include "util/clock.h"

#include <time.h>
#include <unistd.h>

std::uint64_t NowSeconds() { return static_cast<std::uint64_t>(time(nullptr)); }

std::optional<LocalTime> LocalNow() {
  const time_t now = time(nullptr);
  tm local;
  if (!localtime_r(&now, &local)) return {};
  return LocalTime{local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                   local.tm_hour,        local.tm_min,     local.tm_sec};
}

void SleepMilliseconds(unsigned milliseconds) { usleep(milliseconds * 1000); }
