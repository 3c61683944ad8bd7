#include "controller/copy_out.h"

#include <gtest/gtest.h>

#include <string>

#include "testing/table.h"

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
