#include "appinfo/local_record.h"

#include <utility>

#include "appinfo/app_info.h"
#include "layout/file_names.h"
#include "layout/folders.h"
#include "layout/keys.h"
#include "util/diag_log.h"
#include "util/file_lock.h"
#include "util/files.h"
#include "util/log_line.h"
#include "util/text.h"

namespace {

constexpr char kChannel[] = "Channel";
constexpr char kChannelBeta[] = "beta";
constexpr char kChannelRelease[] = "release";

// Long for a lock that is held for one change: it ends only the wait for a process that hangs.
constexpr unsigned kLockWaitMilliseconds = 5000;

std::string LocalPath(const std::string& appId, CreateFolder create, std::string_view name) {
  const std::wstring folder = GetUpdaterLocalFolder(appId, create);
  return folder.empty() ? std::string() : NarrowUtf8(folder).append(name);
}

// Values as every store keeps them, in a file of the local folder. Its lock is a file, not a mutex,
// which any process of the session could hold; the functions below take it.
class LocalStore final : public TAppInfo {
 public:
  LocalStore(const std::string& appId, const char* name)
      : TAppInfo(appId, nullptr), path_(LocalPath(appId, CreateFolder::kNo, name)) {}

  std::string Path() const override { return path_; }

 private:
  std::string path_;
};

Channel ReadChannel(const LocalStore& store) {
  const std::string text = store.Read(kChannel);
  if (text == kChannelBeta) return Channel::kBeta;
  return text == kChannelRelease ? Channel::kRelease : Channel::kOfBuild;
}

void WriteChannel(LocalStore& store, Channel channel) {
  if (channel == Channel::kOfBuild) return store.RemoveValue(kChannel);
  store.Write(kChannel, channel == Channel::kBeta ? kChannelBeta : kChannelRelease);
}

enum class Found { kRecord, kNothing, kUnreadable };

Found Load(const std::string& appId, LocalRecord* record) {
  LocalStore store(appId, kLocalRecordFile);
  if (store.Path().empty()) return Found::kUnreadable;
  if (FileSystem::IsNameFree(store.Path())) return Found::kNothing;
  const StoreChanges one(store);
  // Each record has a version, so a file without one is damaged.
  if (!store.IsValueExist("VerMajor")) return Found::kUnreadable;
  record->version = std::uint64_t{store.VerMajor()} << 48 | std::uint64_t{store.VerMinor()} << 32 |
                    std::uint64_t{store.VerSubver()} << 16 | store.VerBuild();
  record->platform = store.Platform();
  record->executor = store.Read(key::kUpdaterPath);
  record->release = store.ReadFlag("Release");
  record->removed = store.IsRemoved();
  record->channel = ReadChannel(store);
  return Found::kRecord;
}

std::uint16_t PartOf(std::uint64_t version, int shift) {
  return static_cast<std::uint16_t>(version >> shift);
}

bool Save(const std::string& appId, const LocalRecord& record) {
  LocalStore store(appId, kLocalRecordFile);
  const StoreChanges one(store);
  store.SetVersion(PartOf(record.version, 48), PartOf(record.version, 32),
                   PartOf(record.version, 16), PartOf(record.version, 0));
  store.Write(key::kPlatform, record.platform);
  store.Write(key::kUpdaterPath, record.executor);
  store.WriteFlag("Release", record.release);
  store.WriteFlag(key::kRemove, record.removed);
  WriteChannel(store, record.channel);
  return store.SaveChanges();
}

// Writes both values of an answer in one step: a host must never read a new name with an old
// answer.
bool WritePair(const std::string& appId, const char* nameKey, const std::string& name,
               const char* valueKey, std::int64_t value) {
  GetUpdaterLocalFolder(appId, CreateFolder::kYes);
  LocalStore store(appId, kAnswerFile);
  const StoreChanges one(store);
  store.Write(nameKey, name);
  store.WriteNumber(valueKey, value);
  return store.SaveChanges();
}

std::optional<std::int64_t> ReadPair(const std::string& appId, const char* nameKey,
                                     const std::string& name, const char* valueKey) {
  LocalStore store(appId, kAnswerFile);
  const StoreChanges one(store);
  // A missing name reads as empty and must match no host's question.
  if (name.empty() || store.Read(nameKey) != name || !store.IsValueExist(valueKey)) return {};
  return store.ReadNumber(valueKey);
}

}  // namespace

std::optional<LocalRecord> ReadLocalRecord(const std::string& appId) {
  LocalRecord record;
  return Load(appId, &record) == Found::kRecord ? std::optional<LocalRecord>(record) : std::nullopt;
}

bool ChangeLocalRecord(const std::string& appId, const std::function<void(LocalRecord&)>& edit) {
  const auto isDone = [&](LocalRecord* wanted) {
    LocalRecord record;
    const Found found = Load(appId, &record);
    *wanted = record;
    edit(*wanted);
    return found == Found::kRecord && *wanted == record;
  };
  LocalRecord record;
  // The usual start changes nothing and takes no lock.
  if (isDone(&record)) return true;
  FileLock lock(LocalPath(appId, CreateFolder::kYes, kLocalLockFile), kLockWaitMilliseconds);
  const LockScope scope(&lock);
  // Read again under the lock: another process may have changed the record since.
  if (scope && (isDone(&record) || Save(appId, record))) return true;
  LOG_E << "The local record was not written:" << appId;
  return false;
}

bool IsLiving(const std::string& appId) {
  LocalRecord record;
  const Found found = Load(appId, &record);
  return found == Found::kUnreadable || (found == Found::kRecord && !record.removed);
}

bool WriteAnswer(const std::string& appId, const CheckAnswer& answer) {
  return WritePair(appId, "CheckJob", answer.job, key::kUpgradeAvailable, answer.found ? 1 : 0);
}

bool WriteAnswer(const std::string& appId, const InstallAnswer& answer) {
  return WritePair(appId, "InstallRun", answer.run, key::kDistroExitCode, answer.code);
}

std::optional<bool> ReadCheckAnswer(const std::string& appId, const std::string& job) {
  const auto value = ReadPair(appId, "CheckJob", job, key::kUpgradeAvailable);
  return value ? std::optional<bool>(*value != 0) : std::nullopt;
}

std::optional<std::int32_t> ReadInstallAnswer(const std::string& appId, const std::string& run) {
  const auto value = ReadPair(appId, "InstallRun", run, key::kDistroExitCode);
  return value ? std::optional<std::int32_t>(static_cast<std::int32_t>(*value)) : std::nullopt;
}
