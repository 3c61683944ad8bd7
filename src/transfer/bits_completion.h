// Reading and ending a job that was started earlier, here or in another process.
#ifndef KUPDATE_TRANSFER_BITS_COMPLETION_H_
#define KUPDATE_TRANSFER_BITS_COMPLETION_H_

#include <cstdint>
#include <memory>
#include <string>

#include "transfer/job.h"

class TBitsTransferCompletion {
 public:
  /// One existing job. Used by one thread, on which COM must be initialised and stay so while this
  /// lives. All operations throw _com_error when a call fails.
  class TWorker {
   public:
    /// @param jobId  the job's id with braces
    explicit TWorker(const std::string& jobId);
    ~TWorker();
    TWorker(const TWorker&) = delete;
    TWorker& operator=(const TWorker&) = delete;

    JobState GetJobState() const;
    /// How many bytes have been transferred so far.
    std::uint64_t BytesTransferred() const;
    /// Ends the job: one that has transferred is completed, which hands its file over; any other is
    /// cancelled, and one whose file cannot be handed over. Throws for that too.
    void Finish();

   private:
    struct Job;
    std::unique_ptr<Job> job_;
  };

  static std::unique_ptr<TWorker> CreateWorker(const std::string& jobId);
};

#endif  // KUPDATE_TRANSFER_BITS_COMPLETION_H_
