#include "transfer/bits_transfer.h"

#include <utility>

#include "layout/command_line.h"
#include "layout/names.h"
#include "transfer/bits_interfaces.h"
#include "util/text.h"

namespace {

// All steps of a transfer log under this one name, which people look for.
LogLine LogStep(const char* level, int line) { return LogAs("TBitsTransfer::Work", line, level); }
#define STEP_D LogStep("D:", __LINE__)
#define STEP_E LogStep("E:", __LINE__)

}  // namespace

TBitsTransfer::TBitsTransfer(std::string url, std::wstring outfile, JobPurpose purpose)
    : url_(std::move(url)), outfile_(std::move(outfile)), purpose_(purpose) {}

void TBitsTransfer::NotifyCmdLine(std::wstring program, std::wstring parameters) {
  notifyProgram_ = std::move(program);
  notifyParameters_ = std::move(parameters);
  LOG_D << "Cmd:" << notifyProgram_;
}

void TBitsTransfer::Work() {
  LOG_D << "Work?";
  LOG_D << "before hrcheck() = manager.CreateInstance(__uuidof(BackgroundCopyManager))";
  IBackgroundCopyManagerPtr manager;
  try {
    manager = ConnectToService();
  } catch (const _com_error&) {
    // COM gives no service to a process of low integrity. Its host gets no job, but no error
    // either.
    LOG_D << "Low-privileges process";
    return;
  }
  LOG_D << "hrcheck() = manager.CreateInstance(__uuidof(BackgroundCopyManager))";
  if (!IsRoomForJob(manager, purpose_)) return;
  GUID id = {};
  IBackgroundCopyJobPtr job;
  hrcheck() = manager->CreateJob(kJobName, BG_JOB_TYPE_DOWNLOAD, &id, &job);
  LOG_D << "hrcheck() = manager->CreateJob(std::Widen(job_displayname).c_str(), "
           "BG_JOB_TYPE_DOWNLOAD, "
           "&job_id, &job1)";
  IBackgroundCopyJob2Ptr job2;
  try {
    // From here on a failure must cancel the job, or it would stay in the service.
    const HRESULT result = job.QueryInterface(__uuidof(IBackgroundCopyJob2), &job2);
    if (result != E_NOINTERFACE) hrcheck() = result;
    if (!job2) LOG_E << "job == NULL!!";
    LimitSize(*job);
    Configure(*job);
    SetNotifyFlags(job2.GetInterfacePtr());
    // A new job is suspended, so the service starts nothing before the last step.
    if (job2) Start(*job2, GuidText(id));
  } catch (...) {
    job->Cancel();
    throw;
  }
  if (!job2) throw _com_error(E_POINTER);
}

// A service without that property is no failure: the executor, and a host that asks for its job,
// end a job that has grown too large.
void TBitsTransfer::LimitSize(IBackgroundCopyJob& job) {
  IBackgroundCopyJob5Ptr job5;
  job.QueryInterface(__uuidof(IBackgroundCopyJob5), reinterpret_cast<void**>(&job5));
  if (!job5) return;
  BITS_JOB_PROPERTY_VALUE limit = {};
  limit.Uint64 = MaxBytesOf(purpose_);
  const HRESULT result = job5->SetProperty(BITS_JOB_PROPERTY_MAX_DOWNLOAD_SIZE, limit);
  if (FAILED(result)) STEP_D << "The service keeps no limit." << kHresult << result;
}

void TBitsTransfer::Configure(IBackgroundCopyJob& job) {
  hrcheck() = job.AddFile(WidenUtf8(url_).c_str(), outfile_.c_str());
  STEP_D << "hrcheck() = job1->AddFile(std::Widen(url).c_str(), outfile.c_str())";
  if (timeoutSeconds_ != 0) {
    hrcheck() = job.SetNoProgressTimeout(timeoutSeconds_);
    STEP_D << "hrcheck() = job1->SetNoProgressTimeout(timeout)";
  }
  hrcheck() = job.SetPriority(highPriority_ ? BG_JOB_PRIORITY_FOREGROUND : BG_JOB_PRIORITY_NORMAL);
  STEP_D << "hrcheck() = job1->SetPriority(high_priority? BG_JOB_PRIORITY_FOREGROUND : "
            "BG_JOB_PRIORITY_NORMAL)";
}

// A refusal is only logged: a service that starts no programs refuses the command line too, and
// that ends the transfer.
void TBitsTransfer::SetNotifyFlags(IBackgroundCopyJob2* job) {
  try {
    if (!job) throw _com_error(E_POINTER);  // a service older than notify programs
    hrcheck() = job->SetNotifyFlags(BG_NOTIFY_JOB_TRANSFERRED | BG_NOTIFY_JOB_ERROR);
    STEP_D << "hrcheck() = job->SetNotifyFlags(BG_NOTIFY_JOB_TRANSFERRED | BG_NOTIFY_JOB_ERROR)";
  } catch (const _com_error&) {
    STEP_E << "Error in job->SetNotifyFlags. Maybe used BITS version < 1.5.";
  }
}

void TBitsTransfer::Start(IBackgroundCopyJob2& job, const std::wstring& id) {
  // The service wants the command line to begin with the program itself.
  const std::wstring commandLine = notifyProgram_ + L" " + notifyParameters_ + JobOption(id);
  if (!notifyProgram_.empty()) {
    hrcheck() = job.SetNotifyCmdLine(notifyProgram_.c_str(), commandLine.c_str());
  }
  STEP_D << "CmdLine: " << notifyProgram_;
  STEP_D << "Params: " << commandLine;
  STEP_D << "Before resume";
  hrcheck() = job.Resume();
  JobAdded(id);
}

void TBitsTransfer::JobAdded(const std::wstring& id) {
  jobId_ = NarrowUtf8(id);
  added_ = true;
  LOG_D << "Successfully add job to BITS. Url: " << url_;
}
