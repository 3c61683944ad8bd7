#include "transfer/transfer.h"

#include <utility>

#include "transfer/bits_completion.h"
#include "transfer/bits_interfaces.h"
#include "transfer/bits_transfer.h"
#include "transfer/com_apartment.h"
#include "transfer/com_error.h"
#include "transfer/com_functions.h"
#include "util/text.h"

namespace {

// BG_E_NOT_FOUND: no job of this id, or no longer.
constexpr HRESULT kNotFound = static_cast<HRESULT>(0x80200001);

// The other folders know no COM: its errors become TransferError here.
template <class Call>
auto WithCom(Call call) {
  try {
    const ComApartment apartment;
    return call();
  } catch (const _com_error& error) {
    throw TransferError(ComErrorText(error));
  }
}

EndedJob EndFoundJob(const std::string& jobId) {
  GUID id = {};
  if (FAILED(com::CLSIDFromString(WidenUtf8(jobId).c_str(), &id))) return {JobEnd::kGone};
  const IBackgroundCopyManagerPtr manager = ConnectToService();
  IBackgroundCopyJobPtr job;
  const HRESULT result = manager->GetJob(id, &job);
  if (result == kNotFound) return {JobEnd::kGone};
  hrcheck() = result;
  HRESULT fault = S_OK;
  return EndOpenedJob(*job, &fault);
}

}  // namespace

std::string StartJob(JobOrder order) {
  return WithCom([&] {
    TBitsTransfer transfer(std::move(order.url), std::move(order.file), order.purpose);
    if (order.timeoutSeconds != 0) transfer.SetTimeout(order.timeoutSeconds);
    if (!order.program.empty()) {
      transfer.NotifyCmdLine(std::move(order.program), std::move(order.arguments));
    }
    transfer.Work();
    return transfer.JobId();
  });
}

JobProgress AskJob(const std::string& jobId) {
  return WithCom([&] {
    const auto job = TBitsTransferCompletion::CreateWorker(jobId);
    JobProgress progress;
    progress.state = job->GetJobState();
    if (IsInWork(progress.state)) progress.bytes = job->BytesTransferred();
    return progress;
  });
}

void FinishJob(const std::string& jobId) {
  WithCom([&] { TBitsTransferCompletion::CreateWorker(jobId)->Finish(); });
}

EndedJob EndJob(const std::string& jobId) noexcept {
  try {
    return WithCom([&] { return EndFoundJob(jobId); });
  } catch (...) {
    // In doubt the job is alive: the executor then ends with a code after which the service starts
    // it again. A job that counts as gone would stay for 90 days.
    return {JobEnd::kAlive};
  }
}

std::vector<JobFacts> ListOwnJobs() { return WithCom(ListJobs); }
