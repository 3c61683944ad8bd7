// The files of the process in a map, in the place of the system's: fast, and gone with it. What
// they hold is not counted as memory.
#include "fuzz/fuzz.h"
#include "util/append_file.h"
#include "util/files.h"
#include "util/folders.h"
#include "util/text.h"
#include "util/text_mode.h"

std::map<std::string, std::string>& Files() {
  static auto& files = *new std::map<std::string, std::string>;
  return files;
}

bool AppendToFile(const std::wstring&, std::string_view) { return true; }

void MoveAsideAbove(const std::wstring&, std::uint64_t) {}

void MakeFolder(const std::wstring&) {}

std::wstring GetSpecialFolder(int csidl, const std::wstring& subPath, CreateFolder) {
  return FolderBelow(WidenUtf8(DecimalText(csidl)), subPath);
}

std::wstring GetLocalAppDataLowFolder(const std::wstring& subPath) {
  return FolderBelow(L"low", subPath);
}

std::wstring GetTempFolder() { return L"temp\\"; }

bool JustUtil::IsPathExist(const std::wstring& path) { return Files().contains(NarrowUtf8(path)); }

void JustUtil::BackupFile(std::wstring& path) {
  if (!FileSystem::CopyFile(NarrowUtf8(path), NarrowUtf8(path + L".bak"))) return;
  FileSystem::DeleteFile(NarrowUtf8(path));
  path += L".bak";
}

namespace FileSystem {

ReadOutcome ReadFileIfAny(const std::string& path, std::string* content, std::uint64_t maxBytes) {
  content->clear();
  const auto file = Files().find(path);
  if (file == Files().end()) return ReadOutcome::kMissing;
  if (file->second.size() > maxBytes) return ReadOutcome::kTooLarge;
  *content = file->second;
  DropCrBeforeLf(content);
  return ReadOutcome::kRead;
}

bool WriteFile(const std::string& path, std::string_view content) {
  const std::string bytes = WithCrLf(content);
  const Uncounted disk;
  Files()[path] = bytes;
  return true;
}

bool ListFolders(const std::string&, std::vector<std::string>*) { return false; }
bool IsFileExist(const std::string& path) { return Files().contains(path); }
bool IsLink(const std::string&) { return false; }
bool IsNameFree(const std::string& path) { return !IsFileExist(path); }

void DeleteFile(const std::string& path) {
  const Uncounted disk;
  Files().erase(path);
}

bool CopyFile(const std::string& path, const std::string& target) {
  const Uncounted disk;
  if (IsFileExist(path)) Files()[target] = Files()[path];
  return IsFileExist(path);
}

std::string GetFileTime(const std::string&) { return "01.02.2003"; }

}  // namespace FileSystem
