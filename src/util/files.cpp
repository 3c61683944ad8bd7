// The parts of files.h that need nothing of the system.
#include "util/files.h"

#include <algorithm>

#include "util/diag_log.h"
#include "util/log_line.h"

std::wstring NormalizeFolder(std::wstring& path) {
  std::replace(path.begin(), path.end(), L'/', L'\\');
  if (!path.empty() && path.back() != L'\\') path += L'\\';
  return path;
}

std::wstring GetFolderOfPath(const std::wstring& path) {
  const std::size_t end = path.rfind(L'\\');
  return end == std::wstring::npos ? path : path.substr(0, end + 1);
}

bool PrepareString(const std::wstring& path, wchar_t* buffer) {
  // The shell reads a list of paths, which ends with an empty one: hence the second zero.
  std::fill_n(buffer, kMaxShellPathChars + 1, L'\0');
  if (path.size() >= kMaxShellPathChars) {
    LOG_E << "Path too long.";
    return false;
  }
  std::copy(path.begin(), path.end(), buffer);
  return true;
}

FileSystem::ReadOutcome FileSystem::ReadFile(const std::string& path, std::string* content,
                                             std::uint64_t maxBytes) {
  const ReadOutcome outcome = ReadFileIfAny(path, content, maxBytes);
  if (outcome == ReadOutcome::kMissing) LOG_E << "Can't open file: " << path;
  return outcome;
}

std::string FileSystem::ReadFile(const std::string& path) {
  std::string content;
  ReadFile(path, &content);
  return content;
}
