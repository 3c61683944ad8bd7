#include "install/silent_update.h"

#include <exception>

#include "install/silent_install.h"
#include "util/clock.h"
#include "util/diag_log.h"
#include "util/log_line.h"

int RunSilentUpdate(const std::string& appId) {
  // A host waits for a code, so no exception may leave.
  try {
    InstallSettings settings;
    settings.trust = OwnTrust();
    settings.now = NowSeconds();
    return InstallUpdate(appId, settings);
  } catch (const std::exception& error) {
    LOG_E << "The installation failed:" << error.what();
  } catch (...) {
    LOG_E << "The installation failed.";
  }
  return kInstallFailed;
}

std::string TrustStatus() { return Describe(OwnTrust()); }
