#include "transfer/job_list.h"

#include "transfer/bits_interfaces.h"
#include "transfer/com_functions.h"
#include "util/text.h"
#include "util/win/file_time.h"

_COM_SMARTPTR_TYPEDEF(IEnumBackgroundCopyJobs, __uuidof(IEnumBackgroundCopyJobs));
_COM_SMARTPTR_TYPEDEF(IBackgroundCopyError, __uuidof(IBackgroundCopyError));

namespace {

constexpr wchar_t kDisplayName[] = L"Kupdate-task";

// Takes over a text that the service allocated.
std::wstring Taken(LPWSTR text) {
  std::wstring result = text ? text : L"";
  com::CoTaskMemFree(text);
  return result;
}

bool IsOurs(const IBackgroundCopyJobPtr& job) {
  LPWSTR name = nullptr;
  return SUCCEEDED(job->GetDisplayName(&name)) && Taken(name) == kDisplayName;
}

template <class Visit>
void ForEachOwnJob(const IBackgroundCopyManagerPtr& manager, Visit visit) {
  IEnumBackgroundCopyJobsPtr jobs;
  hrcheck() = manager->EnumJobs(0, &jobs);
  IBackgroundCopyJobPtr job;
  while (jobs->Next(1, &job, nullptr) == S_OK) {
    if (IsOurs(job)) visit(job);
    job = nullptr;
  }
}

bool IsOnItsWay(const IBackgroundCopyJobPtr& job) {
  BG_JOB_STATE state = BG_JOB_STATE_CANCELLED;
  return SUCCEEDED(job->GetState(&state)) &&
         (state == BG_JOB_STATE_QUEUED || state == BG_JOB_STATE_CONNECTING ||
          state == BG_JOB_STATE_TRANSFERRING || state == BG_JOB_STATE_TRANSIENT_ERROR);
}

std::uint32_t ErrorOf(const IBackgroundCopyJobPtr& job) {
  IBackgroundCopyErrorPtr error;
  BG_ERROR_CONTEXT context = {};
  HRESULT code = S_OK;
  if (FAILED(job->GetError(&error)) || !error || FAILED(error->GetError(&context, &code))) return 0;
  return static_cast<std::uint32_t>(code);
}

void ReadNotify(const IBackgroundCopyJobPtr& job, JobFacts* facts) {
  IBackgroundCopyJob2Ptr job2;
  LPWSTR program = nullptr;
  LPWSTR commandLine = nullptr;
  hrcheck() = job->QueryInterface(__uuidof(IBackgroundCopyJob2), reinterpret_cast<void**>(&job2));
  hrcheck() = job2->GetNotifyCmdLine(&program, &commandLine);
  facts->notifyProgram = Taken(program);
  facts->notifyCommandLine = Taken(commandLine);
}

JobFacts FactsOf(const IBackgroundCopyJobPtr& job) {
  JobFacts facts;
  GUID id = {};
  BG_JOB_STATE state = BG_JOB_STATE_QUEUED;
  BG_JOB_TIMES times = {};
  hrcheck() = job->GetId(&id);
  hrcheck() = job->GetState(&state);
  hrcheck() = job->GetTimes(&times);
  facts.id = NarrowUtf8(GuidText(id));
  facts.state = static_cast<JobState>(state);
  facts.created = SecondsOf(times.CreationTime);
  facts.modified = SecondsOf(times.ModificationTime);
  ReadNotify(job, &facts);
  if (facts.state == JobState::kError || facts.state == JobState::kTransientError) {
    facts.error = ErrorOf(job);
  }
  return facts;
}

}  // namespace

std::vector<JobFacts> ListOwnJobs() {
  std::vector<JobFacts> list;
  ForEachOwnJob(ConnectToService(), [&](const IBackgroundCopyJobPtr& job) {
    try {
      list.push_back(FactsOf(job));
    } catch (const _com_error&) {
      LOG_D << "A job is left out of the list.";
    }
  });
  return list;
}

bool IsRoomForJob(const IBackgroundCopyManagerPtr& manager) {
  std::size_t waiting = 0;
  try {
    ForEachOwnJob(manager,
                  [&](const IBackgroundCopyJobPtr& job) { waiting += IsOnItsWay(job) ? 1 : 0; });
  } catch (const _com_error&) {
    return true;
  }
  if (waiting >= kMaxOwnJobs) LOG_I << "Postponed, so many jobs wait already:" << waiting;
  return waiting < kMaxOwnJobs;
}
