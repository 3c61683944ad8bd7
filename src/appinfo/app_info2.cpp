#include "appinfo/app_info2.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "appinfo/local_record.h"
#include "layout/folders.h"
#include "layout/keys.h"
#include "layout/names.h"
#include "util/diag_log.h"
#include "util/files.h"
#include "util/log_line.h"
#include "util/registry.h"
#include "util/text.h"

namespace {

// A host that asks for less reports hourly.
constexpr std::int64_t kMinPingPeriod = 3600;
constexpr std::int64_t kDefaultPingPeriod = 86400;

constexpr wchar_t kAllowDebugFeed[] = L"AllowDebugFeed";

bool IsDebugFeedAllowed() {
  std::uint32_t allowed = 0;
  return !JustUtil::IsValueNotExist(kSettingsKey, kAllowDebugFeed) &&
         JustUtil::ReadIntFromRegistry(RegistryRoot::kCurrentUser, kSettingsKey, kAllowDebugFeed,
                                       &allowed) &&
         allowed == 1;
}

// Compares the executor in question with the one that an application names.
struct Executors {
  const std::wstring& asked;
  const std::wstring& standard;

  bool IsNeededWith(const std::string& path) const {
    const std::wstring named = WidenUtf8(path);
    // An application that names no executor may use any, and the default one serves all: in doubt
    // it is needed.
    return named.empty() || EqualsIgnoreCase(named, asked) || EqualsIgnoreCase(asked, standard);
  }
};

bool IsNeededByLocalRecord(const std::string& appId, const Executors& executors) {
  if (!IsLiving(appId)) return false;
  const std::optional<LocalRecord> record = ReadLocalRecord(appId);
  return !record || executors.IsNeededWith(record->executor);
}

bool IsNeededByStore(const std::string& appId, const Executors& executors) {
  const TAppInfo2 app(appId);
  // A record that cannot be looked at is not gone.
  return !FileSystem::IsNameFree(app.Path()) && !app.IsRemoved() &&
         executors.IsNeededWith(app.Read(key::kUpdaterPath));
}

}  // namespace

VersionStatus ParseVersionStatus(std::string_view text) {
  if (text == "release") return VS_RELEASE;
  if (text == "critical") return VS_CRITICAL;
  return VS_BETA;
}

std::uint64_t TAppInfo2::ReadTime(std::string_view key) const {
  return static_cast<std::uint64_t>(ReadNumber(key));
}

void TAppInfo2::WriteTime(std::string_view key, std::uint64_t seconds) {
  WriteNumber(key, static_cast<std::int64_t>(seconds));
}

std::string TAppInfo2::VersionUrl() const {
  const std::string debugUrl = Read("Debug_VersionUrl");
  return debugUrl.empty() || !IsDebugFeedAllowed() ? Read(key::kVersionUrl) : debugUrl;
}

VersionStatus TAppInfo2::GetVersionStatus() const {
  const std::string text = Read("VersionStatus");
  const VersionStatus status = ParseVersionStatus(text);
  if (status == VS_BETA && text != "beta") LOG_D << "default == VS_BETA";
  return status;
}
void TAppInfo2::SetVersionStatus(VersionStatus status) { WriteNumber("VersionStatus", status); }
bool TAppInfo2::WantUnstableToo() const { return ReadFlag("WantUnstableToo"); }
void TAppInfo2::SetWantUnstableToo(bool wanted) { WriteFlag("WantUnstableToo", wanted); }

void TAppInfo2::RestoreChosenChannel() {
  const std::optional<LocalRecord> record = ReadLocalRecord(AppId());
  if (!record || record->channel == Channel::kOfBuild) return;
  SetWantUnstableToo(record->channel == Channel::kBeta);
}

void TAppInfo2::SetNeedDialogArterCheck(bool needed) { WriteFlag(key::kNeedDialog, needed); }

void TAppInfo2::UpdateLastCheckTime(std::uint64_t now) { WriteTime(key::kLastCheckTime, now); }

bool TAppInfo2::ShouldCheck(std::uint64_t now) {
  CheckTimes times{ReadTime(key::kLastCheckTime), 0};
  const std::uint64_t hours = HoursSinceCheck(times, now);
  if (IsCheckRecent(times, now)) {
    LOG_D << "Last checked " << hours << " hours ago, postponed.";
    return false;
  }
  LOG_D << "hours_passed=" << hours;
  // The next time is read only here, and repaired before: a wrong clock may have written it.
  SanityCheck(now);
  times.next = ReadTime(key::kNextCheckTime);
  return IsCheckDue(times, now);
}

CheckTimes TAppInfo2::StoredCheckTimes() const {
  return {ReadTime(key::kLastCheckTime), ReadTime(key::kNextCheckTime)};
}

void TAppInfo2::SanityCheck(std::uint64_t now) {
  const std::uint64_t next = ReadTime(key::kNextCheckTime);
  const std::uint64_t bounded = BoundedNextCheck(next, now);
  if (bounded == next) return;
  WriteTime(key::kNextCheckTime, bounded);
  LOG_I << "sanity check in work...";
}

std::int64_t TAppInfo2::PingStatPeriod() const {
  const std::optional<std::string> period = Find(key::kPingStatPeriod, "TAppInfo::Read");
  return period ? ParseInt64(*period) : kDefaultPingPeriod;
}

bool TAppInfo2::ShouldPing(std::uint64_t now) const {
  const std::int64_t period = std::max(PingStatPeriod(), kMinPingPeriod);
  // Unsigned on purpose: a last time in the future, after the clock was set back, gives a huge
  // difference and so a report that is due.
  return now - ReadTime("LastPingTime") > static_cast<std::uint64_t>(period);
}

AppState TAppInfo2::RecordPing(std::uint64_t now) {
  const std::int64_t period = std::max(PingStatPeriod(), kMinPingPeriod);
  WriteTime("LastPingTime", now);
  WriteTime("NextPingTime", now + static_cast<std::uint64_t>(period));
  return IsRemoved() ? AppState::kUninstall : AppState::kDayuse;
}

bool TAppInfo2::IsApplicationListEmpty(const std::wstring& executor,
                                       const std::wstring& defaultExecutor) {
  const Executors executors{executor, defaultExecutor};
  const auto isListFree = [&](const std::wstring& folder, auto isNeededBy) {
    std::vector<std::string> ids;
    // A list that may be incomplete does not show that no application is left.
    if (folder.empty() || !ListAppIds(folder, &ids)) return false;
    ids.emplace_back();  // the empty id: its folder holds the folders of the others
    return std::none_of(ids.begin(), ids.end(),
                        [&](const std::string& id) { return isNeededBy(id, executors); });
  };
  return isListFree(GetUpdaterLocalFolder({}, CreateFolder::kNo), IsNeededByLocalRecord) &&
         isListFree(GetUpdaterLowFolder({}), IsNeededByStore);
}

void TAppInfo2::ForgetCheckTimes() {
  RemoveValue(key::kLastCheckTime);
  RemoveValue(key::kNextCheckTime);
}

void TAppInfo2::ForgetPingTimes() {
  RemoveValue("LastPingTime");
  RemoveValue("NextPingTime");
}
