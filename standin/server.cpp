#include "standin/server.h"

#include <chrono>

#include "standin/com_manager.h"
#include "standin/interface_pins.h"
#include "standin/service.h"
#include "standin/transfer.h"
#include "util/handle.h"
#include "util/win/windows_lean.h"
// After the system's header, which it needs.
#include <bits.h>

namespace standin {
namespace {

// Global: the server may be started in another session than the one --stop is called in.
constexpr wchar_t kRunningMutex[] = L"Global\\kupdate-standin-running";  // held by the server
constexpr wchar_t kStopEvent[] = L"Global\\kupdate-standin-stop";        // set by --stop

// Clients that come at the same time may each have a server started, and each gives up when the one
// it had started ends before it got in. So one that is not needed stays for a while; a client looks
// again every second. If meanwhile the serving one ends, it takes over.
constexpr DWORD kSpareMilliseconds = 5'000;
constexpr DWORD kStopMilliseconds = 15'000;
constexpr DWORD kLookRoundMilliseconds = 100;

bool IsOwned(DWORD waitResult) {
  return waitResult == WAIT_OBJECT_0 || waitResult == WAIT_ABANDONED;
}

// Held by the process that serves, so that there is only one and its end can be waited for.
class RunningMutex {
 public:
  RunningMutex() : mutex_(::CreateMutexW(nullptr, FALSE, kRunningMutex)) {}
  ~RunningMutex() {
    if (held_) ::ReleaseMutex(mutex_.get());
  }
  RunningMutex(const RunningMutex&) = delete;
  RunningMutex& operator=(const RunningMutex&) = delete;

  bool Take(DWORD milliseconds) {
    held_ = IsOwned(::WaitForSingleObject(mutex_.get(), milliseconds));
    return held_;
  }

 private:
  UniqueHandle mutex_;
  bool held_ = false;
};

bool InUse(Service& service) { return service.lifetime.InUse() || !service.jobs.Live().empty(); }

// Returns whether it was asked to stop.
bool WaitUntilUnused(Service& service, const UniqueHandle& stop) {
  using Clock = std::chrono::steady_clock;
  Clock::time_point lastUse = Clock::now();
  while (::WaitForSingleObject(stop.get(), kLookRoundMilliseconds) == WAIT_TIMEOUT) {
    const std::chrono::seconds linger(service.control.LingerSeconds());
    if (InUse(service)) {
      lastUse = Clock::now();
    } else if (Clock::now() - lastUse >= linger) {
      return false;
    }
  }
  return true;
}

// What the last server left undone goes on.
void TakeUpJobs(Service& service) {
  service.jobs.Load();
  for (const std::shared_ptr<Job>& job : service.jobs.Live()) {
    const std::optional<Job::Run> run = job->TakeUp();
    if (run) StartTransfer(service, job, *run);
  }
}

HResult Serve(Service& service, const UniqueHandle& stop) {
  TakeUpJobs(service);
  IClassFactory* const factory = NewManagerFactory(service);
  HResult registered = S_OK;
  bool stopped = false;
  // A client may have come in before the class was taken back: then it goes on.
  do {
    DWORD cookie = 0;
    registered = ::CoRegisterClassObject(__uuidof(BackgroundCopyManager), factory,
                                         CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE, &cookie);
    if (FAILED(registered)) break;
    stopped = WaitUntilUnused(service, stop);
    ::CoRevokeClassObject(cookie);
  } while (!stopped && InUse(service));
  factory->Release();
  return registered;
}

}  // namespace

int RunServer(const std::wstring& folder) {
  RunningMutex running;
  if (!running.Take(kSpareMilliseconds)) return 0;
  const UniqueHandle stop(::CreateEventW(nullptr, TRUE, FALSE, kStopEvent));
  // Leaked on purpose: transfers that still wait for a silent server may outlast this function.
  Service& service = *new Service(folder);
  service.journal.Write(JsonLine().Text("event", "start").Number("pid", ::GetCurrentProcessId()));
  HResult result = ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  if (SUCCEEDED(result)) result = PinInterfaces();
  if (SUCCEEDED(result)) result = Serve(service, stop);
  if (FAILED(result)) service.journal.Problem("the server cannot run: " + CodeText(result));
  for (const std::shared_ptr<Job>& job : service.jobs.Live()) job->Rest();
  service.journal.Write(JsonLine().Text("event", "stop"));
  service.journal.Close();
  return SUCCEEDED(result) ? 0 : 1;
}

unsigned long StopServer() {
  const UniqueHandle stop(::OpenEventW(EVENT_MODIFY_STATE, FALSE, kStopEvent));
  if (!stop) return ERROR_SUCCESS;
  ::SetEvent(stop.get());
  return RunningMutex().Take(kStopMilliseconds) ? ERROR_SUCCESS : ERROR_TIMEOUT;
}

void ForgetJobs(const std::wstring& folder) { ::DeleteFileW((folder + kJobFileName).c_str()); }

}  // namespace standin
