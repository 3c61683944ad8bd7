// The library as its hosts meet it: a DLL that is loaded and called, and what it leaves in files,
// in the transfer service and in the log.
#ifndef KUPDATE_TESTING_DLL_CLIENT_H_
#define KUPDATE_TESTING_DLL_CLIENT_H_

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "dllkupdate.h"

namespace testing_dll {

/// The functions of the DLL that KUPDATE_DLL names, each found by its ordinal.
struct Exports {
  decltype(&DLLForceUpdateCheck) forceUpdateCheck;
  decltype(&DLLGetApplicationState) getApplicationState;
  decltype(&DLLGetOptionalParam) getOptionalParam;
  decltype(&DLLIsUpgradeAvailable) isUpgradeAvailable;
  decltype(&DLLOnApplicationStartup) onApplicationStartup;
  decltype(&DLLOnApplicationUninstall) onApplicationUninstall;
  decltype(&DLLSetApplicationState) setApplicationState;
  decltype(&DLLSetExecutorPath) setExecutorPath;
  decltype(&DLLSetOptionalParam) setOptionalParam;
  decltype(&DLLUsageReport) usageReport;
  decltype(&DLLDownloadAndInstallSilentUpdate) downloadAndInstallSilentUpdate;
  decltype(&DLLGetLocale) getLocale;
  decltype(&DLLGetUniqUserId) getUniqUserId;
  decltype(&DLLGetUniqueParam) getUniqueParam;
  decltype(&DLLIsUpdateAvailable) isUpdateAvailable;
  decltype(&DLLSetLocale) setLocale;
  decltype(&DLLSetUniqueParam) setUniqueParam;
};

/// Loads the DLL on first use; ends the program when it cannot.
const Exports& Dll();
/// The loaded module, an HMODULE.
void* DllModule();

/// A setting of the program's environment; empty when it is not there.
std::wstring Setting(const wchar_t* name);
std::string HttpUrl(std::string_view path);  ///< KUPDATE_HTTP and the path

std::filesystem::path RoamingFolder();  ///< "Krelix\Updater" in it
std::filesystem::path LocalFolder();    ///< "Krelix\Updater" in it
std::filesystem::path DataFolder();  ///< the stores': "Krelix\Updater" in the low-integrity folder
std::filesystem::path TempFolder();

/// Puts a file into the folder that the web server serves; returns its address.
std::string Publish(const std::string& name, std::string_view content);

/// The text of one value of a state file; empty when it is not there.
std::string ValueOf(const std::filesystem::path& file, const std::string& key);

/// What the DLL writes to this process's log from now on.
class DllLog {
 public:
  DllLog();
  /// Without times and source lines: "E:DLLSetLocale: AppId is empty.".
  std::vector<std::string> Lines() const;
  bool Has(std::string_view line) const;

 private:
  std::filesystem::path file_;
  std::size_t start_;
};

/// The stand-in transfer service: what it is told, and what it was asked. Control is reset in the
/// end.
class TransferService {
 public:
  explicit TransferService(std::string_view control = {});
  ~TransferService();

  void Control(std::string_view lines);
  /// The calls and events since this was made, without times, CreateInstance and GetState left out.
  std::vector<std::string> Journal() const;
  /// How many journal lines hold `text`.
  int Count(std::string_view text) const;
  /// Waits up to 20 seconds for a journal line that holds `text`.
  bool WaitFor(std::string_view text) const;

 private:
  std::string Text() const;

  std::size_t start_;
};

/// Asks every 20 ms until `done`, for up to 20 seconds.
bool Eventually(const std::function<bool()>& done);

/// Starts this program again as `--child arguments`; returns the process, an owned HANDLE.
void* StartChild(const std::wstring& arguments);
/// Waits for a child, closes it and returns its exit code.
unsigned EndOf(void* process);

}  // namespace testing_dll

#endif  // KUPDATE_TESTING_DLL_CLIENT_H_
