#include "appinfo/version_number.h"

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>

#include "testing/table.h"

TEST(VersionNumber, ParsesFourNumbers) {
  // Without a number the text is refused.
  const Table<const char*, std::optional<VersionNumber>> table = {
      {"1.2.3.4beta", 0x0001000200030004},
      {" 1.\t+2.\n3. 04", 0x0001000200030004},
      {"65535.65535.65535.65535", 0xFFFFFFFFFFFFFFFF},
      {"1.131072.0.0", 0x0003000000000000},
      {"1.-1.0.0", 0xFFFFFFFF00000000},
      {"0.0.0.99999999999999999999999999", 0x7FFFFFFF},
      {"1.2.3.-", {}},
      {"1.2.3 .4", {}},
  };
  table.Expect([](std::string text) -> std::optional<VersionNumber> {
    try {
      return ParseVersion(text);
    } catch (const std::invalid_argument& error) {
      EXPECT_EQ(error.what(), "sscanf failed on input string; '" + text + "'");
      return {};
    }
  });
}

TEST(VersionMask, CoversARange) {
  const std::string bad = "Bad version mask.";
  const Table<const char*, std::string> table = {
      {"", "0.0.0.0-65535.65535.65535.65535"},
      {"3.2", "3.2.0.0-3.2.65535.65535"},
      {"3.", "3.0.0.0-3.65535.65535.65535"},
      {"1.2.3.4.5", "1.2.3.4-1.2.3.4"},
      {"3.*", bad},
      {".3", bad},
      {"1..2", bad},
  };
  std::vector<std::string> parts;
  table.Expect([&](const char* mask) -> std::string {
    try {
      ParseVersionMask(mask, &parts);
      return FormatVersion(MaskToVersion(parts, 0)) + "-" +
             FormatVersion(MaskToVersion(parts, 0xFFFF));
    } catch (const char* message) {
      return message;
    }
  });
}
