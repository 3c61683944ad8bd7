// The names by which processes find each other: kernel objects, jobs, the key of the user's
// settings. A name is written here and nowhere else.
#ifndef KUPDATE_LAYOUT_NAMES_H_
#define KUPDATE_LAYOUT_NAMES_H_

#include <string>

/// The mutex that a host holds for each of its calls, and the executor while it changes the
/// statistics. All ids here are UTF-8.
std::wstring StatisticsMutexName(const std::string& appId);
/// The mutex around each access to the application's record.
std::wstring RecordMutexName(const std::string& appId);
/// The mutex around each access to the update found.
std::wstring UpdateMutexName(const std::string& appId);
/// The event that wakes the host that waits for a check or an installation.
std::wstring ResultEventName(const std::string& appId);

/// The display name of our jobs in the transfer service.
inline constexpr wchar_t kJobName[] = L"Kupdate-task";

/// The user's settings, below HKEY_CURRENT_USER.
inline constexpr wchar_t kSettingsKey[] = L"Software\\Krelix";

#endif  // KUPDATE_LAYOUT_NAMES_H_
