// The frame of the exported functions: nothing but a status passes it.
#ifndef KUPDATE_API_ENTRY_H_
#define KUPDATE_API_ENTRY_H_

#include <cstdint>
#include <string>

#include "controller/updater_controller.h"
#include "util/mutex.h"
#include "util/process.h"
#include "util/text.h"

using Status = std::int32_t;
inline constexpr Status kOk = 0;
inline constexpr Status kFail = static_cast<Status>(0x80004005);

/// Empties the last-error text, logs "in" and starts the log, once per process.
/// @param appId  names the log of the whole process when this is its first call; may be null
void Enter(const char* exportName, const char* appId);

/// Empties the last-error text.
void ClearLastErrorText();

/// Starts the log, once per process, and writes the banner.
void StartLogOnce(const char* appId);

/// To be called in a handler: logs what was caught and appends it to the last-error text. Returns
/// kFail.
Status ReportCaught(const char* exportName) noexcept;

/// Whether `appId` may be worked on; null is refused and logged.
bool CheckAppId(const char* exportName, const char* appId);

/// The lock over everything of one application, shared by all processes.
Mutex ApplicationMutex(const std::string& appId);

/// Makes the application known: notes it as the current one and, when it has no record yet, as
/// installed.
void InitAppId(const std::string& appId);

/// Writes the executor path that the host gave, if any, into the current application's record.
/// @param store  that record; null: it is opened
void FixUpdaterPath(TAppInfo* store);

/// Keeps the path for FixUpdaterPath of this and later calls.
void OverrideExecutorPath(const wchar_t* path);

/// Reads the user's id into the process's buffer and returns that; valid until the next call. Never
/// null.
const char* KeepUniqUserId() noexcept;

/// The controller of the checks that hosts drive; it lives as long as the process.
TUpdaterController& GlobalController();

/// Runs one operation on a fresh controller, under the application's mutex.
template <class Body>
Status LockedEntry(const char* exportName, const char* appId, Body&& body) noexcept {
  try {
    Enter(exportName, appId);
    if (!CheckAppId(exportName, appId)) return kFail;
    Mutex mutex = ApplicationMutex(appId);
    if (!mutex.Lock()) return kFail;
    InitAppId(appId);
    TUpdaterController controller;
    FixUpdaterPath(&controller.Record(appId));
    body(controller);
    return kOk;
  } catch (...) {
    return ReportCaught(exportName);
  }
}

/// Runs `body`, which returns whether it did its work, without a mutex.
template <class Body>
Status FreeEntry(const char* exportName, Body&& body) noexcept {
  try {
    PinThisModule();
    ClearLastErrorText();
    return body() ? kOk : kFail;
  } catch (...) {
    return ReportCaught(exportName);
  }
}

#endif  // KUPDATE_API_ENTRY_H_
