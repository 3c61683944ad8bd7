#include "controller/updater_controller.h"

#include <stdexcept>
#include <string_view>

#include "appinfo/app_info2.h"
#include "controller/executor.h"
#include "controller/guarded.h"
#include "controller/host_record.h"
#include "util/clock.h"
#include "util/process.h"

void ScheduleUpdaterJob(TAppInfo2& store, TLocker* /*statisticsLock*/, std::uint64_t now) {
  LOG_I << "*** >>> ScheduleUpdaterJob >>> ***";
  LOG_I << "Name: " << HostProgramName();
  if (store.IsRemoved()) return;
  if (store.ShouldCheck(now)) CheckUpdate(store, now);
  LOG_I << "*** <<< ScheduleUpdaterJob <<< ***";
}

void TUpdaterController::OnApplicationStartup(const char* appId, const HostRelease& host,
                                              const char* reportUrl, std::int32_t pingStatPeriod) {
  Guarded(LOG_PLACE, [&] {
    TAppInfo2 store(Required(appId, "AppId is NULL"));
    store.WriteFlag("Remove", false);
    WriteRelease(store, host);
    store.Write("ReportUrl", OrEmpty(reportUrl));
    store.WriteNumber("PingStatPeriod", pingStatPeriod);
    WriteChannel(store, host.release);
    ScheduleUpdaterJob(store, statisticsLock_, NowSeconds());
    return Ended::kOut;
  });
}

void TUpdaterController::OnApplicationUninstall(const char* appId) {
  Guarded(LOG_PLACE, [&] {
    TAppInfo2 store(Required(appId, "AppId is NULL"));
    store.WriteFlag("Remove", true);
    ScheduleUpdaterJob(store, statisticsLock_, NowSeconds());
    return Ended::kOut;
  });
}

void TUpdaterController::SetLocale(const char* appId, const char* locale) {
  Guarded(LOG_PLACE, [&] {
    const std::string id = Required(appId, "AppId is NULL");
    if (!locale) return Ended::kLeft;
    TAppInfo(id).Write("Locale", locale);
    // These two and their sibling are one product with one language.
    if (id == "zonie" || id == "zonie64") TAppInfo("vigilorian").Write("Locale", locale);
    return Ended::kOut;
  });
}

void TUpdaterController::GetLocale(const char* appId, CopyOutBuffer<char> out) {
  Guarded(LOG_PLACE, [&] {
    const std::string id = Required(appId, "AppId is NULL");
    if (!out.size) return Ended::kLeft;
    out.Clear();
    out.Deliver(TAppInfo(id).Locale());
    return Ended::kOut;
  });
}
