// The library as its hosts meet it: a DLL that is loaded and called, and what it leaves in files,
// in the transfer service and in the log.
#ifndef KUPDATE_TESTING_DLL_CLIENT_H_
#define KUPDATE_TESTING_DLL_CLIENT_H_

#include "dllkupdate.h"
#include "testing/log_capture.h"
#include "testing/transfer_service.h"

namespace testing_dll {

/// The loaded module, an HMODULE, of the DLL that KUPDATE_DLL names; ends the program when it
/// cannot be loaded.
void* DllModule();

/// A function of the DLL by its ordinal; becomes a pointer of the type that is asked for.
struct Export {
  int ordinal;

  void* Address() const;
  template <class Function>
  operator Function*() const {
    return reinterpret_cast<Function*>(Address());
  }
};

/// One member for each line of scripts/exports.txt: "DLLSetLocale" is setLocale.
struct Exports {
#include "dll_exports.inc"
};

/// Loads the DLL on first use.
const Exports& Dll();
/// What one of the functions copies out for an application.
std::string TextFrom(decltype(&DLLGetLocale) getter, const char* appId);

std::filesystem::path RoamingFolder();  ///< "Krelix\Updater" in it
std::filesystem::path LocalFolder();    ///< "Krelix\Updater" in it
std::filesystem::path DataFolder();  ///< the stores': "Krelix\Updater" in the low-integrity folder

/// The text of one value of a state file; empty when it is not there.
std::string ValueOf(const std::filesystem::path& file, const std::string& key);

/// An application of version 1.0.0.0.
struct App {
  std::string appId;

  /// Registers, which starts what is due.
  kupdate_status Start() const;
  /// One of the application's files, and a value of its record.
  std::filesystem::path File(std::string_view name) const { return DataFolder() / appId / name; }
  std::string Record(const char* key) const { return ValueOf(File("appinfo.xml"), key); }
};

/// What the DLL writes to this process's log, which the tests' first call has named.
struct DllLog : LogCapture {
  DllLog() : LogCapture(RoamingFolder() / "kupdate-exec-first.log") {}
};

}  // namespace testing_dll

#endif  // KUPDATE_TESTING_DLL_CLIENT_H_
