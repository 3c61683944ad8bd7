#include <algorithm>
#include <fstream>
#include <iterator>
#include <system_error>

#include "proof/steps/steps.h"
#include "util/diag_log.h"
#include "util/folders.h"
#include "util/text.h"

namespace {

namespace fs = std::filesystem;

fs::path logFile;

fs::path ToPath(std::string text) {
#ifndef _WIN32
  std::replace(text.begin(), text.end(), '\\', '/');
#endif
  while (text.ends_with('/') || text.ends_with('\\')) text.pop_back();
  return std::u8string(text.begin(), text.end());
}

std::string BytesOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

}  // namespace

const std::vector<fs::path>& StateFolders() {
  static const std::vector<fs::path> folders = {
      ToPath(GetUpdaterDataPath({})), ToPath(GetMakerFolder()),
      ToPath(NarrowUtf8(GetUpdaterLocalFolder({}, CreateFolder::kYes)))};
  return folders;
}

Files ReadState(int* siblings) {
  Files files;
  for (const fs::path& folder : StateFolders()) {
    std::error_code missing;
    if (fs::exists(folder)) files[folder / ""];
    for (const auto& entry : fs::recursive_directory_iterator(folder, missing)) {
      const fs::path extension = entry.path().extension();
      if (entry.is_directory()) {
        files[entry.path() / ""];
      } else if (extension == ".new") {
        if (siblings) ++*siblings;
      } else if (extension != ".bak" && extension != ".log") {
        files[entry.path()] = BytesOf(entry.path());
      }
    }
  }
  return files;
}

void WriteState(const Files& files) {
  std::error_code missing;
  for (const fs::path& folder : StateFolders()) fs::remove_all(folder, missing);
  for (const auto& [path, bytes] : files) {
    fs::create_directories(path.parent_path());
    if (path.has_filename()) std::ofstream(path, std::ios::binary) << bytes;
  }
}

void StartLog(const fs::path& file) {
  logFile = file;
  DiagLog::Instance().Start([] { return logFile.wstring(); }, "Log of the proof");
}

void ClearLog() { std::ofstream(logFile, std::ios::trunc); }

void Note(const std::string& line) { std::ofstream(logFile, std::ios::app) << line + '\n'; }

std::vector<std::string> LogLines() {
  std::ifstream file(logFile);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}
