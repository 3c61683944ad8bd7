#include "transfer/job_end.h"

#include "transfer/bits_completion.h"
#include "transfer/bits_interfaces.h"
#include "transfer/com_functions.h"
#include "util/text.h"

namespace {

constexpr HRESULT kNotFound = static_cast<HRESULT>(0x80200001);

JobState StateOf(IBackgroundCopyJob& job) {
  BG_JOB_STATE state = BG_JOB_STATE_QUEUED;
  hrcheck() = job.GetState(&state);
  LOG_D << "Job state code:" << JobStateName(static_cast<JobState>(state));
  return static_cast<JobState>(state);
}

bool IsEnded(JobState state) {
  return state == JobState::kAcknowledged || state == JobState::kCancelled;
}

bool Logged(HRESULT result) {
  if (FAILED(result)) LOG_E << kHresult << result;
  return SUCCEEDED(result);
}

EndedJob EndOpened(IBackgroundCopyJob& job) {
  const JobState state = StateOf(job);
  if (IsEnded(state)) return {JobEnd::kGone};
  const bool transferred = state == JobState::kTransferred;
  if (transferred && Logged(job.Complete())) return {JobEnd::kCompleted, true};
  if (Logged(job.Cancel())) return {JobEnd::kCancelled, transferred};
  // Both are refused when another process was faster.
  return {IsEnded(StateOf(job)) ? JobEnd::kGone : JobEnd::kAlive};
}

}  // namespace

EndedJob EndJob(const std::string& jobId) noexcept {
  try {
    GUID id = {};
    if (FAILED(com::CLSIDFromString(WidenUtf8(jobId).c_str(), &id))) return {JobEnd::kGone};
    const IBackgroundCopyManagerPtr manager = ConnectToService();
    IBackgroundCopyJobPtr job;
    const HRESULT result = manager->GetJob(id, &job);
    if (result == kNotFound) return {JobEnd::kGone};
    hrcheck() = result;
    return EndOpened(*job);
  } catch (...) {
    return {JobEnd::kAlive};  // the failing call is in the log
  }
}
