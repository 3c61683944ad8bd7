#include "stat/uuid.h"

#include "layout/folders.h"
#include "layout/names.h"
#include "util/diag_log.h"
#include "util/files.h"
#include "util/log_line.h"
#include "util/registry.h"
#include "util/system.h"

namespace {

constexpr std::size_t kIdChars = 38;
constexpr std::uint64_t kMaxFileBytes = 4096;
constexpr char kNoId[] = "{none}";
// Processes of low integrity may write here, so they too can note that an id was made.
constexpr wchar_t kLowKey[] = L"Software\\AppDataLow\\Krelix";
constexpr std::uint32_t kProtectData = 1;

}  // namespace

std::string TUuid::ReadUniqUserId() {
  const std::string folder = GetMakerFolder();
  return EnsureUniqUserIdExists(folder.empty() ? folder : folder + "ui");
}

std::string TUuid::EnsureUniqUserIdExists(const std::string& path) {
  std::string id;
  const FileSystem::ReadOutcome outcome = FileSystem::ReadFileIfAny(path, &id, kMaxFileBytes);
  if (id.size() == kIdChars) {
    LOG_D << "ui: " << id;
    return id;
  }
  if (outcome == FileSystem::ReadOutcome::kMissing) {
    LOG_D << "Can't open file 'ui'.";
  } else {
    LOG_E << "Can't open file 'ui'.";
  }
  if (outcome == FileSystem::ReadOutcome::kFailed) return kNoId;  // it may hold an id
  if (JustUtil::CheckPMIE8()) {
    LOG_D << "IE in protected mode. Will not try generate ui.";
    return kNoId;
  }
  LOG_D << "Try to generate new guid...";
  if (ProtectValueAlreadyExist()) return kNoId;
  // Before the id is made: a start that fails half-way must not lead to a new id at each later one.
  WriteProtectValue();
  id = NewGuid();
  FileSystem::WriteFile(path, id);
  return id;
}

std::wstring TUuid::ProtectValueName() {
  std::wstring name = L"UICreated_" + LogonName();
  LOG_D << name;
  return name;
}

bool TUuid::ProtectValueAlreadyExist() {
  const std::wstring name = ProtectValueName();
  if (!JustUtil::IsValueNotExist(kSettingsKey, name)) {
    LOG_D << "The key in Software\\Krelix founded.";
    return true;
  }
  if (IsVistaOrLater()) {
    LOG_D << "Try to check key under Vista";
    if (!JustUtil::IsValueNotExist(kLowKey, name)) {
      LOG_D << "The key in Software\\AppDataLow\\Krelix founded.";
      return true;
    }
  }
  LOG_D << "Key not exist.";
  return false;
}

void TUuid::WriteProtectValue() {
  const std::wstring key = IsVistaOrLater() ? kLowKey : kSettingsKey;
  LOG_D << "Try to write to registry. Path: " << key;
  JustUtil::WriteIntToRegistry(key, ProtectValueName(), kProtectData);
}

std::string TUuid::NewGuid() {
  const std::string id = NewGuidText();
  return id.empty() ? "N/A" : id;
}
