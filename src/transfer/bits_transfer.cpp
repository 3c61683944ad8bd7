#include "transfer/bits_transfer.h"

#include <utility>

#include "transfer/bits_interfaces.h"
#include "util/text.h"

namespace {

constexpr char kDisplayName[] = "Kupdate-task";

}  // namespace

TBitsTransfer::TBitsTransfer(std::string url, std::wstring outfile)
    : url_(std::move(url)), outfile_(std::move(outfile)) {}

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
    LOG_D << "Low-privileges process";
    return;
  }
  LOG_D << "hrcheck() = manager.CreateInstance(__uuidof(BackgroundCopyManager))";
  // A host's own job is one at a time; those of a notify program heap up while there is no network.
  if (!notifyProgram_.empty() && !IsRoomForJob(manager)) return;
  GUID id = {};
  IBackgroundCopyJobPtr job;
  hrcheck() = manager->CreateJob(WidenUtf8(kDisplayName).c_str(), BG_JOB_TYPE_DOWNLOAD, &id, &job);
  LOG_D << "hrcheck() = manager->CreateJob(std::Widen(job_displayname).c_str(), "
           "BG_JOB_TYPE_DOWNLOAD, "
           "&job_id, &job1)";
  IBackgroundCopyJob2Ptr job2;
  try {
    const HRESULT result = job.QueryInterface(__uuidof(IBackgroundCopyJob2), &job2);
    if (result != E_NOINTERFACE) hrcheck() = result;
    if (!job2) LOG_E << "job == NULL!!";
    Configure(*job);
    SetNotifyFlags(job2.GetInterfacePtr());
    if (job2) Start(*job2, GuidText(id));
  } catch (...) {
    job->Cancel();
    throw;
  }
  if (!job2) throw _com_error(E_POINTER);
}

void TBitsTransfer::Configure(IBackgroundCopyJob& job) {
  hrcheck() = job.AddFile(WidenUtf8(url_).c_str(), outfile_.c_str());
  LOG_D << "hrcheck() = job1->AddFile(std::Widen(url).c_str(), outfile.c_str())";
  if (timeoutSeconds_ != 0) {
    hrcheck() = job.SetNoProgressTimeout(timeoutSeconds_);
    LOG_D << "hrcheck() = job1->SetNoProgressTimeout(timeout)";
  }
  hrcheck() = job.SetPriority(highPriority_ ? BG_JOB_PRIORITY_FOREGROUND : BG_JOB_PRIORITY_NORMAL);
  LOG_D << "hrcheck() = job1->SetPriority(high_priority? BG_JOB_PRIORITY_FOREGROUND : "
           "BG_JOB_PRIORITY_NORMAL)";
}

void TBitsTransfer::SetNotifyFlags(IBackgroundCopyJob2* job) {
  try {
    if (!job) throw _com_error(E_POINTER);  // a service older than notify programs
    hrcheck() = job->SetNotifyFlags(BG_NOTIFY_JOB_TRANSFERRED | BG_NOTIFY_JOB_ERROR);
    LOG_D << "hrcheck() = job->SetNotifyFlags(BG_NOTIFY_JOB_TRANSFERRED | BG_NOTIFY_JOB_ERROR)";
  } catch (const _com_error&) {
    LOG_E << "Error in job->SetNotifyFlags. Maybe used BITS version < 1.5.";
  }
}

void TBitsTransfer::Start(IBackgroundCopyJob2& job, const std::wstring& id) {
  // The service wants the command line to begin with the program itself.
  const std::wstring commandLine = notifyProgram_ + L" " + notifyParameters_ + L" --job " + id;
  if (!notifyProgram_.empty()) {
    hrcheck() = job.SetNotifyCmdLine(notifyProgram_.c_str(), commandLine.c_str());
  }
  LOG_D << "CmdLine: " << notifyProgram_;
  LOG_D << "Params: " << commandLine;
  LOG_D << "Before resume";
  hrcheck() = job.Resume();
  JobAdded(id);
}

void TBitsTransfer::JobAdded(const std::wstring& id) {
  jobId_ = NarrowUtf8(id);
  added_ = true;
  LOG_D << "Successfully add job to BITS. Url: " << url_;
}
