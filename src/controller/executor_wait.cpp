#include "controller/executor_wait.h"

#include "appinfo/local_record.h"
#include "layout/keys.h"
#include "update/upd_info.h"
#include "util/clock.h"
#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/process.h"

namespace {

// The event wakes one of the waiting hosts. The others look for their answer after this time.
constexpr std::uint32_t kLookAgain = 1000;
// How long an executor may keep house after its answer.
constexpr std::uint32_t kEndMilliseconds = 10'000;
// How long an answer may lag behind the end of its executor.
constexpr std::uint32_t kLateAnswer = 30'000;

// The rest of a wait of `milliseconds` that began at `begin`.
std::uint32_t LeftOf(std::uint32_t milliseconds, std::uint64_t begin) {
  const std::uint64_t waited = SteadyMilliseconds() - begin;
  return waited < milliseconds ? milliseconds - static_cast<std::uint32_t>(waited) : 0;
}

// The code in the store in LocalLow, where any process of the user can write.
std::optional<std::int32_t> StoredCode(const std::string& appId) {
  TUpdInfo update(appId);
  const StoreChanges one(update);
  if (!update.IsValueExist(key::kDistroExitCode)) return {};
  return static_cast<std::int32_t>(update.ReadNumber(key::kDistroExitCode));
}

// For an executor that ended with 0 before a signal came: each signal up to the limit may bring the
// code. A code that is there without one may be an old one.
std::optional<std::int32_t> LateCode(const std::string& appId, const UniqueHandle& event) {
  const std::uint64_t begin = SteadyMilliseconds();
  while (JustUtil::WaitFor(event, LeftOf(kLateAnswer, begin)) == kWaitSignalled) {
    if (const std::optional<std::int32_t> code = StoredCode(appId)) return code;
  }
  return {};
}

}  // namespace

CheckWait WaitForCheck(const std::string& appId, const std::string& job, const UniqueHandle& event,
                       std::int32_t milliseconds) {
  const std::uint64_t begin = SteadyMilliseconds();
  for (;;) {
    const std::uint32_t left =
        milliseconds < 0 ? kWaitForever : LeftOf(static_cast<std::uint32_t>(milliseconds), begin);
    const bool isLast = left <= kLookAgain;
    const std::uint32_t result = JustUtil::WaitFor(event, isLast ? left : kLookAgain);
    // Asked after each wait, however it ended: another host may have taken the signal.
    const std::optional<bool> found = ReadCheckAnswer(appId, job);
    if (found) return {kWaitSignalled, *found};
    if (result == kWaitSignalled) {
      LOG_D << "The signal of another check or installation: waiting on.";
    } else if (result != kWaitTimeout || isLast) {
      return {result, false};
    }
  }
}

InstallWait WaitForInstallation(const std::string& appId, const UniqueHandle& event,
                                const UniqueHandle& process) {
  const std::string run = RunIdOf(process);
  for (;;) {
    const std::uint32_t result = JustUtil::WaitForEither(event, process, kWaitForever);
    if (result > 1) return {result, {}, 0};
    if (result == 0) JustUtil::WaitFor(process, kEndMilliseconds);
    const std::optional<std::uint32_t> exitCode = ExitCodeOf(process);
    if (const auto code = ReadInstallAnswer(appId, run)) return {result, code, 0};
    // It still runs and has not answered: the signal was for a check, which uses the same event.
    if (!exitCode) continue;
    if (*exitCode != 0) return {result, {}, *exitCode};
    if (result == 1) return {result, LateCode(appId, event), 0};
    return {result, StoredCode(appId).value_or(0), 0};
  }
}
