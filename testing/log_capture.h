// What the code under test wrote to the diagnostic log.
#ifndef KUPDATE_TESTING_LOG_CAPTURE_H_
#define KUPDATE_TESTING_LOG_CAPTURE_H_

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

/// Shows the lines written since it was made.
class LogCapture {
 public:
  /// Of this program's own log, a temporary file of the tests.
  LogCapture();
  explicit LogCapture(std::filesystem::path file);
  /// The lines without time and source line: "E:TAppInfo::Write: Lock error, postpone file write.".
  std::vector<std::string> Lines() const;
  /// Whether one of the lines holds `text`; always for an empty one. A failure shows all lines.
  testing::AssertionResult Has(std::string_view text) const;

 private:
  std::filesystem::path file_;
  std::size_t start_;
};

#endif  // KUPDATE_TESTING_LOG_CAPTURE_H_
