#include "standin/call_record.h"

#include <exception>
#include <new>
#include <optional>

#include "util/win/windows_lean.h"

namespace standin {

CallRecord::CallRecord(Service& service, const char* call, const std::string& jobId)
    : service_(service), call_(call) {
  line_.Text("call", call);
  if (!jobId.empty()) line_.Text("job", jobId);
}

CallRecord::CallRecord(Service& service, const char* call, const Job& job)
    : CallRecord(service, call, job.id()) {
  job_ = &job;
}

HResult CallRecord::Run(const std::function<HResult()>& body) noexcept {
  return Guarded([&] {
    const HResult result = Execute(body);
    Write(result);
    return result;
  });
}

HResult CallRecord::Execute(const std::function<HResult()>& body) {
  // The control file comes first: a call that it fails does so on every job, also on a foreign one.
  const std::optional<HResult> forced = service_.control.FailureOf(call_);
  if (forced) {
    line_.Flag("forced", true);
    return *forced;
  }
  if (job_ && service_.control.IsForeign(job_->id(), job_->owner())) return E_ACCESSDENIED;
  const HResult result = body();
  // Also after a failure: a Complete that fails has handed over some files already. The result
  // leaves only after this, so that a killed server forgets nothing that a client has seen.
  service_.SaveJobs();
  return result;
}

HResult CallRecord::NotImplemented() noexcept {
  return Run([] { return E_NOTIMPL; });
}

// The caller is COM, which catches nothing: an exception would end the server.
HResult CallRecord::Guarded(const std::function<HResult()>& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    // No journal line: that would need memory.
    return E_OUTOFMEMORY;
  } catch (const std::exception& e) {
    service_.journal.Problem(std::string(call_) + " ended: " + e.what());
    return E_FAIL;
  }
}

void CallRecord::Write(HResult result) {
  line_.Code("result", result);
  if (FAILED(result)) {
    service_.journal.WriteError(line_);
  } else {
    service_.journal.Write(line_);
  }
}

}  // namespace standin
