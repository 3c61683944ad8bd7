// The exported functions, each one statement in its frame.

// The header declares no imports here, since this is the library.
#define KUPDATE_NO_IMPORT
#include "dllkupdate.h"

#include "api/entry.h"
#include "util/diag_log.h"
#include "util/log_line.h"

namespace {

HostRelease MakeRelease(const char* platform, const char* versionUrl, std::int32_t major,
                        std::int32_t minor, std::int32_t subver, std::int32_t build, bool release) {
  // A part of a version has 16 bits in every store.
  const auto low = [](std::int32_t part) { return static_cast<std::uint16_t>(part & 0xFFFF); };
  return {platform, versionUrl, low(major), low(minor), low(subver), low(build), release};
}

// Hosts know no higher number; one that appears here counts as a failed job.
constexpr std::int32_t kLastKnownStatus = 3;

}  // namespace

kupdate_status DLLForceUpdateCheck(const char* app_id, bool need_dialog) {
  return LockedEntry("DLLForceUpdateCheck", app_id,
                     [&](TUpdaterController& c) { c.ForceUpdateCheck(app_id, need_dialog); });
}

kupdate_status DLLGetApplicationState(const char* app_id, char* buffer, int32_t* size) {
  return LockedEntry("DLLGetApplicationState", app_id, [&](TUpdaterController& c) {
    c.GetApplicationState(app_id, CopyOutBuffer<char>{buffer, size});
  });
}

kupdate_status DLLGetOptionalParam(const char* app_id, char* buffer, int32_t* size) {
  return LockedEntry("DLLGetOptionalParam", app_id, [&](TUpdaterController& c) {
    c.GetOptionalParam(app_id, CopyOutBuffer<char>{buffer, size});
  });
}

kupdate_status DLLIsUpgradeAvailable(const char* app_id, int32_t wait_ms, bool* result) {
  return LockedEntry("DLLIsUpgradeAvailable", app_id, [&](TUpdaterController& c) {
    const bool available = c.IsUpgradeAvailable(app_id, wait_ms);
    if (result) *result = available;
  });
}

kupdate_status DLLOnApplicationStartup(const char* app_id, const char* platform,
                                       const char* version_url, const char* report_url,
                                       int32_t ping_period, int32_t ver_major, int32_t ver_minor,
                                       int32_t ver_subver, int32_t ver_build, bool release) {
  return LockedEntry("DLLOnApplicationStartup", app_id, [&](TUpdaterController& c) {
    c.OnApplicationStartup(
        app_id,
        MakeRelease(platform, version_url, ver_major, ver_minor, ver_subver, ver_build, release),
        report_url, ping_period);
    LogAs("DLLOnApplicationStartup", __LINE__, "D:") << "Ok";
  });
}

kupdate_status DLLOnApplicationUninstall(const char* app_id) {
  return LockedEntry("DLLOnApplicationUninstall", app_id,
                     [&](TUpdaterController& c) { c.OnApplicationUninstall(app_id); });
}

kupdate_status DLLSetApplicationState(const char* app_id, const char* state) {
  return LockedEntry("DLLSetApplicationState", app_id,
                     [&](TUpdaterController& c) { c.SetApplicationState(app_id, state); });
}

kupdate_status DLLSetExecutorPath(const wchar_t* path) {
  FreeEntry("DLLSetExecutorPath", [&] {
    LogAs("DLLSetExecutorPath", __LINE__, "D:") << (path ? path : L"NULL!!!");
    TUpdaterController::SetExecutorPath(path);
    // Null names the default executor for this process; records keep getting the path that was
    // given before.
    if (path) OverrideExecutorPath(path);
    FixUpdaterPath(nullptr);
    return true;
  });
  return KUPDATE_S_OK;
}

kupdate_status DLLSetOptionalParam(const char* app_id, const char* value) {
  return LockedEntry("DLLSetOptionalParam", app_id,
                     [&](TUpdaterController& c) { c.SetOptionalParam(app_id, value); });
}

kupdate_status DLLUsageReport(const char* app_id, const char* value) {
  return LockedEntry("DLLUsageReport", app_id,
                     [&](TUpdaterController& c) { c.UsageReport(app_id, value); });
}

kupdate_status DLLDownloadAndInstallSilentUpdate(int32_t* exit_code) {
  // Without the application's mutex: an installation takes minutes, and other calls must go on.
  return FreeEntry("DLLDownloadAndInstallSilentUpdate", [&] {
    StartLogOnce(nullptr);
    const bool done = GlobalController().DownloadAndInstallSilentUpdate(exit_code);
    LogAs("DLLDownloadAndInstallSilentUpdate", __LINE__, "D:")
        << "res: " << (done ? "S_OK" : "E_FAIL");
    return done;
  });
}

kupdate_status DLLGetLocale(const char* app_id, char* buffer, int32_t* size) {
  return LockedEntry("DLLGetLocale", app_id, [&](TUpdaterController& c) {
    c.GetLocale(app_id, CopyOutBuffer<char>{buffer, size});
  });
}

const char* DLLGetUniqUserId(void) { return KeepUniqUserId(); }

kupdate_status DLLGetUniqueParam(const char* app_id, const char* name, wchar_t* buffer,
                                 int32_t* size) {
  return LockedEntry("DLLGetUniqueParam", app_id, [&](TUpdaterController& c) {
    c.GetUniqueParam(app_id, name, CopyOutBuffer<wchar_t>{buffer, size});
  });
}

kupdate_status DLLIsUpdateAvailable(const char* app_id, const char* platform, int32_t ver_major,
                                    int32_t ver_minor, int32_t ver_subver, int32_t ver_build,
                                    bool release, const char* version_url, const char* operation,
                                    int32_t* status) {
  return FreeEntry("DLLIsUpdateAvailable", [&] {
    StartLogOnce(app_id);
    std::int32_t found = 0;
    const bool done = GlobalController().IsUpdateAvailable(
        app_id,
        MakeRelease(platform, version_url, ver_major, ver_minor, ver_subver, ver_build, release),
        operation, &found);
    const bool known = found >= 0 && found <= kLastKnownStatus;
    if (done && status) *status = known ? found : kLastKnownStatus;
    return done;
  });
}

kupdate_status DLLSetLocale(const char* app_id, const char* locale) {
  return LockedEntry("DLLSetLocale", app_id,
                     [&](TUpdaterController& c) { c.SetLocale(app_id, locale); });
}

kupdate_status DLLSetUniqueParam(const char* app_id, const char* name, const wchar_t* value) {
  return LockedEntry("DLLSetUniqueParam", app_id,
                     [&](TUpdaterController& c) { c.SetUniqueParam(app_id, name, value); });
}
