#include "standin/com_enum_jobs.h"

#include <algorithm>

#include "standin/com_job.h"
#include "standin/com_object.h"
#include "util/win/windows_lean.h"
// After the system's header, which it needs.
#include <bits.h>

namespace standin {
namespace {

// The list that EnumJobs found. It does not change: a job that has ended since is still in it, and
// answers as ended jobs do. The list's own calls are neither journalled nor failed by the control
// file.
class EnumJobsObject final : public ComObject<IEnumBackgroundCopyJobs> {
 public:
  EnumJobsObject(Service& service, std::vector<std::shared_ptr<Job>> jobs, std::size_t next)
      : ComObject(service.lifetime), service_(service), jobs_(std::move(jobs)), next_(next) {}

  HRESULT STDMETHODCALLTYPE Next(ULONG wanted, IBackgroundCopyJob** jobs, ULONG* fetched) override {
    const std::size_t count = std::min<std::size_t>(wanted, jobs_.size() - next_);
    for (std::size_t i = 0; i < count; ++i) jobs[i] = NewJobObject(service_, jobs_[next_++]);
    // A client that asks for one job may pass null.
    if (fetched) *fetched = static_cast<ULONG>(count);
    return count == wanted ? S_OK : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE Skip(ULONG wanted) override {
    const std::size_t count = std::min<std::size_t>(wanted, jobs_.size() - next_);
    next_ += count;
    return count == wanted ? S_OK : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE Reset() override {
    next_ = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Clone(IEnumBackgroundCopyJobs** clone) override {
    // The copy begins where this list stands, as COM asks of every list.
    *clone = new EnumJobsObject(service_, jobs_, next_);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetCount(ULONG* count) override {
    *count = static_cast<ULONG>(jobs_.size());
    return S_OK;
  }

 private:
  bool Answers(const GUID& id) override {
    return id == IID_IUnknown || id == __uuidof(IEnumBackgroundCopyJobs);
  }

  Service& service_;
  const std::vector<std::shared_ptr<Job>> jobs_;
  std::size_t next_;
};

}  // namespace

IEnumBackgroundCopyJobs* NewEnumJobsObject(Service& service,
                                           std::vector<std::shared_ptr<Job>> jobs) {
  return new EnumJobsObject(service, std::move(jobs), 0);
}

}  // namespace standin
