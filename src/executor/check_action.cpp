#include "executor/check_action.h"

#include <exception>
#include <functional>

#include "executor/app_files.h"
#include "executor/executor_command.h"
#include "executor/executor_names.h"
#include "executor/result_signal.h"
#include "transfer/com_apartment.h"
#include "transfer/job_end.h"
#include "update/feed_file.h"
#include "update/upd_info.h"
#include "util/clock.h"
#include "util/diag_log.h"
#include "util/files.h"
#include "util/guid.h"
#include "util/log_line.h"
#include "util/mutex.h"
#include "util/text.h"

namespace {

constexpr std::uint64_t kSecondsBetweenChecks = 86400;
// Clients that were installed together must not come together for ever.
constexpr std::uint64_t kMaxSpreadSeconds = 3600;

constexpr char kUpgradeAvailable[] = "UpgradeAvailable";

enum class Outcome { kFound, kNone, kFailed };

// A new GUID is random enough, and at hand.
std::uint64_t SpreadSeconds() {
  return std::hash<std::string>()(NewGuidText()) % (kMaxSpreadSeconds + 1);
}

Outcome JudgeFeed(TAppInfo2& app, const std::string& file, std::uint64_t now) {
  try {
    return TUpdInfo(app.AppId()).Evaluate(app, LoadFeed(file), now) ? Outcome::kFound
                                                                    : Outcome::kNone;
  } catch (const std::exception& error) {
    LOG_E << "The check failed: " << error.what();
  } catch (const char* complaint) {  // of a bad version mask
    LOG_E << "The check failed: " << complaint;
  }
  return Outcome::kFailed;
}

void DropDialog(TAppInfo2& app, Outcome outcome) {
  if (!app.ReadFlag("NeedDialogArterCheck")) return;
  const char* const news = outcome == Outcome::kFound  ? "an update is available"
                           : outcome == Outcome::kNone ? "there is no update"
                                                       : "the check failed";
  LOG_I << "Not shown, though a dialog was asked for: " << news;
  app.SetNeedDialogArterCheck(false);
}

void WriteOutcome(TAppInfo2& app, Outcome outcome, std::uint64_t now) {
  app.WriteFlag(kUpgradeAvailable, outcome == Outcome::kFound);
  if (outcome != Outcome::kFailed) {
    app.WriteNumber("NextCheckTime",
                    static_cast<std::int64_t>(now + kSecondsBetweenChecks + SpreadSeconds()));
  }
  DropDialog(app, outcome);
}

// A job that is gone, and its file too: another executor has answered, or someone cancelled it. The
// answer that is written stays.
void KeepOutcome(TAppInfo2& app) {
  LOG_I << "The job is gone.";
  if (!app.IsValueExist(kUpgradeAvailable)) app.WriteFlag(kUpgradeAvailable, false);
}

void Answer(const ExecutorCommand& command, const EndedJob& job) {
  const std::string file = NarrowUtf8(command.file);
  // A record must not come to life again by a late answer.
  if (!IsRegistered(command.appId)) {
    LOG_I << "Not registered any more:" << command.appId;
    return FileSystem::DeleteFile(file);
  }
  TAppInfo2 app(command.appId);
  const std::uint64_t now = NowSeconds();
  if (job.end == JobEnd::kCancelled) {
    LOG_E << "The check failed: the feed was not downloaded.";
    WriteOutcome(app, Outcome::kFailed, now);
  } else if (job.end == JobEnd::kGone && !FileSystem::IsFileExist(file)) {
    KeepOutcome(app);
  } else {
    // Completed here, or by an executor that did not live to judge it.
    WriteOutcome(app, JudgeFeed(app, file, now), now);
  }
  // The feed goes last: whoever comes after a kill finds it and judges it again.
  FileSystem::DeleteFile(file);
}

}  // namespace

int RunCheckAction(const ExecutorCommand& command) {
  Mutex lock(CheckMutexName(command.appId));
  const LockScope scope(&lock);
  const ComApartment apartment;
  const EndedJob job = EndJob(command.jobId);
  if (job.end == JobEnd::kAlive) {
    LOG_E << "The job cannot be ended:" << command.jobId;
    return 1;
  }
  try {
    Answer(command, job);
  } catch (...) {
    LOG_E << "The check failed.";
  }
  SignalResult(command.appId);
  return 0;
}
