// All jobs that have not ended, in memory and in a file.
#ifndef KUPDATE_STANDIN_JOB_STORE_H_
#define KUPDATE_STANDIN_JOB_STORE_H_

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "standin/job.h"

namespace standin {

inline constexpr std::ptrdiff_t kMaxJobsOfUser = 60;
inline constexpr std::size_t kMaxJobs = 300;

/// May be used by several threads. Jobs that have ended leave the store by themselves; a client
/// that holds one can still use it.
class JobStore {
 public:
  /// @param path  the file
  explicit JobStore(const std::wstring& path);

  /// Adds the jobs that the last server left in the file.
  void Load();
  /// Replaces the file, in one step, if its text would change.
  /// @return false when it cannot be written; the next call tries again
  bool Save();

  /// Makes a suspended job with a new id.
  /// @param job  receives it on S_OK
  HResult Create(const std::wstring& displayName, const std::string& owner,
                 std::shared_ptr<Job>* job);
  /// Null for an unknown id. The id is in registry form, as Job::id() gives it.
  std::shared_ptr<Job> Find(std::string_view id);
  /// In the order of their creation.
  std::vector<std::shared_ptr<Job>> Live();

 private:
  void DropEnded();

  std::mutex mutex_;
  std::vector<std::shared_ptr<Job>> jobs_;
  std::mutex fileMutex_;  // taken before mutex_
  const std::string path_;
  std::string saved_;
};

}  // namespace standin

#endif  // KUPDATE_STANDIN_JOB_STORE_H_
