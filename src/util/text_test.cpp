#include "util/text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "testing/table.h"

TEST(Text, ParseInt64) {
  const Table<const char*, std::int64_t> table = {
      {"", 0},
      {" \t-7x", -7},
      {"+5", 5},
      {"+-5", 0},
      {"0x10", 0},
      {"9223372036854775808", std::numeric_limits<std::int64_t>::max()},
      {"-9223372036854775809", std::numeric_limits<std::int64_t>::min()},
  };
  table.Expect(ParseInt64);
}

TEST(Text, Utf8IsCheckedByTheBook) {
  const Table<const char*, bool> table = {
      {"one to four bytes", "a\xD0\x96\xE2\x82\xAC\xF0\x9F\x98\x80", true},
      {"cut", "\xE2\x82", false},
      {"lone continuation", "\x82", false},
      {"overlong three", "\xE0\x80\xAF", false},
      {"overlong slash", "\xC0\xAF", false},
      {"overlong four", "\xF0\x80\x80\xAF", false},
      {"surrogate", "\xED\xA0\x80", false},
      {"too high", "\xF4\x90\x80\x80", false},
  };
  table.Expect(IsValidUtf8);
}

TEST(Text, WideRoundTripAndBrokenSequences) {
  const std::string all = "a\xD0\x96\xE2\x82\xAC\xF0\x9F\x98\x80z";
  EXPECT_EQ(NarrowUtf8(WidenUtf8(all)), all);
  EXPECT_EQ(NarrowUtf8(WidenUtf8("a\xFFz")), "a\xEF\xBF\xBDz");
}

TEST(Text, Cp1251) {
  EXPECT_EQ(Utf8FromCp1251("A\xCF\xF0\xB8\x88\xB9"),
            "A\xD0\x9F\xD1\x80\xD1\x91\xE2\x82\xAC\xE2\x84\x96");
}
