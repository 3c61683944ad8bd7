#include "controller/executor_wait.h"

#include <algorithm>
#include <chrono>

#include "appinfo/local_record.h"
#include "update/upd_info.h"
#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/process.h"

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

// The event wakes one waiting host only; a host that was not woken looks after this time.
constexpr Milliseconds kLookAgain(1000);
// How long an executor may keep house after its answer.
constexpr std::uint32_t kEndMilliseconds = 10'000;
// How long an answer may lag behind the end of its executor.
constexpr Milliseconds kLateAnswer(30'000);

std::uint32_t Count(Clock::duration time) {
  return static_cast<std::uint32_t>(
      std::max<std::int64_t>(std::chrono::duration_cast<Milliseconds>(time).count(), 0));
}

constexpr char kExitCode[] = "DistroExitCode";

// What the store in LocalLow says, where any process of the user can write.
std::optional<std::int32_t> StoredCode(const std::string& appId) {
  TUpdInfo update(appId);
  const StoreChanges one(update);
  if (!update.IsValueExist(kExitCode)) return {};
  return static_cast<std::int32_t>(update.ReadNumber(kExitCode));
}

// The executor has ended well, before a signal came.
std::optional<std::int32_t> LateCode(const std::string& appId, const UniqueHandle& event) {
  const auto end = Clock::now() + kLateAnswer;
  while (JustUtil::WaitFor(event, Count(end - Clock::now())) == kWaitSignalled) {
    if (const std::optional<std::int32_t> code = StoredCode(appId)) return code;
  }
  return {};
}

}  // namespace

CheckWait WaitForCheck(const std::string& appId, const std::string& job, const UniqueHandle& event,
                       std::int32_t milliseconds) {
  const auto begin = Clock::now();
  for (;;) {
    const Clock::duration left = begin + Milliseconds(milliseconds) - Clock::now();
    const bool isLast = milliseconds >= 0 && left <= kLookAgain;
    const std::uint32_t result =
        JustUtil::WaitFor(event, Count(isLast ? left : Clock::duration(kLookAgain)));
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
    if (!exitCode) continue;
    if (*exitCode != 0) return {result, {}, *exitCode};
    if (result == 1) return {result, LateCode(appId, event), 0};
    return {result, StoredCode(appId).value_or(0), 0};
  }
}
