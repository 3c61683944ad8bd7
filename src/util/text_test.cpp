#include "util/text.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "testing/table.h"
#include "util/text_mode.h"

TEST(Text, ParseInt64) {
  const Table<const char*, std::int64_t> table = {
      {"", 0},        {" \t-7x", -7},
      {"+5", 5},      {"+-5", 0},
      {"0x10", 0},    {"9223372036854775808", INT64_MAX},
      {"-99e9", -99}, {"-9223372036854775809", INT64_MIN},
  };
  table.Expect(ParseInt64);
}

TEST(Text, Utf8) {
  const std::string all = "a\xD0\x96\xE2\x82\xAC\xF0\x9F\x98\x80z";
  EXPECT_TRUE(IsValidUtf8(all));
  // Cut, lone continuation, overlong in three forms, surrogate, too high.
  for (const char* bad : {"\xE2\x82", "\x82", "\xC0\xAF", "\xE0\x80\xAF", "\xF0\x80\x80\xAF",
                          "\xED\xA0\x80", "\xF4\x90\x80\x80"}) {
    EXPECT_FALSE(IsValidUtf8(bad)) << testing::PrintToString(bad);
  }
  EXPECT_EQ(NarrowUtf8(WidenUtf8(all)), all);
  EXPECT_EQ(NarrowUtf8(WidenUtf8("a\xFFz")), "a\xEF\xBF\xBDz");
  EXPECT_EQ(Utf8FromCp1251("A\xCF\xF0\xB8\x88\xB9"),
            "A\xD0\x9F\xD1\x80\xD1\x91\xE2\x82\xAC\xE2\x84\x96");
}

TEST(TextMode, LineEnds) {
  EXPECT_EQ(WithCrLf("a\nb\r\n\r"), "a\r\nb\r\r\n\r");
  for (std::string text : {"a\r\nb\r\n", "a\r\r\nb", "\ra\r\nb\rc\r"}) {
    const std::string onDisk = text;
    DropCrBeforeLf(&text);
    EXPECT_EQ(WithCrLf(text), onDisk);
  }
}
