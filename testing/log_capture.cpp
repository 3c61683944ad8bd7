#include "testing/log_capture.h"

#include <algorithm>
#include <regex>
#include <utility>

#include "testing/data_home.h"
#include "util/diag_log.h"

namespace {

const std::filesystem::path& OwnLog() {
  static const std::filesystem::path path = [] {
    const auto file = ProcessTempFolder() / "test.log";
    DiagLog::Instance().Start([&] { return file.wstring(); }, "Log of the tests");
    return file;
  }();
  return path;
}

}  // namespace

LogCapture::LogCapture() : LogCapture(OwnLog()) {}

LogCapture::LogCapture(std::filesystem::path file)
    : file_(std::move(file)), start_(ReadBytes(file_).size()) {}

std::vector<std::string> LogCapture::Lines() const {
  static const std::regex header("^..:..:.. (.:[^(]*)\\([0-9]+\\):");
  std::string text = ReadBytes(file_);
  // A log that has grown too large goes on in a new file.
  if (text.size() < start_) text.insert(0, ReadBytes(file_.string() + ".bak"));
  std::vector<std::string> lines = LinesOf(text.substr(std::min(start_, text.size())));
  for (std::string& line : lines) line = std::regex_replace(line, header, "$1:");
  return lines;
}

testing::AssertionResult LogCapture::Has(std::string_view text) const {
  const std::vector<std::string> lines = Lines();
  for (const std::string& line : lines) {
    if (line.find(text) != line.npos) return testing::AssertionSuccess();
  }
  if (text.empty()) return testing::AssertionSuccess();
  return testing::AssertionFailure() << text << " is not in " << testing::PrintToString(lines);
}
