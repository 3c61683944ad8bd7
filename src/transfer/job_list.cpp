#include <utility>

#include "layout/names.h"
#include "transfer/bits_interfaces.h"
#include "transfer/com_functions.h"
#include "util/clock.h"
#include "util/text.h"
#include "util/win/file_time.h"

_COM_SMARTPTR_TYPEDEF(IEnumBackgroundCopyJobs, __uuidof(IEnumBackgroundCopyJobs));
_COM_SMARTPTR_TYPEDEF(IBackgroundCopyError, __uuidof(IBackgroundCopyError));

namespace {

// Copies a text that the service allocated, and frees it.
std::wstring Taken(LPWSTR text) {
  std::wstring result = text ? text : L"";
  com::CoTaskMemFree(text);
  return result;
}

bool IsOurs(const IBackgroundCopyJobPtr& job) {
  LPWSTR name = nullptr;
  return SUCCEEDED(job->GetDisplayName(&name)) && Taken(name) == kJobName;
}

template <class Visit>
void ForEachOwnJob(const IBackgroundCopyManagerPtr& manager, Visit visit) {
  IEnumBackgroundCopyJobsPtr jobs;
  // 0: only the jobs of this user. Those of all users need an administrator.
  hrcheck() = manager->EnumJobs(0, &jobs);
  IBackgroundCopyJobPtr job;
  while (jobs->Next(1, &job, nullptr) == S_OK) {
    if (IsOurs(job)) visit(job);
    job = nullptr;
  }
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

void ReadTimes(const IBackgroundCopyJobPtr& job, JobFacts* facts) {
  BG_JOB_TIMES times = {};
  hrcheck() = job->GetTimes(&times);
  facts->created = SecondsOf(times.CreationTime);
  facts->modified = SecondsOf(times.ModificationTime);
}

JobFacts FactsOf(const IBackgroundCopyJobPtr& job) {
  JobFacts facts;
  GUID id = {};
  BG_JOB_STATE state = BG_JOB_STATE_QUEUED;
  BG_JOB_PROGRESS progress = {};
  hrcheck() = job->GetId(&id);
  hrcheck() = job->GetState(&state);
  hrcheck() = job->GetProgress(&progress);
  facts.id = NarrowUtf8(GuidText(id));
  facts.state = static_cast<JobState>(state);
  facts.bytesTransferred = progress.BytesTransferred;
  ReadTimes(job, &facts);
  ReadNotify(job, &facts);
  if (facts.state == JobState::kError || facts.state == JobState::kTransientError) {
    facts.error = ErrorOf(job);
  }
  return facts;
}

// The census is a step of the transfer that is about to start, so it logs under that name.
LogLine WorkLine(int line) { return LogAs("TBitsTransfer::Work", line, "I:"); }

// Our jobs, counted before a new one is made. Each question about a job is a call into the
// service's process, so a job on its way is asked for nothing but its state while there is room.
class Census {
 public:
  explicit Census(const IBackgroundCopyManagerPtr& manager) {
    ForEachOwnJob(manager, [&](const IBackgroundCopyJobPtr& job) { Count(job); });
  }

  bool HasRoomFor(JobPurpose purpose) const {
    const std::size_t limit = purpose == JobPurpose::kReport ? kMaxReports : kMaxOwnJobs;
    const bool isHosts = purpose == JobPurpose::kHostFeed;
    return Total() < kMaxJobsOfAllKinds && (isHosts || onTheirWay_.size() < limit);
  }

  // Asks the jobs on their way too. Abandoned ones are ended; of the others only those that start a
  // program count as on their way afterwards.
  void LookCloser() {
    std::vector<IBackgroundCopyJobPtr> starting;
    for (const IBackgroundCopyJobPtr& job : onTheirWay_) {
      JobFacts facts;
      if (EndIfAbandoned(job, &facts)) continue;
      if (facts.notifyProgram.empty()) {
        ++others_;
      } else {
        starting.push_back(job);
      }
    }
    onTheirWay_ = std::move(starting);
  }

  std::size_t OnTheirWay() const { return onTheirWay_.size(); }
  std::size_t Total() const { return onTheirWay_.size() + others_; }

 private:
  void Count(const IBackgroundCopyJobPtr& job) {
    BG_JOB_STATE state = BG_JOB_STATE_CANCELLED;
    if (FAILED(job->GetState(&state))) return;
    JobFacts facts;
    facts.state = static_cast<JobState>(state);
    if (IsEnded(facts.state)) return;
    if (IsOnItsWay(facts.state)) {
      onTheirWay_.push_back(job);
      return;
    }
    if (!EndIfAbandoned(job, &facts)) ++others_;
  }

  // A job that cannot be asked stays.
  // @param facts  the state; receives the times and, where they matter, the notify program
  bool EndIfAbandoned(const IBackgroundCopyJobPtr& job, JobFacts* facts) const {
    try {
      ReadTimes(job, facts);
      // The notify program is not known yet, so this is the shorter limit, that of hosts' jobs. No
      // rule abandons a younger job.
      const bool mayBeHosts = IsAbandoned(*facts, now_);
      if (!mayBeHosts && !IsOnItsWay(facts->state)) return false;
      ReadNotify(job, facts);
      if (!IsAbandoned(*facts, now_)) return false;
      GUID id = {};
      hrcheck() = job->GetId(&id);
      WorkLine(__LINE__) << "Ending abandoned job:" << GuidText(id);
      hrcheck() = job->Cancel();
      return true;
    } catch (const _com_error&) {
      return false;  // the failing call is in the log
    }
  }

  const std::uint64_t now_ = NowSeconds();
  std::vector<IBackgroundCopyJobPtr> onTheirWay_;
  std::size_t others_ = 0;
};

}  // namespace

std::vector<JobFacts> ListJobs() {
  std::vector<JobFacts> list;
  ForEachOwnJob(ConnectToService(), [&](const IBackgroundCopyJobPtr& job) {
    try {
      list.push_back(FactsOf(job));
    } catch (const _com_error&) {
      // It may have ended since the list was begun.
      LOG_D << "A job is left out of the list.";
    }
  });
  return list;
}

bool IsRoomForJob(const IBackgroundCopyManagerPtr& manager, JobPurpose purpose) {
  try {
    Census census(manager);
    if (census.HasRoomFor(purpose)) return true;
    census.LookCloser();
    if (census.HasRoomFor(purpose)) return true;
    if (census.Total() < kMaxJobsOfAllKinds) {
      WorkLine(__LINE__) << "Postponed, so many jobs wait already:" << census.OnTheirWay();
    } else {
      WorkLine(__LINE__) << "Refused, so many jobs of ours are there already:" << census.Total();
    }
    return false;
  } catch (const _com_error&) {
    // Without a list nothing shows that there are too many, and the service has a limit of its own.
    return true;
  }
}
