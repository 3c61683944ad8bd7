#include "standin/transfer.h"

#include <algorithm>
#include <optional>
#include <system_error>
#include <thread>

#include "standin/downloader.h"
#include "standin/notify.h"
#include "util/win/windows_lean.h"
// After the system's header, which it needs.
#include <bits.h>

namespace standin {
namespace {

class Transfer {
 public:
  Transfer(Service& service, std::shared_ptr<Job> job, Job::Run run)
      : service_(service), job_(std::move(job)), run_(run) {}

  void Execute() {
    for (;;) {
      const Job::Step step = job_->NextStep(run_);
      // Before the journal names the new state: a server that is killed then must not lose it.
      service_.SaveJobs();
      switch (step.kind) {
        case Job::Step::Kind::kVoid:
          return;
        case Job::Step::Kind::kTransferred:
          return AnnounceTransferred();
        case Job::Step::Kind::kNoFile:
          return Fail(LocalError(step.code));
        case Job::Step::Kind::kDownload:
          if (!Fetch(step.url)) return;
      }
    }
  }

 private:
  static JobError LocalError(HResult code) {
    return {code, BG_ERROR_CONTEXT_LOCAL_FILE, "the temporary file cannot be written"};
  }

  // Returns whether the run goes on.
  bool Fetch(const std::wstring& url) {
    HResult failure = S_OK;
    const DownloadSink sink{
        .begin =
            [&](std::optional<std::uint64_t> size) { return job_->SetSize(run_, size, &failure); },
        .take = [&](const char* data,
                    std::size_t size) { return job_->Append(run_, data, size, &failure); }};
    const ServerRule rule =
        service_.control.AnyServerWillDo() ? ServerRule::kAny : ServerRule::kStatic;
    const DownloadResult result = Download(url, rule, sink);
    switch (result.kind) {
      case DownloadResult::Kind::kDone:
        // A whole file is progress, so the next failure starts the no-progress time-out again.
        stalledAt_.reset();
        bytesAtStall_ = 0;
        return job_->FinishFile(run_);
      case DownloadResult::Kind::kInterrupted:
        return Stall({result.code, result.context, result.text});
      case DownloadResult::Kind::kRefused:
        Fail({result.code, result.context, result.text});
        return false;
      case DownloadResult::Kind::kEndedBySink:
        if (failure == kTooManyBytes) {
          Fail({failure, BG_ERROR_CONTEXT_REMOTE_FILE, "the file has more bytes than the job may"});
        } else if (failure != S_OK) {
          Fail(LocalError(failure));
        }
        // Without a failure a client has ended the run, so there is no event.
        return false;
    }
    return false;
  }

  // The time-out counts from the first failure after the last new byte. Only that failure is
  // journalled, not each repeated one.
  bool Stall(const JobError& error) {
    if (!job_->Stall(run_, error)) return false;
    service_.SaveJobs();
    if (job_->MostBytes() > bytesAtStall_) stalledAt_.reset();
    if (!stalledAt_) {
      stalledAt_ = service_.JobSeconds();
      bytesAtStall_ = job_->MostBytes();
      Record("transient_error", error, &Journal::Write);
    }
    return WaitForRetry(error);
  }

  // The time-out wins if it comes before the retry, however late this thread wakes up. It is read
  // at each look, since a client may change it while the job waits.
  bool WaitForRetry(const JobError& error) {
    const double retryAt = service_.JobSeconds() + kRetryDelaySeconds;
    const auto giveUpAt = [&] { return *stalledAt_ + job_->Settings().noProgressSeconds; };
    const auto isDue = [&] { return giveUpAt() <= std::min(retryAt, service_.JobSeconds()); };
    const auto goesOn = [&] { return job_->IsCurrent(run_) && !isDue(); };
    if (service_.WaitUntil(retryAt, goesOn) && retryAt < giveUpAt()) return true;
    Fail(error);
    return false;
  }

  void Fail(const JobError& error) {
    if (!job_->Fail(run_, error)) return;
    service_.SaveJobs();
    Record("error", error, &Journal::WriteError);
  }

  void AnnounceTransferred() {
    service_.journal.Write(JsonLine()
                               .Text("event", "transferred")
                               .Text("job", job_->id())
                               .Number("bytes", job_->Progress().bytesTransferred));
  }

  void Record(const char* event, const JobError& error, void (Journal::*write)(const JsonLine&)) {
    (service_.journal.*write)(JsonLine()
                                  .Text("event", event)
                                  .Text("job", job_->id())
                                  .Code("code", error.code)
                                  .Text("text", error.text));
  }

  Service& service_;
  const std::shared_ptr<Job> job_;
  const Job::Run run_;
  std::optional<double> stalledAt_;
  std::uint64_t bytesAtStall_ = 0;
};

// The notice comes from the same thread: the program starts after the transfer's last event.
void RunTransfer(Service& service, const std::shared_ptr<Job>& job, Job::Run run) {
  try {
    Transfer(service, job, run).Execute();
    DeliverNotice(service, *job, run);
  } catch (const std::exception& e) {
    // Memory may have run out. The job keeps its state, and the next server takes it up.
    service.journal.Problem("the transfer of " + job->id() + " ended: " + e.what());
  }
}

}  // namespace

void StartTransfer(Service& service, const std::shared_ptr<Job>& job, Job::Run run) {
  const LifetimeHold hold(service.lifetime);
  try {
    // Detached: a thread that waits for a silent web server must not delay the end of the server.
    // The copy of `hold` keeps the server running for all others.
    std::thread([&service, hold, job, run] { RunTransfer(service, job, run); }).detach();
  } catch (const std::system_error& e) {
    service.journal.Problem("no thread for the transfer of " + job->id() + ": " + e.what());
    job->Fail(run, {E_OUTOFMEMORY, BG_ERROR_CONTEXT_GENERAL_QUEUE_MANAGER, e.what()});
  }
}

}  // namespace standin
