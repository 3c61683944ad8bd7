#include "appinfo/app_info.h"

#include <utility>

#include "util/diag_log.h"
#include "util/files.h"
#include "util/log_line.h"
#include "util/mutex.h"
#include "util/text.h"
#include "xml/xml_node.h"

TAppInfo::TAppInfo(std::string appId, std::unique_ptr<TLocker> locker)
    : appId_(std::move(appId)), folder_(appId_), locker_(std::move(locker)) {}

TAppInfo::TAppInfo(const std::string& appId)
    : TAppInfo(appId, std::make_unique<Mutex>(
                          WidenUtf8("APPINFO{65438470-A93E-4c32-83C0-33BFC5DDD428}-" + appId))) {}

TAppInfo::~TAppInfo() = default;

std::string TAppInfo::Path() const { return PathOf("appinfo.xml"); }

bool TAppInfo::Load(const std::string& path, XmlNode* root) const {
  std::string bytes;
  switch (FileSystem::ReadFile(path, &bytes)) {
    case FileSystem::ReadOutcome::kFailed:
    case FileSystem::ReadOutcome::kTooLarge:
      return false;
    case FileSystem::ReadOutcome::kMissing:
      return true;
    case FileSystem::ReadOutcome::kRead:
      break;
  }
  // What does not parse is about to be written over with what could be read of it.
  return LoadXml(std::move(bytes), root) || FileSystem::CopyFile(path, path + ".bak");
}

void TAppInfo::Change(std::string_view operation, const std::function<bool(XmlNode&)>& edit) {
  const LockScope lock(locker_.get());
  if (!lock) {
    LogAs(operation, __LINE__, "E:") << "Lock error, postpone file write.";
    return;
  }
  const std::string path = Path();
  XmlNode root;
  if (!Load(path, &root)) {
    LogAs(operation, __LINE__, "E:") << "Read error, postpone file write.";
    return;
  }
  if (edit(root)) FileSystem::WriteFile(path, root.Serialise());
}

void TAppInfo::Write(std::string_view key, std::string_view value) {
  Change("TAppInfo::Write", [&](XmlNode& root) {
    if (!root.HasChildren()) {
      root.SetCodePage(kCodePageUtf8);
      root.SetDeclaration();
      root.SetName("appinfo");
    }
    root.ChildOrNew(key).SetValue(value);
    return true;
  });
}

void TAppInfo::RemoveValue(std::string_view key) {
  Change("TAppInfo::RemoveValue", [&](XmlNode& root) {
    if (!root.HasChildren()) return false;
    if (XmlNode* const child = root.FindChild(key)) root.RemoveChild(*child);
    return true;
  });
}

std::optional<std::string> TAppInfo::Find(std::string_view key, std::string_view operation) const {
  LockScope lock(locker_.get());
  if (!lock) {
    LogAs(operation, __LINE__, "E:") << "Lock error, postpone file write.";
    return {};
  }
  XmlNode root;
  Load(Path(), &root);
  lock.Release();
  const XmlNode* const child = root.FindChild(key);
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

bool TAppInfo::IsRemoved() const { return ReadFlag("Remove"); }
std::string TAppInfo::Platform() const { return Read("Platform"); }
std::string TAppInfo::Locale() const { return Read("Locale"); }
