// The states that an application reports, and their words.
#ifndef KUPDATE_APPINFO_APP_STATE_H_
#define KUPDATE_APPINFO_APP_STATE_H_

#include <cstdint>
#include <string_view>

/// Any 32-bit number may be held; only these three have a word and are ever queued.
enum class AppState : std::int32_t { kInstall = 0, kUninstall = 1, kDayuse = 2 };

struct TAppStateHolder {
  /// The state of a word ("install", "uninstall", "dayuse", exact case). Throws
  /// std::invalid_argument "Unknown state." for any other text.
  static AppState Import(std::string_view word);
  /// The state's word; empty for any other number.
  static std::string_view Text(AppState state);
};

#endif  // KUPDATE_APPINFO_APP_STATE_H_
