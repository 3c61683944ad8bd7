#include "standin/server.h"

#include <chrono>

#include "standin/com_manager.h"
#include "standin/service.h"
#include "util/handle.h"
#include "util/win/windows_lean.h"
// After the system's header, which it needs.
#include <bits.h>

namespace standin {
namespace {

// Global: the server may be started in another session than the one --stop is called in.
constexpr wchar_t kRunningMutex[] = L"Global\\kupdate-standin-running";
constexpr wchar_t kStopEvent[] = L"Global\\kupdate-standin-stop";
constexpr DWORD kHandOverMilliseconds = 15'000;
constexpr DWORD kLookRoundMilliseconds = 100;

bool IsOwned(DWORD waitResult) {
  return waitResult == WAIT_OBJECT_0 || waitResult == WAIT_ABANDONED;
}

// Held while the process runs, so that there is one server and its end can be waited for.
class RunningMutex {
 public:
  RunningMutex() : mutex_(::CreateMutexW(nullptr, FALSE, kRunningMutex)) {
    held_ = IsOwned(::WaitForSingleObject(mutex_.get(), kHandOverMilliseconds));
  }
  ~RunningMutex() {
    if (held_) ::ReleaseMutex(mutex_.get());
  }
  RunningMutex(const RunningMutex&) = delete;
  RunningMutex& operator=(const RunningMutex&) = delete;

  bool held() const { return held_; }

 private:
  UniqueHandle mutex_;
  bool held_ = false;
};

void ServeUntilUnused(Service& service, const UniqueHandle& stop) {
  using Clock = std::chrono::steady_clock;
  Clock::time_point lastUse = Clock::now();
  while (::WaitForSingleObject(stop.get(), kLookRoundMilliseconds) == WAIT_TIMEOUT) {
    if (service.lifetime.InUse() || !service.jobs.Live().empty()) lastUse = Clock::now();
    const std::chrono::seconds linger(service.control.LingerSeconds());
    if (Clock::now() - lastUse >= linger) return;
  }
}

HResult Serve(Service& service, const UniqueHandle& stop) {
  IClassFactory* const factory = NewManagerFactory(service);
  DWORD cookie = 0;
  const HResult registered = ::CoRegisterClassObject(
      __uuidof(BackgroundCopyManager), factory, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE, &cookie);
  if (SUCCEEDED(registered)) {
    service.journal.Write(JsonLine().Text("event", "start").Number("pid", ::GetCurrentProcessId()));
    ServeUntilUnused(service, stop);
    ::CoRevokeClassObject(cookie);
  }
  factory->Release();
  return registered;
}

}  // namespace

int RunServer(const std::wstring& folder) {
  // Leaked on purpose: transfers that still wait for a silent server may outlast this function.
  Service& service = *new Service(folder);
  const RunningMutex running;
  if (!running.held()) return 0;
  const UniqueHandle stop(::CreateEventW(nullptr, TRUE, FALSE, kStopEvent));
  HResult result =
      stop ? ::CoInitializeEx(nullptr, COINIT_MULTITHREADED) : CodeOfSystemError(::GetLastError());
  if (SUCCEEDED(result)) result = Serve(service, stop);
  if (FAILED(result)) service.journal.Problem("the server cannot run: " + CodeText(result));
  // Jobs live as long as the server, and so do their files.
  for (const std::shared_ptr<Job>& job : service.jobs.Live()) job->DiscardFiles();
  service.journal.Write(JsonLine().Text("event", "stop"));
  service.journal.Close();
  return SUCCEEDED(result) ? 0 : 1;
}

unsigned long StopServer() {
  const UniqueHandle stop(::OpenEventW(EVENT_MODIFY_STATE, FALSE, kStopEvent));
  if (!stop) return ERROR_SUCCESS;
  ::SetEvent(stop.get());
  const RunningMutex ended;
  return ended.held() ? ERROR_SUCCESS : ERROR_TIMEOUT;
}

}  // namespace standin
