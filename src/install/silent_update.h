// The silent installation of the update that an earlier check found.
#ifndef KUPDATE_INSTALL_SILENT_UPDATE_H_
#define KUPDATE_INSTALL_SILENT_UPDATE_H_

#include <string>

/// The values of "DistroExitCode" that are not the installer's own code. They lie away from the
/// small negative numbers that installers end with.
enum InstallCode : int {
  kInstallNothing = -1001,         ///< no update is recorded, or none above the version that ran
                                   ///< last, or the application is not registered or is removed
  kInstallDownloadFailed = -1002,  ///< manifest or file could not be fetched or stored
  kInstallWrongContent = -1003,    ///< size or digest of the file is not the declared one
  kInstallNotTrusted = -1004,      ///< no publisher vouches for it, this executor trusts no
                                   ///< publisher, or another file lies beside it
  kInstallUnknownStarter = -1005,  ///< neither a program nor an MSI package
  kInstallStillRunning = -1006,    ///< the installer had not ended after its limit; it goes on
  kInstallCannotStart = -1007,     ///< the system did not start the installer
  kInstallBadAddress = -1008,      ///< the file's address is of a kind that is not fetched
  kInstallFailed = -1009,          ///< something unforeseen; the log has it
};

/// Whether a code says that the new version is there: success, and success that wants a restart.
constexpr bool IsInstalled(int code) { return code == 0 || code == 3010 || code == 1641; }

/// Reads the recorded update once, decides, downloads, verifies, runs the installer and waits for
/// it. It runs only a file that the publisher vouches for; each refusal has a line of its own in
/// the log. After an installation the application's local record has the new version; no other
/// store is written. Takes the stores' locks only for a moment. Never throws. May block for the
/// time of a download (at most an hour, and a few minutes before that for the manifest) and of an
/// installer (at most 15 minutes), so no lock may be held that others wait for.
/// @param appId  the application, UTF-8
/// @return the installer's own code, which may be any number; the system's own where it demands
///         elevation that the update may not ask for (740) or the user refuses it (1223); or an
///         InstallCode.
int RunSilentUpdate(const std::string& appId);

/// One line for people: the publishers that this executor trusts.
std::string TrustStatus();

#endif  // KUPDATE_INSTALL_SILENT_UPDATE_H_
