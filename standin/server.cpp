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

// Global: --stop may be called in another session than the server's.
constexpr wchar_t kRunningMutex[] = L"Global\\kupdate-standin-running";  // held by the server
constexpr wchar_t kStopEvent[] = L"Global\\kupdate-standin-stop";        // set by --stop

// For clients that come at the same time the system may start a server each. A client looks for the
// class every second, and gives up when the server that was started for it ends. So a spare server
// waits for a while before it ends. If the serving one ends meanwhile, the spare one takes over.
constexpr DWORD kSpareMilliseconds = 5'000;
constexpr DWORD kStopMilliseconds = 15'000;
constexpr DWORD kLookRoundMilliseconds = 100;

// An abandoned mutex is owned too: the last server was killed, and its jobs are in their file.
bool IsOwned(DWORD waitResult) {
  return waitResult == WAIT_OBJECT_0 || waitResult == WAIT_ABANDONED;
}

// The serving process holds it: then there is only one, and others can wait for its end.
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

// A job that has not ended needs the server even without a client: it may have to start a program.
bool InUse(Service& service) { return service.lifetime.InUse() || !service.jobs.Live().empty(); }

// Returns true after --stop, false when the server has been unused for the lingering time.
bool WaitUntilUnused(Service& service, const UniqueHandle& stop) {
  using Clock = std::chrono::steady_clock;
  Clock::time_point lastUse = Clock::now();
  while (::WaitForSingleObject(stop.get(), kLookRoundMilliseconds) == WAIT_TIMEOUT) {
    // Read in each round: a test may shorten it while the server waits.
    const std::chrono::seconds linger(service.control.LingerSeconds());
    if (InUse(service)) {
      lastUse = Clock::now();
    } else if (Clock::now() - lastUse >= linger) {
      return false;
    }
  }
  return true;
}

// Continues the jobs of the last server.
void TakeUpJobs(Service& service) {
  service.jobs.Load();
  for (const std::shared_ptr<Job>& job : service.jobs.Live()) {
    const std::optional<Job::Run> run = job->TakeUp();
    if (run) StartTransfer(service, job, *run);
  }
}

HResult Serve(Service& service, const UniqueHandle& stop) {
  // Before the class is there: the first client must find the jobs in their new states.
  TakeUpJobs(service);
  IClassFactory* const factory = NewManagerFactory(service);
  HResult registered = S_OK;
  bool stopped = false;
  // A client may come between the last look and the end of the class. Then the server goes on.
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
  // Made under the mutex, so it is the event of the one server that serves.
  const UniqueHandle stop(::CreateEventW(nullptr, TRUE, FALSE, kStopEvent));
  // Leaked on purpose: a transfer that still waits for a silent web server outlives this function.
  Service& service = *new Service(folder);
  service.journal.Write(JsonLine().Text("event", "start").Number("pid", ::GetCurrentProcessId()));
  // Multithreaded: the calls of several clients run at once, so each part has a lock of its own.
  HResult result = ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  if (SUCCEEDED(result)) result = PinInterfaces();
  if (SUCCEEDED(result)) result = Serve(service, stop);
  if (FAILED(result)) service.journal.Problem("the server cannot run: " + CodeText(result));
  // Ends the runs, so that no transfer changes a job or its files after the line below.
  for (const std::shared_ptr<Job>& job : service.jobs.Live()) job->Rest();
  service.journal.Write(JsonLine().Text("event", "stop"));
  service.journal.Close();
  return SUCCEEDED(result) ? 0 : 1;
}

unsigned long StopServer() {
  // The server makes the event, so without the event there is no server.
  const UniqueHandle stop(::OpenEventW(EVENT_MODIFY_STATE, FALSE, kStopEvent));
  if (!stop) return ERROR_SUCCESS;
  ::SetEvent(stop.get());
  // The server holds this mutex to its end.
  return RunningMutex().Take(kStopMilliseconds) ? ERROR_SUCCESS : ERROR_TIMEOUT;
}

void ForgetJobs(const std::wstring& folder) { ::DeleteFileW((folder + kJobFileName).c_str()); }

}  // namespace standin
