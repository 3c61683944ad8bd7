#include "executor/status.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "appinfo/app_info2.h"
#include "appinfo/local_record.h"
#include "appinfo/version_number.h"
#include "executor/block_confirm.h"
#include "executor/status_report.h"
#include "install/silent_update.h"
#include "layout/command_line.h"
#include "layout/file_names.h"
#include "layout/folders.h"
#include "layout/keys.h"
#include "transfer/transfer.h"
#include "update/upd_info.h"
#include "util/clock.h"
#include "util/files.h"
#include "util/folder_content.h"
#include "util/process.h"
#include "util/system.h"
#include "util/text.h"

namespace {

std::string VersionText(const TAppInfo& store) {
  return FormatVersion(
      MakeVersion(store.VerMajor(), store.VerMinor(), store.VerSubver(), store.VerBuild()));
}

std::uint64_t TimeOf(const TAppInfo& store, std::string_view key) {
  return static_cast<std::uint64_t>(std::max<std::int64_t>(store.ReadNumber(key), 0));
}

std::string ChannelOf(const TAppInfo2& app) {
  const std::optional<LocalRecord> record = ReadLocalRecord(app.AppId());
  const bool isChosen = record && record->channel != Channel::kOfBuild;
  return (isChosen ? record->TakesBetas() : app.WantUnstableToo()) ? "beta" : "release";
}

std::string LogOf(const std::string& appId) {
  return FileSystem::ReadFile(NarrowUtf8(GetUpdaterRoamingFolder() + LogFile(appId)));
}

AppStatus StatusOf(const std::string& appId) {
  const TAppInfo2 app(appId);
  AppStatus status;
  status.id = appId;
  status.version = VersionText(app);
  status.channel = ChannelOf(app);
  status.removed = app.IsRemoved();
  status.executor = app.Read(key::kUpdaterPath);
  status.nextCheck = CheckDueTime(app.StoredCheckTimes());
  status.nextPing = TimeOf(app, "NextPingTime");
  if (app.ReadNumber(key::kUpgradeAvailable) != 0) status.update = VersionText(TUpdInfo(appId));
  for (const FileSystem::FileEntry& file : FileSystem::ListFiles(GetUpdaterDataPath(appId))) {
    if (file.name == kStatisticsFile) status.statisticsWait = true;
    if (const auto block = BlockIdOfFile(file.name)) status.blocksInWork.push_back(*block);
  }
  status.lastError = LastErrorIn(LogOf(appId));
  return status;
}

JobStatus StatusOf(const JobFacts& job) {
  const ExecutorCommand command = ParseExecutorCommand(job.notifyCommandLine, job.notifyProgram);
  JobStatus status;
  status.id = job.id;
  status.state = JobStateName(job.state);
  status.purpose = command.kind == CommandKind::kUpdateCheck    ? "check"
                   : command.kind == CommandKind::kStatCallback ? "ping"
                                                                : "download";
  status.appId = command.appId;
  status.created = job.created;
  status.error = job.error;
  return status;
}

void AddApplications(const ExecutorCommand& command, StatusReport* report) {
  std::vector<std::string> ids;
  // Folders in LocalLow are no list to act on. They are enough here, where people only look.
  FileSystem::ListFolders(GetUpdaterDataPath({}), &ids);
  ids.emplace_back();  // the empty id: its folder holds the folders of the others
  for (const std::string& id : ids) {
    if (command.hasAppId && id != command.appId) continue;
    if (FileSystem::IsFileExist(TAppInfo2(id).Path())) report->apps.push_back(StatusOf(id));
  }
}

void AddJobs(const ExecutorCommand& command, StatusReport* report) {
  try {
    for (const JobFacts& job : ListOwnJobs()) {
      report->jobs.push_back(StatusOf(job));
      if (command.hasAppId && report->jobs.back().appId != command.appId) report->jobs.pop_back();
    }
    report->serviceAnswers = true;
  } catch (...) {
    // A machine without the service is one of the cases that people look into with this.
    report->serviceAnswers = false;
  }
}

}  // namespace

std::string StatusText(const ExecutorCommand& command) {
  StatusReport report;
  report.program = NarrowUtf8(ModulePath());
  report.version = FileVersionText(ModulePath());
  report.trust = TrustStatus();
  AddApplications(command, &report);
  AddJobs(command, &report);
  return command.json ? JsonStatus(report) : ReadableStatus(report, NowSeconds());
}
