// The operations behind the exported functions.
#ifndef KUPDATE_CONTROLLER_UPDATER_CONTROLLER_H_
#define KUPDATE_CONTROLLER_UPDATER_CONTROLLER_H_

#include <cstdint>
#include <memory>
#include <string>

#include "appinfo/app_info2.h"
#include "controller/copy_out.h"
#include "controller/host_check.h"

class TLocker;
class TStatCtrl;

/// A host's data about itself when it asks for an update. Texts are UTF-8.
struct HostRelease {
  const char* platform;
  const char* versionUrl;  ///< address of its feed
  std::uint16_t verMajor;
  std::uint16_t verMinor;
  std::uint16_t verSubver;
  std::uint16_t verBuild;
  bool release;  ///< false for a beta
};

/// Turns each call of a host into work on the stores, transfer jobs and the executor. Everything
/// runs on the caller's thread, under the application's mutex that the entry point holds. No
/// operation throws: a failure ends in the log. Cheap to make; the one that drives update checks
/// lives as long as the process, since it knows the running job. `appId` may be null everywhere:
/// that is a failure of the operation.
class TUpdaterController {
 public:
  // Life of an application.

  /// Writes the application's record, then runs what is due. Null texts count as empty.
  /// @param pingStatPeriod  seconds between reports
  void OnApplicationStartup(const char* appId, const HostRelease& host, const char* reportUrl,
                            std::int32_t pingStatPeriod);
  void OnApplicationUninstall(const char* appId);
  /// Adds an optional parameter, not null, then runs what is due.
  void UsageReport(const char* appId, const char* value);
  /// Null: nothing changes.
  void SetLocale(const char* appId, const char* locale);
  void GetLocale(const char* appId, CopyOutBuffer<char> out);

  // The content of its next reports. Null arguments: nothing changes.

  void SetOptionalParam(const char* appId, const char* value);
  void GetOptionalParam(const char* appId, CopyOutBuffer<char> out);
  /// @param state  a state's word, not null; another text is a failure
  void SetApplicationState(const char* appId, const char* state);
  void GetApplicationState(const char* appId, CopyOutBuffer<char> out);
  void SetUniqueParam(const char* appId, const char* name, const wchar_t* value);
  void GetUniqueParam(const char* appId, const char* name, CopyOutBuffer<wchar_t> out);

  // Update check, wait and silent install.

  /// One step of a check that the host drives.
  /// @param operation  "start", "stop" or "check"
  /// @param status     receives 0 in work, 1 update found, 2 no update, 3 job failed; may be null
  /// @return whether the step did what was asked.
  bool IsUpdateAvailable(const char* appId, const HostRelease& host, const char* operation,
                         std::int32_t* status);
  /// Makes check and report due and waits for the executor's answer.
  /// @param waitMilliseconds  negative: without limit
  /// @return whether a newer version was found.
  bool IsUpgradeAvailable(const char* appId, std::int32_t waitMilliseconds);
  /// Makes check and report due and runs them.
  /// @param needDialog  whether the executor should show the result
  void ForceUpdateCheck(const char* appId, bool needDialog);
  /// Starts the executor for the application of the last IsUpdateAvailable and waits until it is
  /// done, without limit.
  /// @param exitCode  receives the installer's exit code; may be null
  bool DownloadAndInstallSilentUpdate(std::int32_t* exitCode);

  /// The record of the application that this call is for. Writes to it are gathered and
  /// saved in one step, at the latest when the controller is destroyed: one call costs one
  /// replacement of the file, or none.
  /// @param appId  not null, else std::invalid_argument; the same in each call of one controller
  TAppInfo2& Record(const char* appId);

  // The executor.

  /// Names the executor for the rest of the process; null: the default one again. Any thread.
  static void SetExecutorPath(const wchar_t* path);
  /// The path that was set, else "kupdate-exec.exe" in "Krelix\Updater" of the roaming per-user
  /// folder.
  static std::wstring GetExecutorPath();
  /// The path that was set; empty for the default one.
  static std::wstring NamedExecutor();

 private:
  struct CallRecord {
    explicit CallRecord(const char* appId) : store(appId), changes(store) {}
    TAppInfo2 store;
    StoreChanges changes;
  };

  TStatCtrl Statistics(const char* appId) const;
  bool RunOperation(TAppInfo2& store, const std::string& operation, std::int32_t* status);

  std::unique_ptr<CallRecord> record_;
  TLocker* statisticsLock_ = nullptr;  // null: the entry point holds the lock for the whole call
  HostCheck hostCheck_;
};

#endif  // KUPDATE_CONTROLLER_UPDATER_CONTROLLER_H_
