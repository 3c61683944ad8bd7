// The steps of a silent installation. The caller passes everything that it depends on.
#ifndef KUPDATE_INSTALL_SILENT_INSTALL_H_
#define KUPDATE_INSTALL_SILENT_INSTALL_H_

#include <cstdint>
#include <string>

#include "install/trust.h"

struct InstallSettings {
  TrustAnchors trust;
  std::uint64_t now = 0;  ///< seconds since 1970-01-01 UTC, for the expiry of manifests
  unsigned installerLimitSeconds = 15 * 60;
  unsigned manifestLimitSeconds = 5 * 60;
  unsigned downloadLimitSeconds = 60 * 60;
};

/// RunSilentUpdate with these settings; may throw std::exception.
int InstallUpdate(const std::string& appId, const InstallSettings& settings);

#endif  // KUPDATE_INSTALL_SILENT_INSTALL_H_
