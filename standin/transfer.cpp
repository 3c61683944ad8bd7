#include "standin/transfer.h"

#include <algorithm>
#include <optional>
#include <system_error>
#include <thread>

#include "standin/downloader.h"
#include "standin/notify.h"
#include "util/clock.h"
#include "util/win/windows_lean.h"
// After the system's header, which it needs.
#include <bits.h>

namespace standin {
namespace {

constexpr double kRetryDelaySeconds = 600;
// How late a waiting transfer may notice that its run is over, or that the clock has been changed.
constexpr double kMaxNapMilliseconds = 50;

class Transfer {
 public:
  Transfer(Service& service, std::shared_ptr<Job> job, Job::Run run)
      : service_(service), job_(std::move(job)), run_(run) {}

  void Execute() {
    for (;;) {
      const Job::Step step = job_->NextStep(run_);
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
    HResult localFailure = S_OK;
    const DownloadSink sink{
        .begin = [&](std::optional<std::uint64_t> size) { return job_->SetSize(run_, size); },
        .take = [&](const char* data,
                    std::size_t size) { return job_->Append(run_, data, size, &localFailure); }};
    const DownloadResult result = Download(url, sink);
    switch (result.kind) {
      case DownloadResult::Kind::kDone:
        stalledAt_.reset();
        bytesAtStall_ = 0;
        return job_->FinishFile(run_);
      case DownloadResult::Kind::kInterrupted:
        return Stall({result.code, result.context, result.text});
      case DownloadResult::Kind::kRefused:
        Fail({result.code, result.context, result.text});
        return false;
      case DownloadResult::Kind::kEndedBySink:
        if (localFailure != S_OK) Fail(LocalError(localFailure));
        return false;
    }
    return false;
  }

  // The time-out counts from the first failure after the last byte that was new.
  bool Stall(const JobError& error) {
    if (!job_->Stall(run_, error)) return false;
    if (job_->MostBytes() > bytesAtStall_) stalledAt_.reset();
    if (!stalledAt_) {
      stalledAt_ = service_.JobSeconds();
      bytesAtStall_ = job_->MostBytes();
      Record("transient_error", error, &Journal::Write);
    }
    return WaitForRetry(error);
  }

  // A time-out that comes first wins, however late this thread wakes up.
  bool WaitForRetry(const JobError& error) {
    const double retryAt = service_.JobSeconds() + kRetryDelaySeconds;
    while (job_->IsCurrent(run_)) {
      const double giveUpAt = *stalledAt_ + job_->Settings().noProgressSeconds;
      const double left = std::min(retryAt, giveUpAt) - service_.JobSeconds();
      if (left > 0) {
        Nap(left);
      } else if (retryAt < giveUpAt) {
        return true;
      } else {
        Fail(error);
      }
    }
    return false;
  }

  void Nap(double jobSeconds) {
    const double milliseconds = jobSeconds * 1000 / service_.control.ClockFactor();
    SleepMilliseconds(static_cast<unsigned>(std::clamp(milliseconds, 1.0, kMaxNapMilliseconds)));
  }

  void Fail(const JobError& error) {
    if (!job_->Fail(run_, error)) return;
    Record("error", error, &Journal::WriteError);
    StartNotify(service_, job_, BG_NOTIFY_JOB_ERROR);
  }

  void AnnounceTransferred() {
    service_.journal.Write(JsonLine()
                               .Text("event", "transferred")
                               .Text("job", job_->id())
                               .Number("bytes", job_->Progress().bytesTransferred));
    StartNotify(service_, job_, BG_NOTIFY_JOB_TRANSFERRED);
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

void RunTransfer(Service& service, const std::shared_ptr<Job>& job, Job::Run run) {
  try {
    Transfer(service, job, run).Execute();
  } catch (const std::exception& e) {
    service.journal.Problem("the transfer of " + job->id() + " ended: " + e.what());
  }
}

}  // namespace

void StartTransfer(Service& service, const std::shared_ptr<Job>& job, Job::Run run) {
  const LifetimeHold hold(service.lifetime);
  try {
    std::thread([&service, hold, job, run] { RunTransfer(service, job, run); }).detach();
  } catch (const std::system_error& e) {
    service.journal.Problem("no thread for the transfer of " + job->id() + ": " + e.what());
    job->Fail(run, {E_OUTOFMEMORY, BG_ERROR_CONTEXT_GENERAL_QUEUE_MANAGER, e.what()});
  }
}

}  // namespace standin
