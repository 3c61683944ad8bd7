// TAppInfo::GetPingUrl stands here because the identifiers build on the record, and not the other
// way.
#include "appinfo/app_info.h"
#include "layout/keys.h"
#include "stat/clids.h"
#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/text.h"

std::string TAppInfo::GetPingUrl() const {
  std::string url = Read(key::kReportUrl);
  if (url.empty() || url.starts_with("file://") || url.find("://") == url.npos) return url;
  if (url.find_first_of("?&") == url.npos) {
    url += '?';
  } else if (!url.ends_with('?')) {
    url += '&';
  }
  const std::string version = DecimalText(VerMajor()) + "." + DecimalText(VerMinor()) + "." +
                              DecimalText(VerSubver()) + "." + DecimalText(VerBuild());
  url += TClids(appId_).AppInfoForUrl(version, Platform());
  LOG_D << "Res url (w/o statistic): " << url;
  return url;
}
