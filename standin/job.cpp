#include "standin/job.h"

#include <algorithm>

#include "standin/downloader.h"
#include "util/win/windows_lean.h"
// After the system's header, which it needs.
#include <bitsmsg.h>

namespace standin {
namespace {

// Limits that the real service documents; the number of files is the default of a policy.
constexpr std::size_t kMaxDisplayNameChars = 256;
constexpr std::size_t kMaxUrlChars = 2200;
constexpr std::size_t kMaxProgramChars = MAX_PATH;
constexpr std::size_t kMaxParametersChars = 4000;
constexpr int kLowestPriority = 3;
constexpr std::uint32_t kKnownNotifyFlags = 0x1F;
constexpr std::size_t kMaxFiles = 200;

// The service's own code for too many files, which the toolchain's header lacks.
constexpr HResult kTooManyFilesInJob = static_cast<HResult>(0x80200051);

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

Job::Job(JobRecord record)
    : id_(std::move(record.id)),
      owner_(std::move(record.owner)),
      state_(record.state),
      settings_(std::move(record.settings)),
      times_(record.times),
      error_(std::move(record.error)),
      noticeDue_(record.noticeDue) {
  // A job of the last server keeps its times.
  if (times_.created == 0) times_.created = times_.modified = NowTicks();
  for (JobFile& file : record.files) {
    TempFile temp(file.tempPath);
    files_.push_back({std::move(file), std::move(temp)});
  }
}

JobRecord Job::Record() const {
  const std::lock_guard lock(mutex_);
  JobRecord record{.id = id_,
                   .owner = owner_,
                   .state = state_,
                   .settings = settings_,
                   .times = times_,
                   .error = error_,
                   .noticeDue = noticeDue_};
  for (const File& file : files_) {
    record.files.push_back(file);
    record.files.back().tempPath = file.temp.path();
  }
  return record;
}

std::optional<Job::Run> Job::TakeUp() {
  const std::lock_guard lock(mutex_);
  // A temporary file may be gone, deleted while no server ran: then the file is fetched again.
  for (File& file : files_) {
    file.transferred = file.transferred && (file.handedOver || file.temp.Exists());
    if (!file.transferred) file.doneBytes = 0;
  }
  const bool rests = state_ == JobState::kSuspended || state_ == JobState::kError ||
                     (state_ == JobState::kTransferred && !Unfinished());
  if (!rests) return StartRun();
  // The notice counts as one of run 0, the number that each job has before its first run.
  return noticeDue_ ? std::optional(run_) : std::nullopt;
}

bool Job::Ended() const {
  return state_ == JobState::kAcknowledged || state_ == JobState::kCancelled;
}

void Job::Enter(JobState state) {
  state_ = state;
  times_.modified = NowTicks();
}

Job::Run Job::StartRun() {
  StopRun();
  running_ = true;
  // The notice of an earlier run would start a program for a result that no longer counts.
  noticeDue_ = false;
  Enter(JobState::kQueued);
  return ++run_;
}

// The thread of the run may hang in a silent connection. It finds its number stale later, so the
// file must be closed here: the caller may rename or delete it.
void Job::StopRun() {
  running_ = false;
  for (File& file : files_) file.temp.Close();
}

Job::File* Job::Unfinished() {
  const auto file =
      std::find_if(files_.begin(), files_.end(), [](const File& f) { return !f.transferred; });
  return file == files_.end() ? nullptr : &*file;
}

bool Job::FitsIn(std::uint64_t moreBytes) const {
  for (const File& file : files_) moreBytes += file.doneBytes;
  // Without a limit the sum is compared with itself.
  return moreBytes <= settings_.maxBytes.value_or(moreBytes);
}

bool Job::DiscardTemps() {
  bool gone = true;
  // Discard stands first, so that one file that stays does not save the others.
  for (File& file : files_) gone = file.temp.Discard() && gone;
  return gone;
}

HResult Job::AddFiles(const std::vector<JobFile>& files) {
  for (const JobFile& file : files) {
    if (file.url.size() > kMaxUrlChars || !IsDownloadUrl(file.url)) return E_INVALIDARG;
    if (!IsAbsoluteFilePath(file.path)) return E_INVALIDARG;
  }
  const std::lock_guard lock(mutex_);
  if (Ended()) return BG_E_INVALID_STATE;
  if (files_.size() + files.size() > kMaxFiles) return kTooManyFilesInJob;
  for (const JobFile& file : files) files_.push_back({{.url = file.url, .path = file.path}, {}});
  // Now there is something to transfer again. Like a new job, this one waits for Resume.
  if (state_ == JobState::kTransferred) {
    noticeDue_ = false;
    state_ = JobState::kSuspended;
  }
  // The same state: this sets the time of the change.
  Enter(state_);
  return S_OK;
}

HResult Job::Resume(std::optional<Run>* run) {
  const std::lock_guard lock(mutex_);
  if (Ended()) return BG_E_INVALID_STATE;
  if (files_.empty()) return BG_E_EMPTY;
  const bool waits = state_ == JobState::kSuspended || state_ == JobState::kError ||
                     state_ == JobState::kTransientError;
  // A second run beside the first would write the same file.
  if (!waits) return S_OK;
  *run = StartRun();
  return S_OK;
}

HResult Job::Suspend() {
  const std::lock_guard lock(mutex_);
  if (Ended()) return BG_E_INVALID_STATE;
  // A job in one of these states rests already, and its notice stays due.
  if (state_ == JobState::kError || state_ == JobState::kTransferred) return S_OK;
  StopRun();
  Enter(JobState::kSuspended);
  return S_OK;
}

HResult Job::Cancel() {
  const std::lock_guard lock(mutex_);
  if (Ended()) return BG_E_INVALID_STATE;
  StopRun();
  // The job ends even if a temporary file cannot be deleted: the code below is a success.
  Enter(JobState::kCancelled);
  return DiscardTemps() ? S_OK : BG_S_UNABLE_TO_DELETE_FILES;
}

HResult Job::Complete() {
  const std::lock_guard lock(mutex_);
  if (Ended()) return BG_E_INVALID_STATE;
  for (File& file : files_) {
    // Handed over: by an earlier call, which failed at a later file.
    if (!file.transferred || file.handedOver) continue;
    const HResult moved = file.temp.MoveOnto(file.path);
    if (moved != S_OK) return moved;
    file.handedOver = true;
  }
  const bool whole = Unfinished() == nullptr;
  // Only now: after a failed rename the job must go on living, and its transfer too.
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

HResult Job::SetMaxBytes(std::uint64_t bytes) {
  return Modify([&](JobSettings& settings) { settings.maxBytes = bytes; });
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
    // One unknown size makes the total unknown.
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
    noticeDue_ = true;
    times_.completed = times_.modified;
    return {.kind = Step::Kind::kTransferred, .url = {}};
  }
  Enter(JobState::kConnecting);
  // Each try begins at the start of the file: the stand-in does not resume in the middle.
  file->doneBytes = 0;
  const HResult started = file->temp.Start(file->path);
  if (started != S_OK) return {.kind = Step::Kind::kNoFile, .url = {}, .code = started};
  return {.kind = Step::Kind::kDownload, .url = file->url};
}

bool Job::SetSize(Run run, std::optional<std::uint64_t> sizeBytes, HResult* failure) {
  const std::lock_guard lock(mutex_);
  if (!Current(run)) return false;
  // An unknown size is no reason to refuse; then Append finds the byte too many.
  if (!FitsIn(sizeBytes.value_or(0))) {
    *failure = kTooManyBytes;
    return false;
  }
  Unfinished()->sizeBytes = sizeBytes;
  Enter(JobState::kTransferring);
  return true;
}

bool Job::Append(Run run, const char* data, std::size_t sizeBytes, HResult* failure) {
  const std::lock_guard lock(mutex_);
  if (!Current(run)) return false;
  // Never null: only FinishFile of this run finishes the file that NextStep has opened, and new
  // files come behind it.
  File& file = *Unfinished();
  *failure = FitsIn(sizeBytes) ? file.temp.Append(data, sizeBytes) : kTooManyBytes;
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
  // Any server will do for some jobs, also one that gives no size.
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
  noticeDue_ = true;
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

bool Job::IsNoticeDue(Run run) const {
  const std::lock_guard lock(mutex_);
  return noticeDue_ && run_ == run && !Ended();
}

// A program may end long after its job was resumed. It must not end the notice of the newer run.
void Job::EndNotice(Run run) {
  const std::lock_guard lock(mutex_);
  if (run_ == run) noticeDue_ = false;
}

// The state stays as it is, so that the next server takes the job up.
void Job::Rest() {
  const std::lock_guard lock(mutex_);
  StopRun();
}

}  // namespace standin
