#include <fstream>
#include <iterator>

#include "layout/log_start.h"
#include "proof/steps/steps.h"
#include "util/diag_log.h"

fs::path userFolder;

namespace {

constexpr std::size_t kTimeChars = 8;
fs::path logFile;
constexpr std::string_view kSent = "--- sent ";

}  // namespace

std::vector<fs::path> StateFolders() {
  return {userFolder / "Local/Krelix", userFolder / "LocalLow/Krelix",
          userFolder / "Roaming/Krelix"};
}

Files ReadState(int* siblings) {
  Files files;
  for (const fs::path& folder : StateFolders()) {
    if (!fs::exists(folder)) continue;
    files[folder / ""];
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      const fs::path extension = entry.path().extension();
      if (entry.is_directory()) {
        files[entry.path() / ""];
      } else if (extension == ".new") {
        if (siblings) ++*siblings;
      } else if (extension != ".bak") {
        std::ifstream file(entry.path(), std::ios::binary);
        files[entry.path()].assign(std::istreambuf_iterator<char>(file), {});
      }
    }
  }
  return files;
}

void WriteState(const Files& files) {
  for (const fs::path& folder : StateFolders()) fs::remove_all(folder);
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

void NoteSent(const std::string& address) {
  std::ofstream(logFile, std::ios::app) << kSent << address << '\n';
}

Log ReadLog() {
  Log log;
  std::ifstream file(logFile);
  for (std::string line; std::getline(file, line);) {
    if (line.find(" E:") == kTimeChars) log.errors.insert(line.substr(kTimeChars));
    if (line.starts_with(kSent)) log.sent += line;
  }
  return log;
}
