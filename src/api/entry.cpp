#include "api/entry.h"

#include "util/win/windows_lean.h"

#include <comdef.h>

#include <exception>
#include <utility>

#include "appinfo/app_info.h"
#include "layout/file_names.h"
#include "layout/keys.h"
#include "layout/log_start.h"
#include "layout/names.h"
#include "stat/uuid.h"
#include "transfer/com_error.h"
#include "util/diag_log.h"
#include "util/files.h"
#include "util/log_line.h"
#include "util/mutex.h"
#include "util/process.h"

namespace {

// The state that lives as long as the process. Hosts are expected to call from one thread; for
// those that do not, the guard keeps the texts whole.
struct ProcessState {
  CriticalSection guard;
  std::string lastErrorText;
  bool logStarted = false;
  std::string currentAppId;
  std::wstring executorPathOverride;
  std::string uniqUserId;
};

// Made at the first call and leaked on purpose: the end of a process is no time to work.
ProcessState& State() {
  static ProcessState& state = *new ProcessState;
  return state;
}

// The log level is read while the module is loaded, because the first line may come from anywhere.
[[maybe_unused]] const bool logLevelLoaded = (LoadLogLevel(), true);

Status Report(const char* exportName, const char* kind, const std::string& text) {
  ProcessState& state = State();
  {
    const CriticalScope scope(state.guard);
    state.lastErrorText.append(exportName).append(": ").append(text);
  }
  LogAs(exportName, __LINE__, "D:") << kind;
  return kFail;
}

}  // namespace

void ClearLastErrorText() {
  ProcessState& state = State();
  const CriticalScope scope(state.guard);
  state.lastErrorText.clear();
}

void StartLogOnce(const char* appId) {
  ProcessState& state = State();
  {
    const CriticalScope scope(state.guard);
    if (state.logStarted) return;
    state.logStarted = true;
  }
  // From the first call on: the state above must outlive a host that frees the library and loads it
  // again.
  PinThisModule();
  // Without the guard, since this reads files and takes the lock of the log.
  StartLog(LogFile(appId ? appId : ""), {});
  JustUtil::OutBanner();
}

void Enter(const char* exportName, const char* appId) {
  ClearLastErrorText();
  LogAs(exportName, __LINE__, "D:") << "in";
  StartLogOnce(appId);
}

Status ReportCaught(const char* exportName) noexcept {
  try {
    try {
      // cppcheck-suppress rethrowNoCurrentException  ; called in handlers only
      throw;
    } catch (const std::exception& error) {
      return Report(exportName, "exc", error.what());
    } catch (const _com_error& error) {
      return Report(exportName, "COM", ComErrorText(error));
    } catch (...) {
      return Report(exportName, "unk", "unknown exception");
    }
  } catch (...) {
    return kFail;  // no memory even for the report
  }
}

bool CheckAppId(const char* exportName, const char* appId) {
  if (!appId) LogAs(exportName, __LINE__, "E:") << "AppId is empty.";
  return appId != nullptr;
}

Mutex ApplicationMutex(const std::string& appId) { return Mutex(StatisticsMutexName(appId)); }

void InitAppId(const std::string& appId) {
  const TAppInfo store(appId);
  ProcessState& state = State();
  {
    const CriticalScope scope(state.guard);
    state.currentAppId = appId;
  }
  const bool known = FileSystem::IsFileExist(store.Path());
  LOG_D << "State:" << (known ? "Update" : "Install");
  // The caller holds the application's mutex, so no other process records the install as well.
  if (!known) TUpdaterController().SetApplicationState(appId.c_str(), "install");
}

void FixUpdaterPath(TAppInfo* store) {
  std::string appId;
  std::wstring path;
  {
    ProcessState& state = State();
    const CriticalScope scope(state.guard);
    appId = state.currentAppId;
    path = state.executorPathOverride;
  }
  if (appId.empty() || path.empty()) return;
  const std::string value = NarrowUtf8(path);
  // An open record gathers this value with the others of the call.
  store ? store->Write(key::kUpdaterPath, value) : TAppInfo(appId).Write(key::kUpdaterPath, value);
  LOG_D << "Fix" << appId << "with" << path;
}

void OverrideExecutorPath(const wchar_t* path) {
  ProcessState& state = State();
  const CriticalScope scope(state.guard);
  state.executorPathOverride = path;
}

const char* KeepUniqUserId() noexcept {
  try {
    PinThisModule();
    std::string id = TUuid::ReadUniqUserId();
    ProcessState& state = State();
    const CriticalScope scope(state.guard);
    state.uniqUserId = std::move(id);
    return state.uniqUserId.c_str();
  } catch (...) {
    return "{none}";  // no memory for the id
  }
}

TUpdaterController& GlobalController() {
  static TUpdaterController& controller = *new TUpdaterController;
  return controller;
}
