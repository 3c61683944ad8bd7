#include "executor/channel_action.h"

#include <optional>
#include <string>

#include "appinfo/app_info2.h"
#include "appinfo/local_record.h"
#include "executor/console.h"
#include "executor/run.h"
#include "layout/command_line.h"
#include "layout/file_names.h"
#include "layout/keys.h"
#include "layout/log_start.h"
#include "util/diag_log.h"
#include "util/log_line.h"

namespace {

int Refuse(const std::string& complaint) {
  WriteToConsole(ConsoleStream::kError, complaint + "\n");
  return kExitNotSet;
}

// The local record decides; hosts and checks copy the choice from there.
bool StoreChoice(const std::string& appId, Channel channel) {
  if (!ChangeLocalRecord(appId, [&](LocalRecord& record) { record.channel = channel; })) {
    return false;
  }
  TAppInfo2 app(appId);
  const StoreChanges one(app);
  app.RestoreChosenChannel();
  // The update found may be of the channel that was left.
  app.WriteFlag(key::kUpgradeAvailable, false);
  app.ForgetCheckTimes();
  return app.SaveChanges();
}

}  // namespace

int RunChannelAction(const ExecutorCommand& command) {
  const std::string& id = command.appId;
  const std::optional<LocalRecord> record = ReadLocalRecord(id);
  if (!record || record->removed) return Refuse("No application \"" + id + "\" is registered.");
  // Only now: a mistyped id must leave no log behind.
  StartLog(LogFile(id), {});
  const char* const name = command.beta ? "beta" : "release";
  LOG_I << "Channel chosen:" << name;
  if (!StoreChoice(id, command.beta ? Channel::kBeta : Channel::kRelease)) {
    return Refuse("The record of \"" + id + "\" could not be written; its log has the reason.");
  }
  WriteToConsole(ConsoleStream::kOutput, "Application \"" + id + "\" is on the " + name +
                                             " channel now. Its next start checks for updates.\n");
  return kExitDone;
}
