#include "bench/windows/operations.h"

#include "util/win/unique.h"

#include <bits.h>
#include <comdef.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <utility>

#include "layout/names.h"
#include "testing/data_home.h"

_COM_SMARTPTR_TYPEDEF(IBackgroundCopyManager, __uuidof(IBackgroundCopyManager));
_COM_SMARTPTR_TYPEDEF(IBackgroundCopyJob, __uuidof(IBackgroundCopyJob));
_COM_SMARTPTR_TYPEDEF(IBackgroundCopyJob2, __uuidof(IBackgroundCopyJob2));
_COM_SMARTPTR_TYPEDEF(IEnumBackgroundCopyJobs, __uuidof(IEnumBackgroundCopyJobs));

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
// No server listens on this port, so the job stays in work until it is cancelled.
constexpr wchar_t kUrl[] = L"http://127.0.0.1:9/feed.xml";
constexpr std::size_t kLineChars = 90;

UniqueFile Open(const std::wstring& path, DWORD access, DWORD disposition) {
  return UniqueFile(::CreateFileW(path.c_str(), access, kShareAll, nullptr, disposition,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
}

// In the order of Op.
constexpr const char* kWords[] = {"log",   "read",    "open",      "miss",      "look",
                                  "write", "flush",   "replace",   "delete",    "copy",
                                  "mutex", "acquire", "release",   "close",     "event",
                                  "wait",  "program", "enter-com", "leave-com", "service"};

// Words for sequences that are part of many calls.
const std::map<std::string, const char*>& Groups() {
  static const std::map<std::string, const char*> groups = {
      {"enter", "log mutex acquire mutex open log close mutex"},
      {"leave", "close release close"},
      {"get", "acquire read release"},
      {"change", "acquire read save release"},
      {"save", "write flush replace"},
      {"report", "read log*3 miss log miss log miss log miss log read log miss log*2 change"},
      {"submit", "enter-com log*3 service log*10 leave-com"}};
  return groups;
}

void AddOps(const std::string& word, Ops* operations) {
  if (Groups().contains(word)) {
    const Ops group = OpsOf(Groups().at(word));
    operations->insert(operations->end(), group.begin(), group.end());
    return;
  }
  const std::size_t star = std::min(word.find('*'), word.size());
  const auto* const known = std::find(std::begin(kWords), std::end(kWords), word.substr(0, star));
  if (known == std::end(kWords)) {
    std::fprintf(stderr, "no such operation: %s\n", word.c_str());
    std::exit(2);
  }
  const int count = star < word.size() ? std::atoi(word.c_str() + star + 1) : 1;
  operations->insert(operations->end(), static_cast<std::size_t>(count),
                     static_cast<Op>(known - kWords));
}

void Put(const UniqueFile& file, const std::string& text) {
  DWORD written = 0;
  ::WriteFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

}  // namespace

Ops OpsOf(const std::string& trace) {
  Ops operations;
  std::istringstream words(trace);
  for (std::string word; words >> word;) AddOps(word, &operations);
  return operations;
}

std::string TraceOf(const Ops& operations) {
  std::string trace;
  for (const Op operation : operations) {
    trace.append(kWords[static_cast<std::size_t>(operation)]).append(" ");
  }
  return trace;
}

struct Bare::Service {
  IBackgroundCopyManagerPtr manager;
  IEnumBackgroundCopyJobsPtr jobs;
  IBackgroundCopyJobPtr job;
  IBackgroundCopyJob2Ptr job2;
  GUID id = {};
  std::wstring file;

  // Objects of the service must be gone before kLeaveCom: they cannot outlive COM.
  void LetGo() {
    job2 = nullptr;
    job = nullptr;
    jobs = nullptr;
    manager = nullptr;
  }
};

Bare::Bare(const std::filesystem::path& folder, std::string state, std::wstring program,
           std::wstring commandLine)
    : log_(folder / "bare.log"),
      present_(folder / "state.xml"),
      missing_(folder / "missing.xml"),
      fresh_(folder / "target.xml.new"),
      target_(folder / "target.xml"),
      line_(std::string(kLineChars, '.') + "\r\n"),
      state_(std::move(state)),
      program_(std::move(program)),
      commandLine_(std::move(commandLine)),
      service_(new Service) {
  std::filesystem::create_directories(folder);
  WriteBytes(present_, state_);
  service_->file = folder / "download.xml";
}

Bare::~Bare() { delete service_; }

void Bare::Prepare(const Demand& demand) {
  // Calls that begin with GetJob use the job of an earlier call.
  if (std::string_view(demand.service).find("GetJob") == std::string_view::npos) return;
  const Demand job{OpsOf("enter-com service leave-com"), "CreateInstance CreateJob AddFile Resume"};
  Meet(job);
}

void Bare::Meet(const Demand& demand) {
  calls_ = demand.service;
  for (const Op operation : demand.operations) Operation(operation);
  // Traces do not show that an event is closed, only mutexes.
  if (event_) ::CloseHandle(std::exchange(event_, nullptr));
}

void Bare::Operation(Op operation) {
  switch (operation) {
    case Op::kMutex:
    case Op::kAcquire:
    case Op::kRelease:
    case Op::kClose:
      return MutexOperation(operation);
    case Op::kEvent:
      event_ = ::CreateEventW(nullptr, FALSE, FALSE, ResultEventName("bench").c_str());
      return;
    case Op::kWait:
      ::WaitForSingleObject(event_, 0);
      return;
    case Op::kProgram:
      return StartProgram();
    case Op::kEnterCom:
      ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
      return;
    case Op::kLeaveCom:
      return ::CoUninitialize();
    case Op::kService:
      return UseService();
    default:
      return FileOperation(operation);
  }
}

void Bare::FileOperation(Op operation) {
  DWORD read = 0;
  switch (operation) {
    case Op::kLog:
      return Put(Open(log_, FILE_APPEND_DATA, OPEN_ALWAYS), line_);
    case Op::kRead: {
      const UniqueFile file = Open(present_, GENERIC_READ, OPEN_EXISTING);
      LARGE_INTEGER size;
      ::GetFileSizeEx(file.get(), &size);
      content_.resize(static_cast<std::size_t>(size.QuadPart));
      ::ReadFile(file.get(), content_.data(), static_cast<DWORD>(content_.size()), &read, nullptr);
      return;
    }
    case Op::kOpen:
      Open(present_, GENERIC_READ, OPEN_EXISTING);
      return;
    case Op::kMiss:
      Open(missing_, GENERIC_READ, OPEN_EXISTING);
      return;
    case Op::kLook: {
      WIN32_FIND_DATAW data;
      const UniqueFind find(::FindFirstFileW(missing_.c_str(), &data));
      return;
    }
    // Write, flush and replace come in this order and share one open file.
    case Op::kWrite:
      replacement_ = Open(fresh_, GENERIC_WRITE, CREATE_ALWAYS).release();
      ::WriteFile(replacement_, state_.data(), static_cast<DWORD>(state_.size()), &read, nullptr);
      return;
    case Op::kFlush:
      ::FlushFileBuffers(replacement_);
      return;
    case Op::kReplace:
      ::CloseHandle(replacement_);
      ::MoveFileExW(fresh_.c_str(), target_.c_str(),
                    MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
      return;
    case Op::kDelete:
      ::DeleteFileW(missing_.c_str());
      return;
    case Op::kCopy:
      ::CopyFileW(present_.c_str(), target_.c_str(), FALSE);
      return;
    default:
      return;
  }
}

void Bare::MutexOperation(Op operation) {
  switch (operation) {
    case Op::kMutex: {
      const std::wstring name = L"kupdate-bench-" + std::to_wstring(mutexes_.size());
      mutexes_.push_back(::CreateMutexW(nullptr, FALSE, name.c_str()));
      return;
    }
    case Op::kAcquire:
      ::WaitForSingleObject(mutexes_.back(), INFINITE);
      return;
    case Op::kRelease:
      ::ReleaseMutex(mutexes_.back());
      return;
    default:
      ::CloseHandle(mutexes_.back());
      mutexes_.pop_back();
  }
}

void Bare::StartProgram() {
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION started = {};
  // The system may write into the command line.
  std::wstring commandLine = commandLine_;
  if (!::CreateProcessW(program_.c_str(), commandLine.data(), nullptr, nullptr, FALSE,
                        CREATE_NO_WINDOW, nullptr, nullptr, &startup, &started)) {
    std::fprintf(stderr, "the bare program starts nothing: error %lu\n", ::GetLastError());
    std::exit(2);
  }
  // As the library waits: for an answer, or for the end of an executor that gives none.
  const HANDLE either[] = {event_, started.hProcess};
  ::WaitForMultipleObjects(2, either, FALSE, INFINITE);
  ::CloseHandle(started.hThread);
  ::CloseHandle(started.hProcess);
}

void Bare::UseService() {
  bool created = false;
  while (!calls_.empty()) {
    const std::string_view call = calls_.substr(0, calls_.find(' '));
    // The next object belongs to the next kService.
    if (call == "CreateInstance" && std::exchange(created, true)) break;
    const HRESULT result = ServiceCall(call);
    if (FAILED(result)) {
      std::fprintf(stderr, "the bare program's %s fails: 0x%08lX\n", std::string(call).c_str(),
                   static_cast<unsigned long>(result));
      std::exit(2);
    }
    calls_.remove_prefix(std::min(call.size() + 1, calls_.size()));
  }
  service_->LetGo();
}

HRESULT Bare::ServiceCall(std::string_view call) {
  Service& s = *service_;
  if (call == "CreateInstance") {
    return s.manager.CreateInstance(__uuidof(BackgroundCopyManager), nullptr, CLSCTX_ALL);
  }
  if (call == "EnumJobs") return s.manager->EnumJobs(0, &s.jobs);
  // Of an earlier job in the list, which a later GetState also asks.
  if (call == "GetDisplayName") {
    LPWSTR name = nullptr;
    const HRESULT result =
        s.jobs->Next(1, &s.job, nullptr) == S_OK ? s.job->GetDisplayName(&name) : E_FAIL;
    ::CoTaskMemFree(name);
    return result;
  }
  if (call == "CreateJob") {
    const HRESULT result = s.manager->CreateJob(L"bare", BG_JOB_TYPE_DOWNLOAD, &s.id, &s.job);
    return FAILED(result) ? result : s.job.QueryInterface(__uuidof(IBackgroundCopyJob2), &s.job2);
  }
  if (call == "GetJob") return s.manager->GetJob(s.id, &s.job);
  if (call == "AddFile") return s.job->AddFile(kUrl, s.file.c_str());
  if (call == "SetNoProgressTimeout") return s.job->SetNoProgressTimeout(86400);
  if (call == "SetPriority") return s.job->SetPriority(BG_JOB_PRIORITY_FOREGROUND);
  if (call == "SetNotifyFlags") {
    return s.job2->SetNotifyFlags(BG_NOTIFY_JOB_TRANSFERRED | BG_NOTIFY_JOB_ERROR);
  }
  if (call == "SetNotifyCmdLine") {
    return s.job2->SetNotifyCmdLine(program_.c_str(), commandLine_.c_str());
  }
  if (call == "Resume") return s.job->Resume();
  if (call == "Cancel") return s.job->Cancel();
  if (call == "Complete") return s.job->Complete();
  if (call == "GetProgress") {
    BG_JOB_PROGRESS progress = {};
    return s.job->GetProgress(&progress);
  }
  BG_JOB_STATE state = BG_JOB_STATE_QUEUED;
  return call == "GetState" ? s.job->GetState(&state) : E_NOTIMPL;
}

void CancelAllJobs() {
  ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  // A block of its own, which releases the objects before COM ends.
  {
    IBackgroundCopyManagerPtr manager;
    IEnumBackgroundCopyJobsPtr jobs;
    IBackgroundCopyJobPtr job;
    if (SUCCEEDED(manager.CreateInstance(__uuidof(BackgroundCopyManager), nullptr, CLSCTX_ALL)) &&
        SUCCEEDED(manager->EnumJobs(0, &jobs))) {
      while (jobs->Next(1, &job, nullptr) == S_OK) job->Cancel();
    }
  }
  ::CoUninitialize();
}
