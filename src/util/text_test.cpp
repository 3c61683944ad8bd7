#include "util/text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

TEST(Text, ParseInt64) {
  const struct {
    const char* text;
    std::int64_t want;
  } cases[] = {
      {"", 0},
      {"12", 12},
      {" \t-7x", -7},
      {"+5", 5},
      {"+-5", 0},
      {"--5", 0},
      {"x1", 0},
      {"- 1", 0},
      {"12 34", 12},
      {"0x10", 0},
      {"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
      {"9223372036854775808", std::numeric_limits<std::int64_t>::max()},
      {"-9223372036854775809", std::numeric_limits<std::int64_t>::min()},
  };
  for (const auto& c : cases) EXPECT_EQ(ParseInt64(c.text), c.want) << c.text;
}

TEST(Text, Utf8IsCheckedByTheBook) {
  const struct {
    const char* label;
    std::string_view bytes;
    bool want;
  } cases[] = {
      {"empty", "", true},
      {"ascii", "abc", true},
      {"two, three, four bytes", "\xD0\x96\xE2\x82\xAC\xF0\x9F\x98\x80", true},
      {"cut", "\xE2\x82", false},
      {"lone continuation", "\x82", false},
      {"overlong slash", "\xC0\xAF", false},
      {"overlong three", "\xE0\x80\xAF", false},
      {"surrogate", "\xED\xA0\x80", false},
      {"too high", "\xF4\x90\x80\x80", false},
      {"windows-1251 text", "\xCF\xF0\xE8", false},
  };
  for (const auto& c : cases) EXPECT_EQ(IsValidUtf8(c.bytes), c.want) << c.label;
}

TEST(Text, WideRoundTripAndBrokenSequences) {
  const std::string all = "a\xD0\x96\xE2\x82\xAC\xF0\x9F\x98\x80z";
  EXPECT_EQ(NarrowUtf8(WidenUtf8(all)), all);
  EXPECT_EQ(NarrowUtf8(WidenUtf8("a\xFFz")), "a\xEF\xBF\xBDz");
  EXPECT_EQ(NarrowUtf8(WidenUtf8({})), "");
}

TEST(Text, Cp1251) {
  EXPECT_EQ(Utf8FromCp1251("A\xCF\xF0\xB8\x88\xB9"),
            "A\xD0\x9F\xD1\x80\xD1\x91\xE2\x82\xAC\xE2\x84\x96");
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
  EXPECT_TRUE(IsValidUtf8(Utf8FromCp1251(bytes)));
}
