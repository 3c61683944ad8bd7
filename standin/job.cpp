#include "standin/job.h"

#include <algorithm>

#include "standin/downloader.h"
#include "util/win/windows_lean.h"
// After the system's header, which it needs.
#include <bitsmsg.h>

namespace standin {
namespace {

constexpr std::size_t kMaxDisplayNameChars = 256;
constexpr std::size_t kMaxUrlChars = 2200;
constexpr std::size_t kMaxProgramChars = MAX_PATH;
constexpr std::size_t kMaxParametersChars = 4000;
constexpr int kLowestPriority = 3;
constexpr std::uint32_t kKnownNotifyFlags = 0x1F;

std::uint64_t NowTicks() {
  FILETIME time;
  ::GetSystemTimeAsFileTime(&time);
  return (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
}

// "C:\folder\file" or "\\server\share\file", and never a folder.
bool IsAbsoluteFilePath(const std::wstring& path) {
  const auto isSlash = [](wchar_t c) { return c == L'\\' || c == L'/'; };
  const bool drive = path.size() > 3 && path[1] == L':' && isSlash(path[2]);
  const bool share = path.size() > 3 && isSlash(path[0]) && isSlash(path[1]);
  return (drive || share) && path.size() < MAX_PATH && !isSlash(path.back());
}

std::optional<std::wstring> Optional(const wchar_t* text) {
  return text ? std::optional<std::wstring>(text) : std::nullopt;
}

}  // namespace

Job::Job(std::string id, std::wstring displayName) : id_(std::move(id)) {
  settings_.displayName = std::move(displayName);
  times_.created = times_.modified = NowTicks();
}

bool Job::Ended() const {
  return state_ == JobState::kAcknowledged || state_ == JobState::kCancelled;
}

void Job::Enter(JobState state) {
  state_ = state;
  times_.modified = NowTicks();
}

void Job::StopRun() {
  running_ = false;
  for (File& file : files_) file.temp.Close();
}

Job::File* Job::Unfinished() {
  const auto file =
      std::find_if(files_.begin(), files_.end(), [](const File& f) { return !f.transferred; });
  return file == files_.end() ? nullptr : &*file;
}

bool Job::DiscardTemps() {
  bool gone = true;
  for (File& file : files_) gone = file.temp.Discard() && gone;
  return gone;
}

HResult Job::AddFile(const std::wstring& url, const std::wstring& path) {
  if (url.size() > kMaxUrlChars || !IsDownloadUrl(url)) return E_INVALIDARG;
  if (!IsAbsoluteFilePath(path)) return E_INVALIDARG;
  const std::lock_guard lock(mutex_);
  if (Ended()) return BG_E_INVALID_STATE;
  files_.push_back({.url = url, .path = path, .temp = {}, .sizeBytes = {}});
  // There is something to transfer again, and like every new job it waits for Resume.
  Enter(state_ == JobState::kTransferred ? JobState::kSuspended : state_);
  return S_OK;
}

HResult Job::Resume(std::optional<Run>* run) {
  const std::lock_guard lock(mutex_);
  if (Ended()) return BG_E_INVALID_STATE;
  if (files_.empty()) return BG_E_EMPTY;
  const bool waits = state_ == JobState::kSuspended || state_ == JobState::kError ||
                     state_ == JobState::kTransientError;
  if (!waits) return S_OK;
  StopRun();
  running_ = true;
  *run = ++run_;
  Enter(JobState::kQueued);
  return S_OK;
}

HResult Job::Suspend() {
  const std::lock_guard lock(mutex_);
  if (Ended()) return BG_E_INVALID_STATE;
  // A job in error or transferred rests already.
  if (state_ == JobState::kError || state_ == JobState::kTransferred) return S_OK;
  StopRun();
  Enter(JobState::kSuspended);
  return S_OK;
}

HResult Job::Cancel() {
  const std::lock_guard lock(mutex_);
  if (Ended()) return BG_E_INVALID_STATE;
  StopRun();
  Enter(JobState::kCancelled);
  return DiscardTemps() ? S_OK : BG_S_UNABLE_TO_DELETE_FILES;
}

HResult Job::Complete() {
  const std::lock_guard lock(mutex_);
  if (Ended()) return BG_E_INVALID_STATE;
  for (File& file : files_) {
    if (!file.transferred || file.handedOver) continue;
    const HResult moved = file.temp.MoveOnto(file.path);
    if (moved != S_OK) return moved;
    file.handedOver = true;
  }
  const bool whole = Unfinished() == nullptr;
  StopRun();
  Enter(JobState::kAcknowledged);
  if (!DiscardTemps()) return BG_S_UNABLE_TO_DELETE_FILES;
  return whole ? S_OK : BG_S_PARTIAL_COMPLETE;
}

template <class Change>
HResult Job::Modify(Change change) {
  const std::lock_guard lock(mutex_);
  if (Ended()) return BG_E_INVALID_STATE;
  change(settings_);
  Enter(state_);
  return S_OK;
}

HResult Job::SetDisplayName(const std::wstring& name) {
  if (name.size() > kMaxDisplayNameChars) return BG_E_STRING_TOO_LONG;
  return Modify([&](JobSettings& settings) { settings.displayName = name; });
}

HResult Job::SetPriority(int priority) {
  if (priority < 0 || priority > kLowestPriority) return E_INVALIDARG;
  return Modify([&](JobSettings& settings) { settings.priority = priority; });
}

HResult Job::SetNoProgressSeconds(std::uint32_t seconds) {
  return Modify([&](JobSettings& settings) { settings.noProgressSeconds = seconds; });
}

HResult Job::SetNotifyFlags(std::uint32_t flags) {
  if (flags & ~kKnownNotifyFlags) return E_INVALIDARG;
  return Modify([&](JobSettings& settings) { settings.notifyFlags = flags; });
}

HResult Job::SetNotifyCommand(const wchar_t* program, const wchar_t* parameters) {
  if (!program && parameters) return E_INVALIDARG;
  const std::optional<std::wstring> newProgram = Optional(program);
  const std::optional<std::wstring> newParameters = Optional(parameters);
  if (newProgram && newProgram->size() > kMaxProgramChars) return BG_E_STRING_TOO_LONG;
  if (newParameters && newParameters->size() > kMaxParametersChars) return BG_E_STRING_TOO_LONG;
  return Modify([&](JobSettings& settings) {
    settings.notifyProgram = newProgram;
    settings.notifyParameters = newParameters;
  });
}

JobState Job::State() const {
  const std::lock_guard lock(mutex_);
  return state_;
}

bool Job::HasEnded() const {
  const std::lock_guard lock(mutex_);
  return Ended();
}

JobSettings Job::Settings() const {
  const std::lock_guard lock(mutex_);
  return settings_;
}

JobProgress Job::Progress() const {
  const std::lock_guard lock(mutex_);
  JobProgress progress{.bytesTotal = 0, .filesTotal = static_cast<std::uint32_t>(files_.size())};
  for (const File& file : files_) {
    const bool known = progress.bytesTotal && file.sizeBytes;
    progress.bytesTotal =
        known ? std::optional(*progress.bytesTotal + *file.sizeBytes) : std::nullopt;
    progress.bytesTransferred += file.doneBytes;
    progress.filesTransferred += file.transferred ? 1 : 0;
  }
  return progress;
}

JobTimes Job::Times() const {
  const std::lock_guard lock(mutex_);
  return times_;
}

std::optional<JobError> Job::Error() const {
  const std::lock_guard lock(mutex_);
  const bool failed = state_ == JobState::kError || state_ == JobState::kTransientError;
  return failed ? std::optional(error_) : std::nullopt;
}

Job::Step Job::NextStep(Run run) {
  const std::lock_guard lock(mutex_);
  if (!Current(run)) return {};
  File* file = Unfinished();
  if (!file) {
    StopRun();
    Enter(JobState::kTransferred);
    times_.completed = times_.modified;
    return {.kind = Step::Kind::kTransferred, .url = {}};
  }
  Enter(JobState::kConnecting);
  file->doneBytes = 0;
  const HResult started = file->temp.Start(file->path);
  if (started != S_OK) return {.kind = Step::Kind::kNoFile, .url = {}, .code = started};
  return {.kind = Step::Kind::kDownload, .url = file->url};
}

bool Job::SetSize(Run run, std::optional<std::uint64_t> sizeBytes) {
  const std::lock_guard lock(mutex_);
  if (!Current(run)) return false;
  Unfinished()->sizeBytes = sizeBytes;
  Enter(JobState::kTransferring);
  return true;
}

bool Job::Append(Run run, const char* data, std::size_t sizeBytes, HResult* failure) {
  const std::lock_guard lock(mutex_);
  if (!Current(run)) return false;
  File& file = *Unfinished();
  *failure = file.temp.Append(data, sizeBytes);
  if (*failure != S_OK) return false;
  file.doneBytes += sizeBytes;
  mostBytes_ = std::max(mostBytes_, file.doneBytes);
  return true;
}

bool Job::FinishFile(Run run) {
  const std::lock_guard lock(mutex_);
  if (!Current(run)) return false;
  File& file = *Unfinished();
  file.temp.Close();
  file.sizeBytes = file.doneBytes;
  file.transferred = true;
  mostBytes_ = 0;
  return true;
}

bool Job::Stall(Run run, const JobError& error) {
  const std::lock_guard lock(mutex_);
  if (!Current(run)) return false;
  Unfinished()->temp.Close();
  error_ = error;
  Enter(JobState::kTransientError);
  return true;
}

bool Job::Fail(Run run, const JobError& error) {
  const std::lock_guard lock(mutex_);
  if (!Current(run)) return false;
  StopRun();
  error_ = error;
  Enter(JobState::kError);
  return true;
}

bool Job::IsCurrent(Run run) const {
  const std::lock_guard lock(mutex_);
  return Current(run);
}

std::uint64_t Job::MostBytes() const {
  const std::lock_guard lock(mutex_);
  return mostBytes_;
}

void Job::DiscardFiles() {
  const std::lock_guard lock(mutex_);
  StopRun();
  DiscardTemps();
}

}  // namespace standin
