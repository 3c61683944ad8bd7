#include "controller/updater_controller.h"

#include <exception>
#include <string>
#include <string_view>

#include "appinfo/app_info2.h"
#include "controller/executor.h"
#include "controller/guarded.h"
#include "controller/host_record.h"
#include "stat/stat_ctrl.h"
#include "util/clock.h"
#include "util/process.h"
#include "util/text.h"

void ScheduleUpdaterJob(TAppInfo2& store, TLocker* statisticsLock, std::uint64_t now) {
  LOG_I << "*** >>> ScheduleUpdaterJob >>> ***";
  LOG_I << "Name: " << HostProgramName();
  if (store.IsRemoved()) {
    TStatCtrl::SendStat(store, statisticsLock, now, LaunchPing);
    return;
  }
  std::exception_ptr pingFailure;
  if (store.ShouldPing(now)) {
    try {
      TStatCtrl::SendStat(store, statisticsLock, now, LaunchPing);
    } catch (...) {
      // A report address that is too long must not keep a program from ever updating itself.
      pingFailure = std::current_exception();
    }
  }
  if (store.ShouldCheck(now)) CheckUpdate(store, now);
  if (pingFailure) std::rethrow_exception(pingFailure);
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

void TUpdaterController::UsageReport(const char* appId, const char* value) {
  Guarded(LOG_PLACE, [&] {
    TAppInfo2 store(Required(appId, "AppId is NULL"));
    store.WriteFlag("ShouldPing", true);
    TStatCtrl(store.AppId(), statisticsLock_).AddOptionalParam(Required(value, "Value is NULL"));
    ScheduleUpdaterJob(store, statisticsLock_, NowSeconds());
    return Ended::kOut;
  });
}

void TUpdaterController::SetOptionalParam(const char* appId, const char* value) {
  Guarded(LOG_PLACE, [&] {
    TStatCtrl statistics = Statistics(appId);
    if (!value) return Ended::kLeft;
    statistics.AddOptionalParam(value);
    return Ended::kOut;
  });
}

void TUpdaterController::GetOptionalParam(const char* appId, CopyOutBuffer<char> out) {
  Guarded(LOG_PLACE, [&] {
    TStatCtrl statistics = Statistics(appId);
    if (!out.size) return Ended::kLeft;
    out.Clear();
    out.Deliver(statistics.LastParam());
    return Ended::kOut;
  });
}

void TUpdaterController::SetApplicationState(const char* appId, const char* state) {
  Guarded(LOG_PLACE, [&] {
    TStatCtrl statistics = Statistics(appId);
    const std::string word = Required(state, "Value is NULL");
    statistics.AddState(TAppStateHolder::Import(word));
    LOG_D << "State: " << word;
    return Ended::kOut;
  });
}

void TUpdaterController::GetApplicationState(const char* appId, CopyOutBuffer<char> out) {
  Guarded(LOG_PLACE, [&] {
    TStatCtrl statistics = Statistics(appId);
    if (!out.size) return Ended::kLeft;
    out.Clear();
    out.Deliver(TAppStateHolder::Text(statistics.LastState()));
    return Ended::kOut;
  });
}

void TUpdaterController::SetUniqueParam(const char* appId, const char* name, const wchar_t* value) {
  Guarded(LOG_PLACE, [&] {
    TStatCtrl statistics = Statistics(appId);
    if (!name || !value) return Ended::kLeft;
    statistics.SetUniqueParam(std::string(name) + "=" + NarrowUtf8(value));
    return Ended::kOut;
  });
}

void TUpdaterController::GetUniqueParam(const char* appId, const char* name,
                                        CopyOutBuffer<wchar_t> out) {
  Guarded(LOG_PLACE, [&] {
    TStatCtrl statistics = Statistics(appId);
    if (!name || !out.size) return Ended::kLeft;
    out.Clear();
    out.Deliver(WidenUtf8(statistics.GetUniqueParam(name)));
    return Ended::kOut;
  });
}

TStatCtrl TUpdaterController::Statistics(const char* appId) const {
  return TStatCtrl(Required(appId, "AppId is NULL"), statisticsLock_);
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
