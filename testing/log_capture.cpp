#include "testing/log_capture.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>

#include "testing/data_home.h"
#include "util/diag_log.h"

namespace {

const std::filesystem::path& LogFile() {
  static const std::filesystem::path path = [] {
    const auto file = ProcessTempFolder() / "test.log";
    DiagLog::Instance().Start([&] { return file.wstring(); }, "Log of the tests");
    return file;
  }();
  return path;
}

std::string Content() {
  std::ifstream file(LogFile(), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

}  // namespace

LogCapture::LogCapture() : start_(Content().size()) {}

std::vector<std::string> LogCapture::Lines() const {
  static const std::regex header("^..:..:.. (.:[^(]*)\\([0-9]+\\):");
  std::vector<std::string> lines;
  std::istringstream stream(Content().substr(start_));
  for (std::string line; std::getline(stream, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(std::regex_replace(line, header, "$1:"));
  }
  return lines;
}

bool LogCapture::Has(std::string_view line) const {
  const std::vector<std::string> lines = Lines();
  return std::find(lines.begin(), lines.end(), line) != lines.end();
}
