// The jobs that end by starting the executor.
#ifndef KUPDATE_CONTROLLER_SCHEDULED_JOBS_H_
#define KUPDATE_CONTROLLER_SCHEDULED_JOBS_H_

#include <cstdint>
#include <exception>
#include <string>

class TAppInfo2;
class TLocker;
struct PingBlock;

/// Full path of a file in the temporary folder; an old file of that name is deleted. Empty without
/// such a folder, and when the name (made with an application id) would lead out of it.
std::wstring FreshTempFile(const std::wstring& name);

/// Queues the download of the application's feed; when it ends, the transfer service starts the
/// executor, which decides. The store's changes are saved before, so that the executor sees them.
/// @return the job's id; empty when no job was made: that was logged.
/// Throws TransferError when the service refuses.
std::string CheckUpdate(TAppInfo2& store);

/// Queues the transfer of one block of statistics; when it ends, the service starts the executor,
/// which confirms the block or takes it back.
/// @return whether the job was started; a failure is in the log.
bool LaunchPing(const std::string& appId, const PingBlock& block) noexcept;

/// The same at an application's removal: the executor also removes itself when the block says
/// "uninstall" and no application needs it any more.
bool LaunchLastPing(const std::string& appId, const PingBlock& block) noexcept;

struct ScheduledJobs {
  std::string check;               ///< the id of the check's job; empty when none was queued
  std::exception_ptr pingFailure;  ///< what sending the statistics threw

  void RethrowPingFailure() const {
    if (pingFailure) std::rethrow_exception(pingFailure);
  }
};

/// Runs what is due for an application: its report and its update check; for a removed one its last
/// report, due or not. Saves the store's changes before any program can act on them.
/// @param statisticsLock  null when the caller holds the statistics' lock
/// @param now             seconds since 1970-01-01 UTC
/// Throws what checking throws; a failed report does not stop the check.
ScheduledJobs ScheduleUpdaterJob(TAppInfo2& store, TLocker* statisticsLock, std::uint64_t now);

#endif  // KUPDATE_CONTROLLER_SCHEDULED_JOBS_H_
