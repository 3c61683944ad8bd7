#include "controller/updater_controller.h"

#include <exception>
#include <optional>
#include <string>
#include <string_view>

#include "appinfo/app_info2.h"
#include "appinfo/local_record.h"
#include "controller/guarded.h"
#include "controller/host_record.h"
#include "controller/scheduled_jobs.h"
#include "layout/keys.h"
#include "stat/stat_ctrl.h"
#include "util/clock.h"
#include "util/process.h"
#include "util/text.h"

TAppInfo2& TUpdaterController::Record(const char* appId) {
  if (!record_) record_ = std::make_unique<CallRecord>(Required(appId, "AppId is NULL").c_str());
  return record_->store;
}

void TUpdaterController::OnApplicationStartup(const char* appId, const HostRelease& host,
                                              const char* reportUrl, std::int32_t pingStatPeriod) {
  Guarded(LOG_PLACE, [&] {
    TAppInfo2& store = Record(appId);
    store.WriteFlag(key::kRemove, false);
    WriteRelease(store, host);
    store.Write(key::kReportUrl, OrEmpty(reportUrl));
    store.WriteNumber(key::kPingStatPeriod, pingStatPeriod);
    // Before the jobs: this takes back the mark of removal that they look at.
    const Channel chosen = WriteLocalRecord(store.AppId(), host, /*isStart=*/true);
    WriteChannel(store, host.release, chosen);
    ScheduleUpdaterJob(store, statisticsLock_, NowSeconds()).RethrowPingFailure();
    return Ended::kOut;
  });
}

void TUpdaterController::OnApplicationUninstall(const char* appId) {
  Guarded(LOG_PLACE, [&] {
    TAppInfo2& store = Record(appId);
    // The report takes its state from the mark in the store; the one in the local record decides.
    store.WriteFlag(key::kRemove, true);
    ChangeLocalRecord(store.AppId(), [](LocalRecord& record) {
      record.removed = true;
      // A later installation begins without the choice of this one.
      record.channel = Channel::kOfBuild;
    });
    // For a removed application this sends the last report, due or not.
    ScheduleUpdaterJob(store, statisticsLock_, NowSeconds());
    return Ended::kOut;
  });
}

void TUpdaterController::UsageReport(const char* appId, const char* value) {
  Guarded(LOG_PLACE, [&] {
    TAppInfo2& store = Record(appId);
    // No program reads this flag, but the form of the file has it.
    store.WriteFlag("ShouldPing", true);
    TStatCtrl(store.AppId(), statisticsLock_).AddOptionalParam(Required(value, "Value is NULL"));
    ScheduleUpdaterJob(store, statisticsLock_, NowSeconds()).RethrowPingFailure();
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
    TAppInfo2& store = Record(appId);
    if (!locale) return Ended::kLeft;
    store.Write(key::kLocale, locale);
    const std::string& id = store.AppId();
    // These two and their sibling are one product with one language. The sibling's record brings
    // its own lock, so this needs no mutex of the sibling.
    if (id == "zonie" || id == "zonie64") TAppInfo("vigilorian").Write(key::kLocale, locale);
    return Ended::kOut;
  });
}

void TUpdaterController::GetLocale(const char* appId, CopyOutBuffer<char> out) {
  Guarded(LOG_PLACE, [&] {
    const TAppInfo2& store = Record(appId);
    if (!out.size) return Ended::kLeft;
    out.Clear();
    out.Deliver(store.Locale());
    return Ended::kOut;
  });
}
