// All jobs that have not ended.
#ifndef KUPDATE_STANDIN_JOB_STORE_H_
#define KUPDATE_STANDIN_JOB_STORE_H_

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "standin/job.h"

namespace standin {

inline constexpr std::size_t kMaxJobs = 60;

/// May be used by several threads. Jobs that have ended leave the store by themselves; whoever
/// still holds one keeps it.
class JobStore {
 public:
  /// Makes a suspended job with a new id.
  /// @param job  receives it on S_OK
  HResult Create(const std::wstring& displayName, std::shared_ptr<Job>* job);
  /// Null when there is none of that id. The id is in registry form, as Job::id() gives it.
  std::shared_ptr<Job> Find(std::string_view id);
  /// In the order of their creation.
  std::vector<std::shared_ptr<Job>> Live();

 private:
  void DropEnded();

  std::mutex mutex_;
  std::vector<std::shared_ptr<Job>> jobs_;
};

}  // namespace standin

#endif  // KUPDATE_STANDIN_JOB_STORE_H_
