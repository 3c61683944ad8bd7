#include "standin/com_job.h"

#include "standin/call_record.h"
#include "standin/com_error.h"
#include "standin/com_object.h"
#include "standin/com_text.h"
#include "standin/guid_text.h"
#include "standin/transfer.h"
#include "util/win/windows_lean.h"
// After the system's header, which it needs.
#include <bits.h>
#include <bits5_0.h>

namespace standin {
namespace {

FILETIME TimeFromTicks(std::uint64_t ticks) {
  return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

// For the journal, which shows a null pointer as empty text.
std::wstring_view OrEmpty(const wchar_t* text) { return text ? text : L""; }

// One object for all three versions of the interface, since each extends the one before. Outputs
// are set before a call's frame: they must be valid after a failure too, and any call can be
// failed.
class JobObject final : public ComObject<IBackgroundCopyJob5> {
 public:
  JobObject(Service& service, std::shared_ptr<Job> job)
      : ComObject(service.lifetime), service_(service), job_(std::move(job)) {}

  HRESULT STDMETHODCALLTYPE AddFile(LPCWSTR url, LPCWSTR path) override {
    CallRecord call = Record("AddFile");
    call.line().Text("url", OrEmpty(url)).Text("file", OrEmpty(path));
    return call.Run([&] { return job_->AddFile(url, path); });
  }
  HRESULT STDMETHODCALLTYPE AddFileSet(ULONG count, BG_FILE_INFO* set) override {
    CallRecord call = Record("AddFileSet");
    call.line().Number("count", count);
    return call.Run([&] {
      std::vector<JobFile> files;
      for (const BG_FILE_INFO* info = set; info != set + count; ++info) {
        files.push_back({.url = std::wstring(OrEmpty(info->RemoteName)),
                         .path = std::wstring(OrEmpty(info->LocalName))});
      }
      return job_->AddFiles(files);
    });
  }

  HRESULT STDMETHODCALLTYPE Suspend() override {
    return Record("Suspend").Run([&] { return job_->Suspend(); });
  }
  HRESULT STDMETHODCALLTYPE Resume() override {
    std::optional<Job::Run> run;
    const HRESULT result = Record("Resume").Run([&] { return job_->Resume(&run); });
    // Not inside the frame: the journal must name the call before the events of its transfer.
    if (run) StartTransfer(service_, job_, *run);
    return result;
  }
  HRESULT STDMETHODCALLTYPE Cancel() override {
    return Record("Cancel").Run([&] { return job_->Cancel(); });
  }
  HRESULT STDMETHODCALLTYPE Complete() override {
    return Record("Complete").Run([&] { return job_->Complete(); });
  }

  HRESULT STDMETHODCALLTYPE GetId(GUID* id) override {
    *id = {};
    return Record("GetId").Run([&] {
      *id = GuidFromText(job_->id());
      return S_OK;
    });
  }
  HRESULT STDMETHODCALLTYPE GetType(BG_JOB_TYPE* type) override {
    *type = BG_JOB_TYPE_DOWNLOAD;
    return Record("GetType").Run([] { return S_OK; });
  }

  HRESULT STDMETHODCALLTYPE GetState(BG_JOB_STATE* state) override {
    *state = BG_JOB_STATE_QUEUED;
    CallRecord call = Record("GetState");
    return call.Run([&] {
      // A script changes the shown state alone; the job goes on with its own.
      const int shown =
          service_.control.NextScriptedState().value_or(static_cast<int>(job_->State()));
      *state = static_cast<BG_JOB_STATE>(shown);
      call.line().Text("state", StateName(shown));
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE GetProgress(BG_JOB_PROGRESS* progress) override {
    *progress = {};
    CallRecord call = Record("GetProgress");
    return call.Run([&] {
      const JobProgress now = job_->Progress();
      *progress = {now.bytesTotal.value_or(BG_SIZE_UNKNOWN), now.bytesTransferred, now.filesTotal,
                   now.filesTransferred};
      call.line().Number("bytes", now.bytesTransferred).Number("files", now.filesTransferred);
      return S_OK;
    });
  }
  HRESULT STDMETHODCALLTYPE GetTimes(BG_JOB_TIMES* times) override {
    *times = {};
    return Record("GetTimes").Run([&] {
      const JobTimes now = job_->Times();
      *times = {TimeFromTicks(now.created), TimeFromTicks(now.modified),
                TimeFromTicks(now.completed)};
      return S_OK;
    });
  }
  HRESULT STDMETHODCALLTYPE GetError(IBackgroundCopyError** error) override {
    *error = nullptr;
    CallRecord call = Record("GetError");
    return call.Run([&]() -> HRESULT {
      const std::optional<JobError> failure = job_->Error();
      if (!failure) return BG_E_ERROR_INFORMATION_UNAVAILABLE;
      *error = NewErrorObject(service_.lifetime, *failure);
      call.line().Code("code", failure->code);
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE SetDisplayName(LPCWSTR name) override {
    CallRecord call = Record("SetDisplayName");
    call.line().Text("name", OrEmpty(name));
    return call.Run([&] { return job_->SetDisplayName(name); });
  }
  HRESULT STDMETHODCALLTYPE GetDisplayName(LPWSTR* name) override {
    *name = nullptr;
    return Record("GetDisplayName").Run([&] {
      return CopyOut(job_->Settings().displayName, name);
    });
  }
  HRESULT STDMETHODCALLTYPE SetPriority(BG_JOB_PRIORITY priority) override {
    CallRecord call = Record("SetPriority");
    call.line().Number("priority", static_cast<std::uint32_t>(priority));
    return call.Run([&] { return job_->SetPriority(priority); });
  }
  HRESULT STDMETHODCALLTYPE GetPriority(BG_JOB_PRIORITY* priority) override {
    *priority = BG_JOB_PRIORITY_NORMAL;
    return Record("GetPriority").Run([&] {
      *priority = static_cast<BG_JOB_PRIORITY>(job_->Settings().priority);
      return S_OK;
    });
  }
  HRESULT STDMETHODCALLTYPE SetNoProgressTimeout(ULONG seconds) override {
    CallRecord call = Record("SetNoProgressTimeout");
    call.line().Number("seconds", seconds);
    return call.Run([&] { return job_->SetNoProgressSeconds(seconds); });
  }
  HRESULT STDMETHODCALLTYPE GetNoProgressTimeout(ULONG* seconds) override {
    *seconds = 0;
    return Record("GetNoProgressTimeout").Run([&] {
      *seconds = job_->Settings().noProgressSeconds;
      return S_OK;
    });
  }
  HRESULT STDMETHODCALLTYPE SetNotifyFlags(ULONG flags) override {
    CallRecord call = Record("SetNotifyFlags");
    call.line().Number("flags", flags);
    return call.Run([&] { return job_->SetNotifyFlags(flags); });
  }
  HRESULT STDMETHODCALLTYPE GetNotifyFlags(ULONG* flags) override {
    *flags = 0;
    return Record("GetNotifyFlags").Run([&] {
      *flags = job_->Settings().notifyFlags;
      return S_OK;
    });
  }
  HRESULT STDMETHODCALLTYPE SetNotifyCmdLine(LPCWSTR program, LPCWSTR parameters) override {
    CallRecord call = Record("SetNotifyCmdLine");
    call.line().Text("program", OrEmpty(program)).Text("parameters", OrEmpty(parameters));
    return call.Run([&] { return job_->SetNotifyCommand(program, parameters); });
  }
  HRESULT STDMETHODCALLTYPE GetNotifyCmdLine(LPWSTR* program, LPWSTR* parameters) override {
    *program = *parameters = nullptr;
    return Record("GetNotifyCmdLine").Run([&]() -> HRESULT {
      const JobSettings settings = job_->Settings();
      if (settings.notifyProgram) {
        const HRESULT copied = CopyOut(*settings.notifyProgram, program);
        if (FAILED(copied)) return copied;
      }
      return settings.notifyParameters ? CopyOut(*settings.notifyParameters, parameters) : S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE SetProperty(BITS_JOB_PROPERTY_ID id,
                                        BITS_JOB_PROPERTY_VALUE value) override {
    CallRecord call = Record("SetProperty");
    call.line().Number("property", static_cast<unsigned>(id));
    // The only property that the library sets.
    if (id != BITS_JOB_PROPERTY_MAX_DOWNLOAD_SIZE) return call.NotImplemented();
    call.line().Number("bytes", value.Uint64);
    return call.Run([&] { return job_->SetMaxBytes(value.Uint64); });
  }

  // The rest of the interface is not offered. These calls are journalled like all others.

  HRESULT STDMETHODCALLTYPE EnumFiles(IEnumBackgroundCopyFiles**) override {
    return Refuse("EnumFiles");
  }
  HRESULT STDMETHODCALLTYPE GetOwner(LPWSTR*) override { return Refuse("GetOwner"); }
  HRESULT STDMETHODCALLTYPE SetDescription(LPCWSTR) override { return Refuse("SetDescription"); }
  HRESULT STDMETHODCALLTYPE GetDescription(LPWSTR*) override { return Refuse("GetDescription"); }
  HRESULT STDMETHODCALLTYPE SetNotifyInterface(IUnknown*) override {
    return Refuse("SetNotifyInterface");
  }
  HRESULT STDMETHODCALLTYPE GetNotifyInterface(IUnknown**) override {
    return Refuse("GetNotifyInterface");
  }
  HRESULT STDMETHODCALLTYPE SetMinimumRetryDelay(ULONG) override {
    return Refuse("SetMinimumRetryDelay");
  }
  HRESULT STDMETHODCALLTYPE GetMinimumRetryDelay(ULONG*) override {
    return Refuse("GetMinimumRetryDelay");
  }
  HRESULT STDMETHODCALLTYPE GetErrorCount(ULONG*) override { return Refuse("GetErrorCount"); }
  HRESULT STDMETHODCALLTYPE SetProxySettings(BG_JOB_PROXY_USAGE, const WCHAR*,
                                             const WCHAR*) override {
    return Refuse("SetProxySettings");
  }
  HRESULT STDMETHODCALLTYPE GetProxySettings(BG_JOB_PROXY_USAGE*, LPWSTR*, LPWSTR*) override {
    return Refuse("GetProxySettings");
  }
  HRESULT STDMETHODCALLTYPE TakeOwnership() override { return Refuse("TakeOwnership"); }
  HRESULT STDMETHODCALLTYPE GetReplyProgress(BG_JOB_REPLY_PROGRESS*) override {
    return Refuse("GetReplyProgress");
  }
  HRESULT STDMETHODCALLTYPE GetReplyData(byte**, UINT64*) override {
    return Refuse("GetReplyData");
  }
  HRESULT STDMETHODCALLTYPE SetReplyFileName(LPCWSTR) override {
    return Refuse("SetReplyFileName");
  }
  HRESULT STDMETHODCALLTYPE GetReplyFileName(LPWSTR*) override {
    return Refuse("GetReplyFileName");
  }
  HRESULT STDMETHODCALLTYPE SetCredentials(BG_AUTH_CREDENTIALS*) override {
    return Refuse("SetCredentials");
  }
  HRESULT STDMETHODCALLTYPE RemoveCredentials(BG_AUTH_TARGET, BG_AUTH_SCHEME) override {
    return Refuse("RemoveCredentials");
  }
  HRESULT STDMETHODCALLTYPE ReplaceRemotePrefix(LPCWSTR, LPCWSTR) override {
    return Refuse("ReplaceRemotePrefix");
  }
  HRESULT STDMETHODCALLTYPE AddFileWithRanges(LPCWSTR, LPCWSTR, DWORD, BG_FILE_RANGE*) override {
    return Refuse("AddFileWithRanges");
  }
  HRESULT STDMETHODCALLTYPE SetFileACLFlags(DWORD) override { return Refuse("SetFileACLFlags"); }
  HRESULT STDMETHODCALLTYPE GetFileACLFlags(DWORD*) override { return Refuse("GetFileACLFlags"); }
  HRESULT STDMETHODCALLTYPE SetPeerCachingFlags(DWORD) override {
    return Refuse("SetPeerCachingFlags");
  }
  HRESULT STDMETHODCALLTYPE GetPeerCachingFlags(DWORD*) override {
    return Refuse("GetPeerCachingFlags");
  }
  HRESULT STDMETHODCALLTYPE GetOwnerIntegrityLevel(ULONG*) override {
    return Refuse("GetOwnerIntegrityLevel");
  }
  HRESULT STDMETHODCALLTYPE GetOwnerElevationState(BOOL*) override {
    return Refuse("GetOwnerElevationState");
  }
  HRESULT STDMETHODCALLTYPE SetMaximumDownloadTime(ULONG) override {
    return Refuse("SetMaximumDownloadTime");
  }
  HRESULT STDMETHODCALLTYPE GetMaximumDownloadTime(ULONG*) override {
    return Refuse("GetMaximumDownloadTime");
  }
  HRESULT STDMETHODCALLTYPE GetProperty(BITS_JOB_PROPERTY_ID, BITS_JOB_PROPERTY_VALUE*) override {
    return Refuse("GetProperty");
  }

 private:
  bool Answers(const GUID& id) override {
    // The control file is read at each question. Clients here never ask for versions 3 and 4.
    if (id == __uuidof(IBackgroundCopyJob5)) return service_.control.Job5Offered();
    if (id == __uuidof(IBackgroundCopyJob2)) return !service_.control.Job2Withheld();
    return id == IID_IUnknown || id == __uuidof(IBackgroundCopyJob);
  }

  CallRecord Record(const char* call) { return {service_, call, *job_}; }
  HRESULT Refuse(const char* call) { return Record(call).NotImplemented(); }

  Service& service_;
  const std::shared_ptr<Job> job_;
};

}  // namespace

IBackgroundCopyJob* NewJobObject(Service& service, std::shared_ptr<Job> job) {
  return new JobObject(service, std::move(job));
}

}  // namespace standin
