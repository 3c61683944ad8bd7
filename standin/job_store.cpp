#include "standin/job_store.h"

#include <algorithm>

#include "standin/guid_text.h"
#include "standin/job_file.h"
#include "util/files.h"
#include "util/text.h"
#include "util/win/windows_lean.h"

namespace standin {
namespace {

// The service's own codes, which the toolchain's header lacks.
constexpr HResult kTooManyJobsOfUser = static_cast<HResult>(0x80200049);
constexpr HResult kTooManyJobs = static_cast<HResult>(0x80200050);

}  // namespace

JobStore::JobStore(const std::wstring& path) : path_(NarrowUtf8(path)) {}

void JobStore::Load() {
  const std::lock_guard fileLock(fileMutex_);
  saved_ = FileSystem::ReadFile(path_);
  const std::lock_guard lock(mutex_);
  for (JobRecord& record : ParseJobs(saved_)) {
    jobs_.push_back(std::make_shared<Job>(std::move(record)));
  }
}

// The lock of the file spans reading the jobs and writing them. Otherwise a slow thread could
// replace a newer text by its older one.
bool JobStore::Save() {
  const std::lock_guard fileLock(fileMutex_);
  std::vector<JobRecord> records;
  for (const std::shared_ptr<Job>& job : Live()) records.push_back(job->Record());
  std::string text = FormatJobs(records);
  if (text == saved_) return true;
  if (!FileSystem::WriteFile(path_, text)) return false;
  saved_ = std::move(text);
  return true;
}

HResult JobStore::Create(const std::wstring& displayName, const std::string& owner,
                         std::shared_ptr<Job>* job) {
  auto created = std::make_shared<Job>(JobRecord{.id = NewGuidText(), .owner = owner});
  // Checks the length of the name, before the job is in the store.
  const HResult named = created->SetDisplayName(displayName);
  if (named != S_OK) return named;
  const std::lock_guard lock(mutex_);
  DropEnded();
  const auto isOfUser = [&](const std::shared_ptr<Job>& j) { return j->owner() == owner; };
  if (jobs_.size() >= kMaxJobs) return kTooManyJobs;
  if (std::count_if(jobs_.begin(), jobs_.end(), isOfUser) >= kMaxJobsOfUser) {
    return kTooManyJobsOfUser;
  }
  jobs_.push_back(created);
  *job = std::move(created);
  return S_OK;
}

std::shared_ptr<Job> JobStore::Find(std::string_view id) {
  const std::lock_guard lock(mutex_);
  DropEnded();
  const auto job = std::find_if(jobs_.begin(), jobs_.end(),
                                [&](const std::shared_ptr<Job>& j) { return j->id() == id; });
  return job == jobs_.end() ? nullptr : *job;
}

std::vector<std::shared_ptr<Job>> JobStore::Live() {
  const std::lock_guard lock(mutex_);
  DropEnded();
  return jobs_;
}

// Takes the jobs' locks inside the store's. That is safe: a job does not know the store.
void JobStore::DropEnded() {
  std::erase_if(jobs_, [](const std::shared_ptr<Job>& job) { return job->HasEnded(); });
}

}  // namespace standin
