// One download that the transfer service does on its own.
#ifndef KUPDATE_TRANSFER_BITS_TRANSFER_H_
#define KUPDATE_TRANSFER_BITS_TRANSFER_H_

#include <cstdint>
#include <string>

#include "transfer/job.h"

struct IBackgroundCopyJob;
struct IBackgroundCopyJob2;

/// Creates one job with one file and starts it; the job goes on when this object and its process
/// are gone. When it has transferred or failed, the service starts the notify program with the
/// arguments and " --job " and the job's id.
///
///   CreateJob -> suspended -> configured -> Resume -> added
///                    |            |
///                    |            +- a call failed: cancelled, so that failures do not use up
///                    |               the jobs that the service grants a user
///                    +- the service is too old for notify programs: stays suspended
///
/// Used by one thread, on which COM must be initialised.
class TBitsTransfer final {
 public:
  static constexpr std::uint32_t kDefaultTimeoutSeconds = 1209600;  // 14 days

  /// @param url      remote address, UTF-8
  /// @param outfile  full local path; it appears when the job is completed
  /// @param purpose  decides how large the file may be and how many such jobs there may be
  TBitsTransfer(std::string url, std::wstring outfile, JobPurpose purpose = JobPurpose::kHostFeed);

  /// @param program     full path of the notify program; empty: no program is started
  /// @param parameters  its arguments
  void NotifyCmdLine(std::wstring program, std::wstring parameters);
  /// Seconds without progress after which the service gives the job up; 0 keeps the service's own.
  void SetTimeout(std::uint32_t seconds) { timeoutSeconds_ = seconds; }
  void SetHighPriority(bool high) { highPriority_ = high; }

  /// Creates, configures and starts the job. Returns without a job, Added() is false then, when the
  /// service cannot be reached, as from a process of low integrity, and when there are as many jobs
  /// of ours as there may be. Ends abandoned jobs of ours. A service that can keep a limit of the
  /// file's size gets it. Throws _com_error when a call fails.
  virtual void Work();

  /// Whether the job was started.
  bool Added() const { return added_; }
  /// The job's id with braces; empty until it was started.
  const std::string& JobId() const { return jobId_; }

 private:
  void LimitSize(IBackgroundCopyJob& job);
  void Configure(IBackgroundCopyJob& job);
  void SetNotifyFlags(IBackgroundCopyJob2* job);
  void Start(IBackgroundCopyJob2& job, const std::wstring& id);
  void JobAdded(const std::wstring& id);

  std::string url_;
  std::wstring outfile_;
  JobPurpose purpose_;
  std::uint32_t timeoutSeconds_ = kDefaultTimeoutSeconds;
  std::wstring notifyProgram_;
  std::wstring notifyParameters_;
  bool highPriority_ = false;
  std::string jobId_;
  bool added_ = false;
};

#endif  // KUPDATE_TRANSFER_BITS_TRANSFER_H_
