#include "transfer/bits_completion.h"

#include "transfer/bits_interfaces.h"
#include "transfer/com_functions.h"
#include "util/text.h"

namespace {

// Logs a failure. The first one of several stays in `fault`, since it is the cause of the others.
bool HasFailed(HRESULT result, HRESULT* fault) {
  if (SUCCEEDED(result)) return false;
  LOG_E << kHresult << result;
  if (SUCCEEDED(*fault)) *fault = result;
  return true;
}

}  // namespace

JobState StateOf(IBackgroundCopyJob& job) {
  BG_JOB_STATE state = BG_JOB_STATE_QUEUED;
  hrcheck() = job.GetState(&state);
  LogAs("TBitsTransferCompletion::TWorker::GetJobState", __LINE__, "D:")
      << "Job state code:" << JobStateName(static_cast<JobState>(state));
  return static_cast<JobState>(state);
}

EndedJob EndOpenedJob(IBackgroundCopyJob& job, HRESULT* fault) {
  const JobState state = StateOf(job);
  if (IsEnded(state)) {
    *fault = BG_E_INVALID_STATE;
    return {JobEnd::kGone};
  }
  const bool transferred = state == JobState::kTransferred;
  if (transferred && !HasFailed(job.Complete(), fault)) return {JobEnd::kCompleted, true};
  // Completing fails while another host has the target file open. Without this the job would stay,
  // because no program keeps its id.
  if (!HasFailed(job.Cancel(), fault)) return {JobEnd::kCancelled, transferred};
  // Both calls fail when another process was faster.
  return {IsEnded(StateOf(job)) ? JobEnd::kGone : JobEnd::kAlive};
}

struct TBitsTransferCompletion::TWorker::Job {
  IBackgroundCopyManagerPtr manager;
  IBackgroundCopyJobPtr job;  // last, so that it is released first
};

TBitsTransferCompletion::TWorker::TWorker(const std::string& jobId) : job_(new Job) {
  job_->manager = ConnectToService();
  GUID id = {};
  hrcheck() = com::CLSIDFromString(WidenUtf8(jobId).c_str(), &id);
  hrcheck() = job_->manager->GetJob(id, &job_->job);
}

TBitsTransferCompletion::TWorker::~TWorker() = default;

JobState TBitsTransferCompletion::TWorker::GetJobState() const { return StateOf(*job_->job); }

std::uint64_t TBitsTransferCompletion::TWorker::BytesTransferred() const {
  BG_JOB_PROGRESS progress = {};
  hrcheck() = job_->job->GetProgress(&progress);
  return progress.BytesTransferred;
}

void TBitsTransferCompletion::TWorker::Finish() {
  LOG_D << "TBitsTransferCompletion::TWorker::Finish";
  HRESULT fault = S_OK;
  EndOpenedJob(*job_->job, &fault);
  if (FAILED(fault)) throw _com_error(fault);
}

std::unique_ptr<TBitsTransferCompletion::TWorker> TBitsTransferCompletion::CreateWorker(
    const std::string& jobId) {
  return std::make_unique<TWorker>(jobId);
}
