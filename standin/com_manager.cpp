#include "standin/com_manager.h"

#include "standin/call_record.h"
#include "standin/com_enum_jobs.h"
#include "standin/com_job.h"
#include "standin/com_object.h"
#include "standin/guid_text.h"
#include "util/win/windows_lean.h"
// After the system's header, which it needs.
#include <bits.h>

namespace standin {
namespace {

class ManagerObject final : public ComObject<IBackgroundCopyManager> {
 public:
  explicit ManagerObject(Service& service) : ComObject(service.lifetime), service_(service) {}

  HRESULT STDMETHODCALLTYPE CreateJob(LPCWSTR name, BG_JOB_TYPE type, GUID* id,
                                      IBackgroundCopyJob** object) override {
    *id = {};
    *object = nullptr;
    CallRecord call(service_, "CreateJob");
    call.line().Text("name", std::wstring_view(name)).Number("type", static_cast<unsigned>(type));
    return call.Run([&]() -> HRESULT {
      // The service also knows uploads. Refused inside the frame, so that the journal shows it.
      if (type != BG_JOB_TYPE_DOWNLOAD) return E_NOTIMPL;
      std::shared_ptr<Job> job;
      const HRESULT created = service_.jobs.Create(name, service_.control.User(), &job);
      if (created != S_OK) return created;
      *id = GuidFromText(job->id());
      *object = NewJobObject(service_, job);
      // The frame could not know the new id.
      call.line().Text("job", job->id());
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE GetJob(REFGUID id, IBackgroundCopyJob** object) override {
    *object = nullptr;
    const std::string idText = GuidText(id);
    return CallRecord(service_, "GetJob", idText).Run([&]() -> HRESULT {
      std::shared_ptr<Job> job = service_.jobs.Find(idText);
      if (!job || service_.control.IsVanished(idText)) return BG_E_NOT_FOUND;
      // The frame checks the owner of a job object; here there is only an id so far.
      if (service_.control.IsForeign(idText, job->owner())) return E_ACCESSDENIED;
      *object = NewJobObject(service_, std::move(job));
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE EnumJobs(DWORD flags, IEnumBackgroundCopyJobs** list) override {
    *list = nullptr;
    CallRecord call(service_, "EnumJobs");
    call.line().Number("flags", flags);
    // The real service demands an administrator for this flag; here any client may use it.
    const bool everyone = flags & BG_JOB_ENUM_ALL_USERS;
    return call.Run([&] {
      std::vector<std::shared_ptr<Job>> jobs = service_.jobs.Live();
      std::erase_if(jobs, [&](const std::shared_ptr<Job>& job) {
        return service_.control.IsVanished(job->id()) ||
               (!everyone && service_.control.IsForeign(job->id(), job->owner()));
      });
      call.line().Number("count", jobs.size());
      *list = NewEnumJobsObject(service_, std::move(jobs));
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE GetErrorDescription(HRESULT, DWORD, LPWSTR*) override {
    return CallRecord(service_, "GetErrorDescription").NotImplemented();
  }

 private:
  bool Answers(const GUID& id) override {
    return id == IID_IUnknown || id == __uuidof(IBackgroundCopyManager);
  }

  Service& service_;
};

// The system holds the factory as long as the server runs, so the factory must not count as a user:
// the server would never end.
Lifetime& UncountedLifetime() {
  static Lifetime& lifetime = *new Lifetime;
  return lifetime;
}

class ManagerFactory final : public ComObject<IClassFactory> {
 public:
  explicit ManagerFactory(Service& service) : ComObject(UncountedLifetime()), service_(service) {}

  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID id, void** object) override {
    *object = nullptr;
    return CallRecord(service_, "CreateInstance").Run([&]() -> HRESULT {
      if (outer) return CLASS_E_NOAGGREGATION;
      // The first reference is ours; the client's comes from QueryInterface. Without that interface
      // the release deletes the object.
      ManagerObject* const manager = new ManagerObject(service_);
      const HRESULT result = manager->QueryInterface(id, object);
      manager->Release();
      return result;
    });
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
    lock ? service_.lifetime.Add() : service_.lifetime.Remove();
    return S_OK;
  }

 private:
  bool Answers(const GUID& id) override { return id == IID_IUnknown || id == IID_IClassFactory; }

  Service& service_;
};

}  // namespace

IClassFactory* NewManagerFactory(Service& service) { return new ManagerFactory(service); }

}  // namespace standin
