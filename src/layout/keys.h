// The keys of state files that two programs, or two folders of the sources, use.
// docs/file-formats.md describes all keys.
#ifndef KUPDATE_LAYOUT_KEYS_H_
#define KUPDATE_LAYOUT_KEYS_H_

namespace key {

// Of the application's record.
inline constexpr char kLastCheckTime[] = "LastCheckTime";
inline constexpr char kLocale[] = "Locale";
inline constexpr char kNeedDialog[] = "NeedDialogArterCheck";
inline constexpr char kNextCheckTime[] = "NextCheckTime";
inline constexpr char kPingStatPeriod[] = "PingStatPeriod";
inline constexpr char kPlatform[] = "Platform";
inline constexpr char kRemove[] = "Remove";
inline constexpr char kReportUrl[] = "ReportUrl";
inline constexpr char kUpdaterPath[] = "UpdaterPath";
inline constexpr char kUpgradeAvailable[] = "UpgradeAvailable";
inline constexpr char kVersionUrl[] = "VersionUrl";

// Of the update found.
inline constexpr char kDescription[] = "Description";
inline constexpr char kDialogsDate[] = "DlgsArchiveDate";
inline constexpr char kDialogsStyle[] = "DlgsArchiveStyle";
inline constexpr char kDialogsUrl[] = "DlgsArchiveUrl";
inline constexpr char kDistroArgs[] = "DistroArgs";
inline constexpr char kDistroExitCode[] = "DistroExitCode";
inline constexpr char kDistroMd5[] = "DistroMD5";
inline constexpr char kDistroSize[] = "DistroSize";
inline constexpr char kDistroStarter[] = "DistroStarter";
inline constexpr char kDistroUrl[] = "DistroUrl";
inline constexpr char kFavicon[] = "Favicon";
inline constexpr char kHomepage[] = "Homepage";
inline constexpr char kLocaleDate[] = "LocaleDate";
inline constexpr char kLocaleUrl[] = "LocaleUrl";
inline constexpr char kMsiArgs[] = "MSIArgs";
inline constexpr char kTitle[] = "Title";
inline constexpr char kUacDialog[] = "UACDlg";

}  // namespace key

#endif  // KUPDATE_LAYOUT_KEYS_H_
