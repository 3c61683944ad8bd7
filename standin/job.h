// One transfer job: its life cycle, apart from COM and from the network.
#ifndef KUPDATE_STANDIN_JOB_H_
#define KUPDATE_STANDIN_JOB_H_

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "standin/codes.h"
#include "standin/temp_file.h"

namespace standin {

inline constexpr std::uint32_t kDefaultNoProgressSeconds = 14 * 24 * 60 * 60;

/// What a client can set and read back. `notifyProgram` is absent when nothing is to be started.
struct JobSettings {
  std::wstring displayName;
  int priority = 2;  // normal
  std::uint32_t noProgressSeconds = kDefaultNoProgressSeconds;
  std::uint32_t notifyFlags = 3;  // transferred, error
  std::optional<std::wstring> notifyProgram;
  std::optional<std::wstring> notifyParameters;
};

struct JobProgress {
  std::optional<std::uint64_t> bytesTotal;  ///< nothing while a file's size is unknown
  std::uint64_t bytesTransferred = 0;
  std::uint32_t filesTotal = 0;
  std::uint32_t filesTransferred = 0;
};

/// In ticks of 100 ns since 1601 UTC; 0: not yet.
struct JobTimes {
  std::uint64_t created = 0;
  std::uint64_t modified = 0;
  std::uint64_t completed = 0;
};

struct JobError {
  HResult code = 0;
  int context = 0;  ///< BG_ERROR_CONTEXT
  std::string text;
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
/// Each Resume that starts the transfer opens a run, known by its number; whatever ends or replaces
/// that run makes the reports of its transfer void. May be used by several threads.
class Job {
 public:
  using Run = std::uint64_t;

  Job(std::string id, std::wstring displayName);

  /// The id in registry form, braces included.
  const std::string& id() const { return id_; }

  // What a client asks. These answer BG_E_INVALID_STATE once the job has ended.

  HResult AddFile(const std::wstring& url, const std::wstring& path);
  /// @param run  receives the run whose transfer the caller has to start; nothing when none has to.
  HResult Resume(std::optional<Run>* run);
  HResult Suspend();
  HResult Cancel();
  /// Renames every transferred file onto its target, then ends the job. A file that cannot be
  /// renamed leaves the job as it was but for the files renamed before it.
  HResult Complete();
  HResult SetDisplayName(const std::wstring& name);
  HResult SetPriority(int priority);
  HResult SetNoProgressSeconds(std::uint32_t seconds);
  HResult SetNotifyFlags(std::uint32_t flags);
  /// Null pointers take the program, the parameters or both away.
  HResult SetNotifyCommand(const wchar_t* program, const wchar_t* parameters);

  // What anyone can read at any time.

  JobState State() const;
  bool HasEnded() const;
  JobSettings Settings() const;
  JobProgress Progress() const;
  JobTimes Times() const;
  /// Only in the states ERROR and TRANSIENT_ERROR.
  std::optional<JobError> Error() const;

  // What the transfer of a run reports. False, or kVoid: the run is over, stop without a trace.

  struct Step {
    enum class Kind { kVoid, kDownload, kTransferred, kNoFile } kind = Kind::kVoid;
    std::wstring url;  ///< of kDownload
    HResult code = 0;  ///< of kNoFile: why there is no temporary file
  };
  /// Opens the next file to download: the job is CONNECTING. With none left it is TRANSFERRED.
  Step NextStep(Run run);
  /// The server answers: the job is TRANSFERRING.
  bool SetSize(Run run, std::optional<std::uint64_t> sizeBytes);
  /// @param failure  receives the code when the bytes cannot be written
  bool Append(Run run, const char* data, std::size_t sizeBytes, HResult* failure);
  bool FinishFile(Run run);
  /// TRANSIENT_ERROR; the transfer goes on with NextStep.
  bool Stall(Run run, const JobError& error);
  /// ERROR; ends the run.
  bool Fail(Run run, const JobError& error);
  bool IsCurrent(Run run) const;
  /// The most bytes that the unfinished file ever had, so that a repeated start is no progress.
  std::uint64_t MostBytes() const;

  /// Deletes the temporary files; for the end of the server.
  void DiscardFiles();

 private:
  struct File {
    std::wstring url;
    std::wstring path;
    TempFile temp;
    std::optional<std::uint64_t> sizeBytes;
    std::uint64_t doneBytes = 0;
    bool transferred = false;
    bool handedOver = false;
  };

  // All of these with the lock held.
  bool Ended() const;
  bool Current(Run run) const { return running_ && run == run_; }
  void Enter(JobState state);
  void StopRun();
  File* Unfinished();
  bool DiscardTemps();
  template <class Change>
  HResult Modify(Change change);

  mutable std::mutex mutex_;
  const std::string id_;
  JobState state_ = JobState::kSuspended;
  JobSettings settings_;
  JobTimes times_;
  JobError error_;
  std::vector<File> files_;
  Run run_ = 0;
  bool running_ = false;
  std::uint64_t mostBytes_ = 0;
};

}  // namespace standin

#endif  // KUPDATE_STANDIN_JOB_H_
