// What the code under test wrote to the diagnostic log.
#ifndef KUPDATE_TESTING_LOG_CAPTURE_H_
#define KUPDATE_TESTING_LOG_CAPTURE_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>

#include "testing/data_home.h"
#include "util/diag_log.h"

/// Shows the lines written since it was made.
class LogCapture {
 public:
  /// Of this program's own log, a temporary file of the tests.
  LogCapture() : LogCapture(OwnLog()) {}
  explicit LogCapture(std::filesystem::path file)
      : file_(std::move(file)), start_(ReadBytes(file_).size()) {}

  /// The lines without time and source line: "E:TAppInfo::Write: Lock error, postpone file write.".
  std::vector<std::string> Lines() const {
    std::string text = ReadBytes(file_);
    // A log that has grown too large goes on in a new file.
    if (text.size() < start_) text.insert(0, ReadBytes(file_.string() + ".bak"));
    std::vector<std::string> lines = LinesOf(text.substr(std::min(start_, text.size())));
    const std::regex header("^..:..:.. (.:[^(]*)\\([0-9]+\\):");
    for (std::string& line : lines) line = std::regex_replace(line, header, "$1:");
    return lines;
  }
  /// Whether one of the lines holds `text`; always for an empty one. A failure shows all lines.
  testing::AssertionResult Has(std::string_view text) const {
    const std::vector<std::string> lines = Lines();
    const auto holds = [&](const std::string& line) { return line.find(text) != line.npos; };
    if (text.empty() || std::ranges::any_of(lines, holds)) return testing::AssertionSuccess();
    return testing::AssertionFailure() << text << " is not in " << testing::PrintToString(lines);
  }

 private:
  static const std::filesystem::path& OwnLog() {
    static const std::filesystem::path path = [] {
      const auto file = ProcessTempFolder() / "test.log";
      DiagLog::Instance().Start([&] { return file.wstring(); }, "Log of the tests");
      return file;
    }();
    return path;
  }

  std::filesystem::path file_;
  std::size_t start_;
};

#endif  // KUPDATE_TESTING_LOG_CAPTURE_H_
