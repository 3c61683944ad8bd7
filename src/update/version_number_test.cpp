#include "update/version_number.h"

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>

TEST(VersionNumber, ParsesFourNumbers) {
  const struct {
    const char* text;
    std::optional<VersionNumber> want;  // none: refused
  } cases[] = {
      {"1.2.3.4", 0x0001000200030004},
      {"1.2.3.4beta", 0x0001000200030004},
      {"1.2.3.4.5", 0x0001000200030004},
      {" 1.\t+2.\n3. 04", 0x0001000200030004},
      {"65535.65535.65535.65535", 0xFFFFFFFFFFFFFFFF},
      {"1.131072.0.0", 0x0003000000000000},
      {"1.-1.0.0", 0xFFFFFFFF00000000},
      {"0.0.0.2147483647", 0x7FFFFFFF},
      {"0.0.0.2147483648", 0x7FFFFFFF},
      {"0.0.0.99999999999999999999999999", 0x7FFFFFFF},
      {"0.0.0.-99999999999999999999999999", 0xFFFFFFFF80000000},
      {"", {}},
      {"1.2.3", {}},
      {"1.2.3.", {}},
      {"1.2.3.-", {}},
      {"1.2.3 .4", {}},
      {"1..3.4", {}},
      {"a.2.3.4", {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    try {
      EXPECT_EQ(ParseVersion(c.text), c.want);
    } catch (const std::invalid_argument& error) {
      EXPECT_EQ(c.want, std::nullopt);
      EXPECT_EQ(error.what(), "sscanf failed on input string; '" + std::string(c.text) + "'");
    }
  }
}

TEST(VersionNumber, FormatsFourParts) {
  EXPECT_EQ(FormatVersion(MakeVersion(1, 20, 0, 65535)), "1.20.0.65535");
  EXPECT_EQ(FormatVersion(0xFFFFFFFFFFFFFFFF), "65535.65535.65535.65535");
}

TEST(VersionMask, CoversARange) {
  const struct {
    const char* mask;
    const char* low;
    const char* high;
  } cases[] = {
      {"", "0.0.0.0", "65535.65535.65535.65535"}, {"3.2", "3.2.0.0", "3.2.65535.65535"},
      {"3.", "3.0.0.0", "3.65535.65535.65535"},   {"1.2.3.4.5", "1.2.3.4", "1.2.3.4"},
      {"1.131072", "3.0.0.0", "3.0.65535.65535"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.mask);
    std::vector<std::string> parts = {"left over"};
    ParseVersionMask(c.mask, &parts);
    EXPECT_EQ(FormatVersion(MaskToVersion(parts, 0)), c.low);
    EXPECT_EQ(FormatVersion(MaskToVersion(parts, 0xFFFF)), c.high);
  }
  EXPECT_EQ(FormatVersion(MaskToVersion({"1", "", "3"}, 7)), "1.7.3.7");
}

TEST(VersionMask, RefusesAllButDigitsAndDots) {
  for (const char* mask : {"3.*", "3.x", ".3", " 3", "1..2", "-1"}) {
    std::vector<std::string> parts;
    try {
      ParseVersionMask(mask, &parts);
      ADD_FAILURE() << mask;
    } catch (const char* message) {
      EXPECT_STREQ(message, "Bad version mask.");
    }
  }
}
