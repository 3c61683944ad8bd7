#include "transfer/bits_completion.h"

#include <iterator>

#include "transfer/bits_interfaces.h"
#include "transfer/com_functions.h"
#include "util/text.h"

struct TBitsTransferCompletion::TWorker::Job {
  IBackgroundCopyManagerPtr manager;
  IBackgroundCopyJobPtr job;  // last, so that it is released first
};

const char* JobStateName(JobState state) {
  static constexpr const char* kNames[] = {
      "BG_JOB_STATE_QUEUED",      "BG_JOB_STATE_CONNECTING",   "BG_JOB_STATE_TRANSFERRING",
      "BG_JOB_STATE_SUSPENDED",   "BG_JOB_STATE_ERROR",        "BG_JOB_STATE_TRANSIENT_ERROR",
      "BG_JOB_STATE_TRANSFERRED", "BG_JOB_STATE_ACKNOWLEDGED", "BG_JOB_STATE_CANCELLED"};
  const auto index = static_cast<unsigned>(state);
  return index < std::size(kNames) ? kNames[index] : "unknown state";
}

TBitsTransferCompletion::TWorker::TWorker(const std::string& jobId) : job_(new Job) {
  job_->manager = ConnectToService();
  GUID id = {};
  hrcheck() = com::CLSIDFromString(WidenUtf8(jobId).c_str(), &id);
  hrcheck() = job_->manager->GetJob(id, &job_->job);
}

TBitsTransferCompletion::TWorker::~TWorker() = default;

JobState TBitsTransferCompletion::TWorker::GetJobState() const {
  BG_JOB_STATE state = BG_JOB_STATE_QUEUED;
  hrcheck() = job_->job->GetState(&state);
  LOG_D << "Job state code:" << JobStateName(static_cast<JobState>(state));
  return static_cast<JobState>(state);
}

std::uint64_t TBitsTransferCompletion::TWorker::BytesTransferred() const {
  BG_JOB_PROGRESS progress = {};
  hrcheck() = job_->job->GetProgress(&progress);
  return progress.BytesTransferred;
}

void TBitsTransferCompletion::TWorker::Finish() {
  LOG_D << "TBitsTransferCompletion::TWorker::Finish";
  IBackgroundCopyJob* const job = job_->job;
  const bool transferred = GetJobState() == JobState::kTransferred;
  const HRESULT result = transferred ? job->Complete() : job->Cancel();
  // Another host has the file open: the job would stay, and nobody knows it any more.
  if (transferred && FAILED(result)) job->Cancel();
  hrcheck() = result;
}

std::unique_ptr<TBitsTransferCompletion::TWorker> TBitsTransferCompletion::CreateWorker(
    const std::string& jobId) {
  return std::make_unique<TWorker>(jobId);
}
