#include "appinfo/app_info.h"

#include <new>
#include <utility>

#include "layout/file_names.h"
#include "layout/keys.h"
#include "layout/names.h"
#include "util/diag_log.h"
#include "util/files.h"
#include "util/log_line.h"
#include "util/mutex.h"
#include "util/text.h"
#include "xml/xml_node.h"

namespace {

enum class Content { kWhole, kDamaged, kTooLarge, kUnreadable };

// A file that is missing or empty is a whole one without values.
Content Load(const std::string& path, XmlNode* root) {
  std::string bytes;
  switch (FileSystem::ReadFileIfAny(path, &bytes, kMaxStoreBytes)) {
    case FileSystem::ReadOutcome::kMissing:
      return Content::kWhole;
    case FileSystem::ReadOutcome::kFailed:
      return Content::kUnreadable;
    case FileSystem::ReadOutcome::kTooLarge:
      return Content::kTooLarge;
    case FileSystem::ReadOutcome::kRead:
      break;
  }
  return LoadXml(std::move(bytes), root) ? Content::kWhole : Content::kDamaged;
}

// The file is about to be replaced by the part of it that could be read.
bool KeepAside(const std::string& path) { return FileSystem::CopyFile(path, path + ".bak"); }

bool MoveAside(const std::string& path) {
  // BackupFile shows its success by the changed path only.
  std::wstring moved = WidenUtf8(path);
  JustUtil::BackupFile(moved);
  return moved != WidenUtf8(path);
}

}  // namespace

// Loads lazily: many operations only need the file when something in it is asked for.
struct TAppInfo::Gathered {
  XmlNode root;
  std::vector<Edit> edits;
  bool isLoaded = false;

  void Load(const TAppInfo& store, std::string_view operation) {
    if (!std::exchange(isLoaded, true)) store.LoadFile(operation, &root);
  }
};

TAppInfo::TAppInfo(std::string appId, std::unique_ptr<TLocker> locker)
    : appId_(std::move(appId)), folder_(appId_), locker_(std::move(locker)) {}

TAppInfo::TAppInfo(const std::string& appId)
    : TAppInfo(appId, std::make_unique<Mutex>(RecordMutexName(appId))) {}

TAppInfo::~TAppInfo() = default;

std::string TAppInfo::Path() const { return PathOf(kRecordFile); }

bool TAppInfo::Apply(const Edit& edit, XmlNode* root) {
  XmlNode* const child = root->FindChild(edit.key);
  if (!edit.value) {
    if (child) root->RemoveChild(*child);
    return child != nullptr;
  }
  if (child && child->Value() == *edit.value) return false;
  // A new file, or one of which nothing could be read.
  if (!root->HasChildren()) {
    root->SetCodePage(kCodePageUtf8);
    root->SetDeclaration();
    root->SetName("appinfo");
  }
  root->ChildOrNew(edit.key).SetValue(*edit.value);
  return true;
}

bool TAppInfo::ChangeFile(std::string_view operation, const std::vector<Edit>& edits) const {
  const LockScope lock(locker_.get());
  if (!lock) {
    LogAs(operation, __LINE__, "E:") << "Lock error, postpone file write.";
    return false;
  }
  const std::string path = Path();
  XmlNode root;
  const Content content = Load(path, &root);
  // The old content comes first: a file that cannot be read, or be kept aside, is not replaced.
  if (content == Content::kUnreadable || (content == Content::kDamaged && !KeepAside(path)) ||
      (content == Content::kTooLarge && !MoveAside(path))) {
    LogAs(operation, __LINE__, "E:") << "Read error, postpone file write.";
    return false;
  }
  bool isChanged = false;
  for (const Edit& edit : edits) isChanged |= Apply(edit, &root);
  // A damaged file is replaced by its whole part even when no value changes.
  isChanged |= content == Content::kDamaged && root.HasChildren();
  return !isChanged || FileSystem::WriteFile(path, root.Serialise());
}

bool TAppInfo::LoadFile(std::string_view operation, XmlNode* root) const {
  const LockScope lock(locker_.get());
  if (!lock) {
    LogAs(operation, __LINE__, "E:") << "Lock error, postpone file write.";
    return false;
  }
  // A damaged file still gives the values that were read whole.
  Load(Path(), root);
  return true;
}

void TAppInfo::Change(std::string_view operation, Edit edit) {
  if (!gathered_) {
    ChangeFile(operation, {std::move(edit)});
    return;
  }
  gathered_->Load(*this, operation);
  if (Apply(edit, &gathered_->root)) gathered_->edits.push_back(std::move(edit));
}

bool TAppInfo::SaveChanges() {
  if (!gathered_ || gathered_->edits.empty()) return true;
  // The edits are applied to the file as it is now, not to the copy in memory: other processes may
  // have written other values since.
  const bool isSaved = ChangeFile("TAppInfo::Write", gathered_->edits);
  if (isSaved) gathered_->edits.clear();
  return isSaved;
}

StoreChanges::StoreChanges(TAppInfo& store) : store_(store.gathered_ ? nullptr : &store) {
  if (store_) store_->gathered_ = std::make_unique<TAppInfo::Gathered>();
}

StoreChanges::~StoreChanges() {
  if (!store_) return;
  try {
    store_->SaveChanges();
  } catch (const std::bad_alloc&) {
    // A destructor must not throw, and nothing else is thrown by saving.
    LOG_E << "Out of memory, postpone file write.";
  }
  store_->gathered_.reset();
}

void TAppInfo::Write(std::string_view key, std::string_view value) {
  Change("TAppInfo::Write", {std::string(key), std::string(value)});
}

void TAppInfo::RemoveValue(std::string_view key) {
  Change("TAppInfo::RemoveValue", {std::string(key), std::nullopt});
}

std::optional<std::string> TAppInfo::Find(std::string_view key, std::string_view operation) const {
  XmlNode own;
  const XmlNode* root = &own;
  if (gathered_) {
    gathered_->Load(*this, operation);
    root = &gathered_->root;
  } else {
    LoadFile(operation, &own);
  }
  const XmlNode* const child = root->FindChild(key);
  return child ? std::optional<std::string>(child->Value()) : std::nullopt;
}

std::string TAppInfo::Read(std::string_view key) const {
  return Find(key, "TAppInfo::Read").value_or(std::string());
}

bool TAppInfo::IsValueExist(std::string_view key) const {
  return Find(key, "TAppInfo::IsValueExist").has_value();
}

std::int64_t TAppInfo::ReadNumber(std::string_view key) const { return ParseInt64(Read(key)); }

void TAppInfo::WriteNumber(std::string_view key, std::int64_t value) {
  Write(key, DecimalText(value));
}

bool TAppInfo::ReadFlag(std::string_view key) const { return ReadNumber(key) == 1; }

void TAppInfo::WriteFlag(std::string_view key, bool set) { Write(key, set ? "1" : "0"); }

std::uint16_t TAppInfo::VerMajor() const {
  return static_cast<std::uint16_t>(ReadNumber("VerMajor"));
}
std::uint16_t TAppInfo::VerMinor() const {
  return static_cast<std::uint16_t>(ReadNumber("VerMinor"));
}
std::uint16_t TAppInfo::VerSubver() const {
  return static_cast<std::uint16_t>(ReadNumber("VerSubver"));
}
std::uint16_t TAppInfo::VerBuild() const {
  return static_cast<std::uint16_t>(ReadNumber("VerBuild"));
}

void TAppInfo::SetVersion(std::uint16_t major, std::uint16_t minor, std::uint16_t subver,
                          std::uint16_t build) {
  WriteNumber("VerMajor", major);
  WriteNumber("VerMinor", minor);
  WriteNumber("VerSubver", subver);
  WriteNumber("VerBuild", build);
}

bool TAppInfo::IsRemoved() const { return ReadFlag(key::kRemove); }
std::string TAppInfo::Platform() const { return Read(key::kPlatform); }
std::string TAppInfo::Locale() const { return Read(key::kLocale); }
