// Starting the diagnostic log: its level, its file, its banner.
#ifndef KUPDATE_LAYOUT_LOG_START_H_
#define KUPDATE_LAYOUT_LOG_START_H_

#include <string>

/// Makes the log and reads from the registry (HKEY_CURRENT_USER, "Software\Krelix", "Log") whether
/// "P:" lines are written: when the text is "paranoiac". To be called once, while the module is
/// loaded.
void LoadLogLevel() noexcept;

/// Names the log's file; only the first call of the process does anything. A file of more than 1
/// MiB is moved to its name with ".bak" first.
/// @param fileName  without folder
/// @param folder    empty: "Krelix\Updater" in the roaming per-user folder; made when absent
void StartLog(const std::wstring& fileName, const std::wstring& folder);

namespace JustUtil {

/// Writes the start-up banner: library version and path, system, elevation, user account control.
void OutBanner();

}  // namespace JustUtil

#endif  // KUPDATE_LAYOUT_LOG_START_H_
