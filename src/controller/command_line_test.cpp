#include "controller/command_line.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "controller/copy_out.h"
#include "testing/table.h"

TEST(CommandLine, RefusesIdsThatWouldAddAnArgument) {
  for (const wchar_t* id : {L"a\" --suicide", L"a --suicide", L"--suicide"}) {
    EXPECT_THROW(UpdateCheckArguments(id, L"f"), std::invalid_argument);
    EXPECT_THROW(PingArguments(id, 1, false), std::invalid_argument);
    EXPECT_THROW(SilentUpdateCommandLine(L"e", id), std::invalid_argument);
  }
  EXPECT_EQ(PingArguments(L"a--b -x", 7, true), L" --suicide --stat-callback 7 --appid a--b -x");
}

TEST(CopyOut, CopiesOrAsksForMore) {
  using Buffer = std::pair<bool, std::int32_t>;  // whether there is one, and its size
  const Table<Buffer, std::string> table = {
      {"fits exactly", {true, 6}, "6 value"}, {"room left", {true, 8}, "8 value"},
      {"one too small", {true, 5}, "6 "},     {"no buffer", {false, 100}, "6 ?"},
      {"size zero", {true, 0}, "6 ?"},        {"negative size", {true, -1}, "6 ?"},
  };
  table.Expect([](Buffer given) {
    char buffer[16] = "?";
    const CopyOutBuffer<char> out{given.first ? buffer : nullptr, &given.second};
    out.Clear();
    out.Deliver("value");
    return std::to_string(given.second) + " " + buffer;
  });
}
