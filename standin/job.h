// One transfer job: its life cycle, apart from COM and from the network.
#ifndef KUPDATE_STANDIN_JOB_H_
#define KUPDATE_STANDIN_JOB_H_

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "standin/codes.h"
#include "standin/job_record.h"
#include "standin/temp_file.h"

namespace standin {

/// The service's own code for a job that would transfer more than its client allows.
inline constexpr HResult kTooManyBytes = static_cast<HResult>(0x80200064);

struct JobProgress {
  std::optional<std::uint64_t> bytesTotal;  ///< empty while a file's size is unknown
  std::uint64_t bytesTransferred = 0;
  std::uint32_t filesTotal = 0;
  std::uint32_t filesTransferred = 0;
};

/// The life of a job:
///
///   SUSPENDED --Resume--> QUEUED --> CONNECTING --> TRANSFERRING --> TRANSFERRED
///       ^                   ^             |  ^            |
///       '---- Suspend ------|-------------+--|------------+--> ERROR --Resume--> QUEUED
///                           |             v  | retry      |
///                           '-- Resume - TRANSIENT_ERROR <'
///
///   Complete leads from any of them to ACKNOWLEDGED, Cancel to CANCELLED. Those two are the end.
///
/// Each Resume that starts the transfer opens a run, known by its number. When that run has ended
/// or was replaced, its transfer can no longer change the job. May be used by several threads.
class Job {
 public:
  using Run = std::uint64_t;

  /// A new job, or one that the last server left.
  explicit Job(JobRecord record);

  const std::string& id() const { return id_; }
  const std::string& owner() const { return owner_; }

  // Calls of clients. These answer BG_E_INVALID_STATE once the job has ended.

  HResult AddFile(const std::wstring& url, const std::wstring& path) {
    return AddFiles({{.url = url, .path = path}});
  }
  /// Adds all files or none; uses only `url` and `path` of each.
  HResult AddFiles(const std::vector<JobFile>& files);
  /// @param run  receives the run whose transfer the caller must start; stays empty for no run
  HResult Resume(std::optional<Run>* run);
  HResult Suspend();
  HResult Cancel();
  /// Renames every transferred file onto its target, then ends the job. A file that cannot be
  /// renamed leaves the job as it was, except for the files renamed before it.
  HResult Complete();
  HResult SetDisplayName(const std::wstring& name);
  HResult SetPriority(int priority);
  HResult SetNoProgressSeconds(std::uint32_t seconds);
  HResult SetNotifyFlags(std::uint32_t flags);
  /// The limit for all files together; a job with more bytes fails.
  HResult SetMaxBytes(std::uint64_t bytes);
  /// Null pointers remove the program, the parameters or both.
  HResult SetNotifyCommand(const wchar_t* program, const wchar_t* parameters);

  // Readable at any time, also after the end.

  JobState State() const;
  bool HasEnded() const;
  JobSettings Settings() const;
  JobProgress Progress() const;
  JobTimes Times() const;
  /// Only in the states ERROR and TRANSIENT_ERROR.
  std::optional<JobError> Error() const;
  JobRecord Record() const;

  /// Continues where the last server stopped. A running transfer starts again, as does a finished
  /// one whose temporary file is gone.
  /// @return the run whose transfer or notice the caller must start; empty when the job rests
  std::optional<Run> TakeUp();

  // Reports from the transfer of a run. False, or kVoid: the run is over, stop without a trace.

  struct Step {
    enum class Kind { kVoid, kDownload, kTransferred, kNoFile } kind = Kind::kVoid;
    std::wstring url;  ///< of kDownload
    HResult code = 0;  ///< of kNoFile: why there is no temporary file
  };
  /// Opens the next file to download: the job is CONNECTING. Without another file it is
  /// TRANSFERRED.
  Step NextStep(Run run);
  /// The server answers: the job is TRANSFERRING.
  /// @param failure  receives kTooManyBytes when the file is too large for the job
  bool SetSize(Run run, std::optional<std::uint64_t> sizeBytes, HResult* failure);
  /// @param failure  receives the same, or the code when the bytes cannot be written
  bool Append(Run run, const char* data, std::size_t sizeBytes, HResult* failure);
  bool FinishFile(Run run);
  /// TRANSIENT_ERROR; the transfer goes on with NextStep.
  bool Stall(Run run, const JobError& error);
  /// ERROR; ends the run.
  bool Fail(Run run, const JobError& error);
  bool IsCurrent(Run run) const;
  /// The most bytes that the unfinished file ever had. Bytes fetched again are no progress.
  std::uint64_t MostBytes() const;

  // The notice of a run says that it has come to TRANSFERRED or ERROR.

  /// Whether the run has come to its end, and neither a client nor a notify program has ended the
  /// notice since.
  bool IsNoticeDue(Run run) const;
  void EndNotice(Run run);

  /// Ends the run as the end of the server does: the temporary files stay.
  void Rest();

 private:
  struct File : JobFile {
    TempFile temp;
  };

  // Callers of these hold the lock.
  bool Ended() const;
  bool Current(Run run) const { return running_ && run == run_; }
  void Enter(JobState state);
  Run StartRun();
  void StopRun();
  File* Unfinished();
  bool FitsIn(std::uint64_t moreBytes) const;
  bool DiscardTemps();
  template <class Change>
  HResult Modify(Change change);

  mutable std::mutex mutex_;
  const std::string id_;
  const std::string owner_;
  JobState state_ = JobState::kSuspended;
  JobSettings settings_;
  JobTimes times_;
  JobError error_;
  std::vector<File> files_;
  Run run_ = 0;
  bool running_ = false;
  bool noticeDue_ = false;
  std::uint64_t mostBytes_ = 0;
};

}  // namespace standin

#endif  // KUPDATE_STANDIN_JOB_H_
