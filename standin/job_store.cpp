#include "standin/job_store.h"

#include <algorithm>

#include "standin/guid_text.h"
#include "util/win/windows_lean.h"

namespace standin {
namespace {

// The service's own codes for these; the toolchain's header lacks the first.
constexpr HResult kTooManyJobs = static_cast<HResult>(0x80200049);

}  // namespace

HResult JobStore::Create(const std::wstring& displayName, std::shared_ptr<Job>* job) {
  auto created = std::make_shared<Job>(NewGuidText(), L"");
  const HResult named = created->SetDisplayName(displayName);
  if (named != S_OK) return named;
  const std::lock_guard lock(mutex_);
  DropEnded();
  if (jobs_.size() >= kMaxJobs) return kTooManyJobs;
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

void JobStore::DropEnded() {
  std::erase_if(jobs_, [](const std::shared_ptr<Job>& job) { return job->HasEnded(); });
}

}  // namespace standin
