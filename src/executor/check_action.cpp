#include "executor/check_action.h"

#include <exception>
#include <functional>
#include <optional>

#include "appinfo/check_schedule.h"
#include "appinfo/local_record.h"
#include "executor/rendezvous.h"
#include "executor/run.h"
#include "layout/command_line.h"
#include "layout/keys.h"
#include "transfer/transfer.h"
#include "update/feed_file.h"
#include "update/upd_info.h"
#include "util/clock.h"
#include "util/diag_log.h"
#include "util/files.h"
#include "util/log_line.h"
#include "util/system.h"
#include "util/text.h"

namespace {

enum class Outcome { kFound, kNone, kFailed };

// A new GUID is random enough, and at hand.
std::uint64_t RandomNumber() { return std::hash<std::string>()(NewGuidText()); }

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
  if (!app.ReadFlag(key::kNeedDialog)) return;
  const char* const news = outcome == Outcome::kFound  ? "an update is available"
                           : outcome == Outcome::kNone ? "there is no update"
                                                       : "the check failed";
  LOG_I << "Not shown, though a dialog was asked for: " << news;
  // The answer to one request. The flag must not stay for later checks, which no user asked for.
  app.SetNeedDialogArterCheck(false);
}

void WriteOutcome(TAppInfo2& app, const std::string& jobId, Outcome outcome, std::uint64_t now) {
  app.WriteFlag(key::kUpgradeAvailable, outcome == Outcome::kFound);
  if (outcome != Outcome::kFailed) {
    app.WriteNumber(key::kNextCheckTime,
                    static_cast<std::int64_t>(NextCheckAfter(now, RandomNumber())));
  }
  DropDialog(app, outcome);
  app.SaveChanges();
  // Last: from here on a waiting host takes the answer for its own.
  WriteAnswer(app.AppId(), CheckAnswer{jobId, outcome == Outcome::kFound});
}

// The feed is compared with the data that the application itself gave. A process without rights may
// have changed the store since.
void RestoreRecord(TAppInfo2& app) {
  const std::optional<LocalRecord> record = ReadLocalRecord(app.AppId());
  if (!record) return;
  const auto part = [&](int shift) { return static_cast<std::uint16_t>(record->version >> shift); };
  app.SetVersion(part(48), part(32), part(16), part(0));
  app.Write(key::kPlatform, record->platform);
  app.RestoreChosenChannel();
}

void Answer(const ExecutorCommand& command, const EndedJob& job) {
  const std::string file = NarrowUtf8(command.file);
  TAppInfo2 app(command.appId);
  const StoreChanges one(app);
  const std::uint64_t now = NowSeconds();
  if (job.end == JobEnd::kCancelled) {
    LOG_E << "The check failed: the feed was not downloaded.";
    WriteOutcome(app, command.jobId, Outcome::kFailed, now);
  } else if (FileSystem::IsNameFree(file)) {
    // Another executor has judged the feed, or a newer check has taken it away. The answer that is
    // there stays.
    LOG_I << (job.end == JobEnd::kGone ? "The job is gone."
                                       : "A newer check has taken the feed away.");
  } else {
    // Completed here, or by an executor that died before it judged the feed.
    RestoreRecord(app);
    WriteOutcome(app, command.jobId, JudgeFeed(app, file, now), now);
  }
  // The feed goes last: the executor that comes after a kill finds it and judges it again.
  FileSystem::DeleteFile(file);
}

// A late answer must not make a removed record again.
int EndForgottenCheck(const ExecutorCommand& command) {
  LOG_I << "Not registered any more:" << command.appId;
  if (EndJob(command.jobId).end == JobEnd::kAlive) return kExitJobAlive;
  FileSystem::DeleteFile(NarrowUtf8(command.file));
  return kExitDone;
}

}  // namespace

int RunCheckAction(const ExecutorCommand& command) {
  // Before the lock, whose file would make the application's folder again.
  if (!IsLiving(command.appId)) return EndForgottenCheck(command);
  FileLock lock = ExecutorLock(command.appId);
  const LockScope scope(&lock);
  if (!scope) {
    LOG_E << "Another executor works for the application, postpone check.";
    return kExitBusy;
  }
  // Under the lock: the feed of a job that is ended here is judged by no other executor.
  const EndedJob job = EndJob(command.jobId);
  if (job.end == JobEnd::kAlive) {
    LOG_E << "The job cannot be ended:" << command.jobId;
    return kExitJobAlive;
  }
  try {
    Answer(command, job);
  } catch (...) {
    // The job is ended, so this exit is final: the host that waits is woken all the same.
    LOG_E << "The check failed.";
  }
  SignalResult(command.appId);
  return kExitDone;
}
