#include "controller/host_record.h"

#include <algorithm>
#include <stdexcept>

#include "appinfo/app_info2.h"
#include "appinfo/local_record.h"
#include "appinfo/version_number.h"
#include "controller/updater_controller.h"
#include "layout/keys.h"
#include "util/text.h"

std::string Required(const char* text, const char* complaint) {
  if (!text) throw std::invalid_argument(complaint);
  return text;
}

std::string OrEmpty(const char* text) { return text ? text : std::string(); }

Channel WriteLocalRecord(const std::string& appId, const HostRelease& host, bool isStart) {
  const VersionNumber version =
      MakeVersion(host.verMajor, host.verMinor, host.verSubver, host.verBuild);
  const std::string executor = NarrowUtf8(TUpdaterController::NamedExecutor());
  Channel chosen = Channel::kOfBuild;
  ChangeLocalRecord(appId, [&](LocalRecord& record) {
    // A program that runs on after its update still names its old version, and must not lower the
    // mark below which no update is installed. Only a new start may lower it.
    record.version = isStart ? version : std::max(version, record.version);
    record.platform = OrEmpty(host.platform);
    record.executor = executor;
    record.release = host.release;
    if (isStart) record.removed = false;
    chosen = record.channel;
  });
  return chosen;
}

void WriteRelease(TAppInfo2& store, const HostRelease& host) {
  store.Write(key::kPlatform, OrEmpty(host.platform));
  store.Write(key::kVersionUrl, OrEmpty(host.versionUrl));
  store.SetVersion(host.verMajor, host.verMinor, host.verSubver, host.verBuild);
}

void WriteChannel(TAppInfo2& store, bool release, Channel chosen) {
  store.SetVersionStatus(release ? VS_RELEASE : VS_BETA);
  if (chosen != Channel::kOfBuild) {
    store.SetWantUnstableToo(chosen == Channel::kBeta);
  } else if (release) {
    store.SetWantUnstableToo(false);
  }
}

std::string ReleaseText(const HostRelease& host) {
  const VersionNumber version =
      MakeVersion(host.verMajor, host.verMinor, host.verSubver, host.verBuild);
  return FormatVersion(version) + (host.release ? ".Release" : ".Beta");
}
