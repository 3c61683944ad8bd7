// When an application is next due for an update check or a report.
#ifndef KUPDATE_APPINFO_APP_INFO2_H_
#define KUPDATE_APPINFO_APP_INFO2_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "appinfo/app_info.h"
#include "appinfo/app_state.h"
#include "appinfo/check_schedule.h"

/// A version's channel, as numbers that are stored.
enum VersionStatus { VS_BETA = 0, VS_RELEASE = 1, VS_CRITICAL = 2 };

/// "release" and "critical" (exact case); anything else is VS_BETA.
VersionStatus ParseVersionStatus(std::string_view text);

/// The scheduling layer. Times are whole seconds since 1970-01-01 UTC; `now` is the caller's, read
/// once per operation.
class TAppInfo2 : public TAppInfo {
 public:
  using TAppInfo::TAppInfo;

  /// The feed's address: "VersionUrl"; or "Debug_VersionUrl", when that is not empty and the user
  /// allows it by "AllowDebugFeed" 1 in HKEY_CURRENT_USER, "Software\Krelix": any process of the
  /// user may have written it here, but not there.
  std::string VersionUrl() const;

  /// "VersionStatus" read as a word; any other text counts as VS_BETA, which is logged. Hosts'
  /// start-up stores a number there: that is what files in the field hold.
  VersionStatus GetVersionStatus() const;
  /// Stores the number.
  void SetVersionStatus(VersionStatus status);
  bool WantUnstableToo() const;
  void SetWantUnstableToo(bool wanted);
  /// Copies the user's choice from the local record, which decides, into "WantUnstableToo". Without
  /// a choice it does nothing.
  void RestoreChosenChannel();
  void SetNeedDialogArterCheck(bool needed);

  void UpdateLastCheckTime(std::uint64_t now);
  /// Whether an update check is due. Repairs a "NextCheckTime" that is too far ahead.
  bool ShouldCheck(std::uint64_t now);
  CheckTimes StoredCheckTimes() const;
  /// Resets a "NextCheckTime" more than 150 whole days ahead to 150 days from now.
  void SanityCheck(std::uint64_t now);
  /// Seconds between reports; a day when not stored.
  std::int64_t PingStatPeriod() const;
  bool ShouldPing(std::uint64_t now) const;
  /// Notes that a report is being sent. Returns the state in it: an uninstall for a removed
  /// application, else a day of use.
  AppState RecordPing(std::uint64_t now);

  /// Whether no registered application needs an executor any more, so that it may remove itself.
  /// Both lists are asked, that of the local records and that of the stores. Removed applications
  /// do not count; of the others those count that name this executor or none, and all of them when
  /// it is the default one. In doubt the list is not empty.
  static bool IsApplicationListEmpty(const std::wstring& executor,
                                     const std::wstring& defaultExecutor);

  /// Forget the last and next time, so that a check (a report) is due at once.
  void ForgetCheckTimes();
  void ForgetPingTimes();

 private:
  std::uint64_t ReadTime(std::string_view key) const;
  void WriteTime(std::string_view key, std::uint64_t seconds);
};

#endif  // KUPDATE_APPINFO_APP_INFO2_H_
