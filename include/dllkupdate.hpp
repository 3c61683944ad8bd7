// The update client for programs in C++17, over dllkupdate.h. Header only; nothing is linked.
//
//   kupdate::Settings settings;
//   settings.id = "demo";
//   settings.platform = "win64";
//   settings.version = {1, 0, 0, 0};
//   settings.feed = "https://example.com/demo/version.rss";
//   kupdate::Updater updater(settings);
//   updater.start();
//   if (updater.check(std::chrono::minutes(1)) == kupdate::CheckResult::kFound) {
//     const kupdate::Installation done = updater.install().get();
//   }
//
// Texts are std::string in UTF-8 without zeros inside. Errors are results: only constructors throw
// kupdate::Error. Any function may throw std::bad_alloc, since it makes texts. The reason of a
// failure is in the log, "%APPDATA%\Krelix\Updater\kupdate-exec-<id>.log". Calls block for a few
// milliseconds, or until another process's call for the same application has ended, unless a
// comment says more. The library's functions may be called from any thread, but not from DllMain.
#ifndef DLLKUPDATE_HPP_
#define DLLKUPDATE_HPP_

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <future>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#if defined(__has_include) && __cplusplus >= 202002L
#if __has_include(<stop_token>)
#include <stop_token>
#endif
#endif

#include "dllkupdate.h"

namespace kupdate {

/// Four numbers of 16 bits, the highest first.
using Version = std::array<std::uint16_t, 4>;

/// Between UTF-8 and UTF-16. U+FFFD replaces what is broken.
inline std::wstring Wide(const std::string& utf8) {
  const auto size = static_cast<int>(utf8.size());
  std::wstring wide(utf8.size(), L'\0');
  wide.resize(static_cast<std::size_t>(
      MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, wide.data(), size)));
  return wide;
}
inline std::string Utf8(const std::wstring& wide) {
  const auto size = static_cast<int>(wide.size());
  std::string utf8(3 * wide.size(), '\0');
  utf8.resize(static_cast<std::size_t>(
      WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, utf8.data(), 3 * size, nullptr, nullptr)));
  return utf8;
}

/// Why the library cannot be used. `what()` is for a log, in English.
class Error : public std::runtime_error {
 public:
  Error(const std::string& text, DWORD systemError)
      : std::runtime_error(text + ", system error " + std::to_string(systemError)),
        systemError_(systemError) {}
  /// As of GetLastError.
  DWORD systemError() const noexcept { return systemError_; }

 private:
  DWORD systemError_;
};

/// The loaded library, with its 17 functions as dllkupdate.h describes them. It stays loaded until the
/// process ends, so copies are cheap and the pointers are always valid. Two files are two
/// libraries: each has its own running check.
class Library {
 public:
  /// Loads the file; never one of another folder, as a bare name would. A path that is not absolute
  /// counts from the program's own folder.
  /// Throws Error when the file cannot be loaded or lacks a function.
  explicit Library(const std::filesystem::path& file = L"dllkupdate.dll")
      : module_(Load(ProgramFolder() / file)) {}

  /// The version of the loaded file, from its version resource; zeros without one. It may be another
  /// than that of the header: functions keep their names, numbers and parameters for ever.
  Version version() const noexcept {
    // A VS_VERSIONINFO: three words, the name and its zero, filled up to four bytes.
    constexpr DWORD kFixedInfo = 40;
    const HRSRC found = FindResourceW(module_, MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(16));
    const HGLOBAL loaded = found ? LoadResource(module_, found) : nullptr;
    if (!loaded || SizeofResource(module_, found) < kFixedInfo + sizeof(VS_FIXEDFILEINFO)) {
      return {};
    }
    VS_FIXEDFILEINFO info;
    std::memcpy(&info, static_cast<const char*>(LockResource(loaded)) + kFixedInfo, sizeof info);
    return {HIWORD(info.dwFileVersionMS), LOWORD(info.dwFileVersionMS),
            HIWORD(info.dwFileVersionLS), LOWORD(info.dwFileVersionLS)};
  }

 private:
  /// A function that becomes a pointer of the type that is asked for.
  struct Found {
    FARPROC function;
    template <class Function>
    operator Function*() const noexcept {
      Function* typed;
      static_assert(sizeof typed == sizeof function);
      std::memcpy(&typed, &function, sizeof typed);
      return typed;
    }
  };

  /// Of the program's own file; empty when the system does not say it.
  static std::filesystem::path ProgramFolder() {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
      const DWORD length =
          GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
      if (length < path.size()) {
        return std::filesystem::path(path.substr(0, length)).parent_path();
      }
      path.resize(2 * path.size());
    }
  }

  static HMODULE Load(const std::filesystem::path& file) {
    // The system would search for a bare name, and could find a foreign file.
    SetLastError(ERROR_BAD_PATHNAME);
    const HMODULE module =
        file.is_absolute() ? LoadLibraryExW(file.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH)
                           : nullptr;
    if (!module) {
      const DWORD error = GetLastError();
      throw Error("cannot load " + Utf8(file.native()), error);
    }
    return module;
  }

  Found Find(const char* name) const {
    const FARPROC function = GetProcAddress(module_, name);
    if (!function) throw Error(std::string("the library has no ") + name, ERROR_PROC_NOT_FOUND);
    return {function};
  }

  HMODULE module_;

 public:
  decltype(&DLLForceUpdateCheck) forceUpdateCheck = Find("DLLForceUpdateCheck");
  decltype(&DLLGetApplicationState) getApplicationState = Find("DLLGetApplicationState");
  decltype(&DLLGetOptionalParam) getOptionalParam = Find("DLLGetOptionalParam");
  decltype(&DLLIsUpgradeAvailable) isUpgradeAvailable = Find("DLLIsUpgradeAvailable");
  decltype(&DLLOnApplicationStartup) onApplicationStartup = Find("DLLOnApplicationStartup");
  decltype(&DLLOnApplicationUninstall) onApplicationUninstall = Find("DLLOnApplicationUninstall");
  decltype(&DLLSetApplicationState) setApplicationState = Find("DLLSetApplicationState");
  decltype(&DLLSetExecutorPath) setExecutorPath = Find("DLLSetExecutorPath");
  decltype(&DLLSetOptionalParam) setOptionalParam = Find("DLLSetOptionalParam");
  decltype(&DLLUsageReport) usageReport = Find("DLLUsageReport");
  decltype(&DLLDownloadAndInstallSilentUpdate) downloadAndInstallSilentUpdate =
      Find("DLLDownloadAndInstallSilentUpdate");
  decltype(&DLLGetLocale) getLocale = Find("DLLGetLocale");
  decltype(&DLLGetUniqUserId) getUniqUserId = Find("DLLGetUniqUserId");
  decltype(&DLLGetUniqueParam) getUniqueParam = Find("DLLGetUniqueParam");
  decltype(&DLLIsUpdateAvailable) isUpdateAvailable = Find("DLLIsUpdateAvailable");
  decltype(&DLLSetLocale) setLocale = Find("DLLSetLocale");
  decltype(&DLLSetUniqueParam) setUniqueParam = Find("DLLSetUniqueParam");
};

/// What an Updater is about. All but the first four have a default.
struct Settings {
  std::string id;        ///< dllkupdate.h says which are safe
  std::string platform;  ///< compared exactly with the feed's, such as "win64"
  Version version = {};  ///< of the running program
  std::string feed;      ///< address of the feed; empty: no checks
  std::string report;    ///< address for the reports; empty: none
  std::chrono::seconds reportPeriod = std::chrono::hours(24);  ///< at least an hour
  bool release = true;                                         ///< false for a beta
  std::filesystem::path library = L"dllkupdate.dll";           ///< as for Library
  std::filesystem::path executor = {};  ///< full path; empty: the per-user default
};

enum class CheckResult {
  kFound,           ///< a newer version is published
  kNoUpdate,        ///< none is
  kDownloadFailed,  ///< the server refused the feed
  kFailed,          ///< the transfer service refused, or the feed cannot be read: see the log
  kTimedOut,        ///< no answer in time, such as from a server that is away
  kStopped,         ///< by the caller
};

/// How an installation ended.
struct Installation {
  /// Whether there was an answer: an update was known and the executor ran to its end.
  bool answered = false;
  /// The installer's; below zero when it was refused, see docs/publishing.md.
  std::int32_t exitCode = 0;

  /// The three codes of success of Windows' installers; two of them ask for a restart.
  bool succeeded() const noexcept {
    return answered && (exitCode == 0 || exitCode == 1641 || exitCode == 3010);
  }
};

/// Keeps one application up to date. A process has one check per library: use one Updater, and only
/// one of check() and install() at a time. The others may run on any thread meanwhile. Functions of
/// the library that have no method here are members of library().
class Updater {
 public:
  /// Throws Error when the library cannot be loaded.
  explicit Updater(Settings settings)
      : settings_(std::move(settings)), library_(settings_.library) {
    if (!settings_.executor.empty()) library_.setExecutorPath(settings_.executor.c_str());
  }

  const Settings& settings() const noexcept { return settings_; }
  const Library& library() const noexcept { return library_; }

  // In the next functions false means that the call failed.

  /// Registers the running version, and sends the report and queues the check that are due. Comes
  /// first, at each start of the program.
  bool start() {
    const Version& v = settings_.version;
    return Ok(library_.onApplicationStartup(
        id(), settings_.platform.c_str(), settings_.feed.c_str(), settings_.report.c_str(),
        ReportSeconds(), v[0], v[1], v[2], v[3], settings_.release));
  }
  /// Reports the removal; start() takes it back.
  bool uninstall() { return Ok(library_.onApplicationUninstall(id())); }
  /// @param parameter  a query item such as "tool=1", already encoded; not empty
  bool reportUse(const std::string& parameter) {
    return Ok(library_.usageReport(id(), parameter.c_str()));
  }
  bool setLocale(const std::string& locale) { return Ok(library_.setLocale(id(), locale.c_str())); }
  /// @param parameter  for the next report, a query item, already encoded
  bool setOptionalParam(const std::string& parameter) {
    return Ok(library_.setOptionalParam(id(), parameter.c_str()));
  }
  /// @param name  a query key, already encoded
  bool setUniqueParam(const std::string& name, const std::string& value) {
    return Ok(library_.setUniqueParam(id(), name.c_str(), Wide(value).c_str()));
  }
  /// Queues a check by the executor, due or not, and a report.
  bool forceCheck(bool askedByUser) { return Ok(library_.forceUpdateCheck(id(), askedByUser)); }

  // Empty when the call failed; the empty text when there is no value.

  std::optional<std::string> locale() const { return Text(library_.getLocale); }
  /// The last reported state: "install", "dayuse" or "uninstall".
  std::optional<std::string> state() const { return Text(library_.getApplicationState); }
  std::optional<std::string> optionalParam() const { return Text(library_.getOptionalParam); }
  std::optional<std::string> uniqueParam(const std::string& name) const {
    const auto value = CopyOut<wchar_t>([&](wchar_t* buffer, std::int32_t* size) {
      return library_.getUniqueParam(id(), name.c_str(), buffer, size);
    });
    return value ? std::optional(Utf8(*value)) : std::nullopt;
  }
  /// The id that all applications of the user share; "{none}" without one. Not for two threads at
  /// once.
  std::string userId() const { return library_.getUniqUserId(); }

  /// Downloads the feed and compares it. Blocks until there is a result, at most as long as
  /// `timeout`, for which a job waits while the server is away.
  /// @param goOn  asked about five times a second, on this thread; false stops the check. What it
  ///              throws passes through, after the check was stopped.
  CheckResult check(std::chrono::milliseconds timeout, const std::function<bool()>& goOn = {}) {
    constexpr std::chrono::milliseconds kPoll(200);
    const auto begin = std::chrono::steady_clock::now();
    std::int32_t status = KUPDATE_IN_WORK;
    if (!Step("start", &status)) return CheckResult::kFailed;
    const StopAtEnd stop{this, &status};
    for (;;) {
      if (!Step("check", &status)) return CheckResult::kFailed;
      if (status == KUPDATE_FOUND) return CheckResult::kFound;
      if (status == KUPDATE_NO_UPDATE) return CheckResult::kNoUpdate;
      if (status != KUPDATE_IN_WORK) return CheckResult::kDownloadFailed;
      if (goOn && !goOn()) return CheckResult::kStopped;
      if (std::chrono::steady_clock::now() - begin >= timeout) return CheckResult::kTimedOut;
      std::this_thread::sleep_for(kPoll);
    }
  }
#if defined(__cpp_lib_jthread)
  CheckResult check(std::chrono::milliseconds timeout, const std::stop_token& stop) {
    return check(timeout, [&] { return !stop.stop_requested(); });
  }
#endif

  /// Starts the installation of the update that the last check() found, on a thread of its own, and
  /// returns at once. Neither the future nor this object needs to live until it ends. The executor
  /// and the installer go on when the program ends.
  std::future<Installation> install() {
    std::packaged_task<Installation()> task([install = library_.downloadAndInstallSilentUpdate] {
      Installation result;
      result.answered = Ok(install(&result.exitCode));
      return result;
    });
    std::future<Installation> result = task.get_future();
    try {
      std::thread(std::move(task)).detach();
    } catch (const std::system_error&) {
      // The system has no thread left.
      std::promise<Installation> none;
      none.set_value({});
      result = none.get_future();
    }
    return result;
  }

 private:
  /// Ends a check that is in work.
  struct StopAtEnd {
    Updater* updater;
    const std::int32_t* status;
    ~StopAtEnd() {
      if (*status == KUPDATE_IN_WORK) updater->Step("stop", nullptr);
    }
  };

  static bool Ok(kupdate_status status) noexcept { return status == KUPDATE_S_OK; }
  const char* id() const noexcept { return settings_.id.c_str(); }

  std::int32_t ReportSeconds() const {
    return static_cast<std::int32_t>(
        std::min<std::chrono::seconds::rep>(settings_.reportPeriod.count(), 0x7FFFFFFF));
  }

  bool Step(const char* operation, std::int32_t* status) {
    const Version& v = settings_.version;
    return Ok(library_.isUpdateAvailable(id(), settings_.platform.c_str(), v[0], v[1], v[2], v[3],
                                         settings_.release, settings_.feed.c_str(), operation,
                                         status));
  }

  /// Asks again with a larger buffer; another process may have set a longer value in between.
  template <class Char, class Getter>
  static std::optional<std::basic_string<Char>> CopyOut(const Getter& getter) {
    std::basic_string<Char> text(64, Char());
    for (;;) {
      auto size = static_cast<std::int32_t>(text.size());
      if (!Ok(getter(text.data(), &size))) return std::nullopt;
      if (size <= static_cast<std::int32_t>(text.size())) return text.c_str();
      text.resize(static_cast<std::size_t>(size));
    }
  }

  std::optional<std::string> Text(decltype(&DLLGetLocale) getter) const {
    return CopyOut<char>(
        [&](char* buffer, std::int32_t* size) { return getter(id(), buffer, size); });
  }

  Settings settings_;
  Library library_;
};

}  // namespace kupdate

#endif  // DLLKUPDATE_HPP_
