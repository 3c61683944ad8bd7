// Starting an installer and waiting for it.
#ifndef KUPDATE_INSTALL_RUN_INSTALLER_H_
#define KUPDATE_INSTALL_RUN_INSTALLER_H_

#include <string>

#include "install/update_offer.h"

struct InstallerCommand {
  Starter starter = Starter::kProgram;  ///< not kUnknown
  std::wstring file;                    ///< full path
  std::wstring folder;                  ///< where it runs: that of the file
  std::wstring args;
  bool mayElevate = false;  ///< whether the user may be asked for more rights
  unsigned limitSeconds = 0;
};

/// Runs the file, or the system's MSI installer on it, without a console window.
/// @return the installer's own code; kInstallStillRunning after the limit, the installer goes on
///         then; kInstallCannotStart; or the system's 740 and 1223, see RunSilentUpdate. All but
///         the first are logged.
int RunInstaller(const InstallerCommand& command);

#endif  // KUPDATE_INSTALL_RUN_INSTALLER_H_
