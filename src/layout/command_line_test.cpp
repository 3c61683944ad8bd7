#include "layout/command_line.h"

#include <gtest/gtest.h>

#include "layout/names.h"
#include "testing/table.h"

TEST(CommandLine, ExactTexts) {
  EXPECT_EQ(UpdateCheckArguments(L"my app", L"C:\\T\\f.xml"),
            L" --appid my app --update-check --file \"C:\\T\\f.xml\"");
  EXPECT_EQ(UpdateCheckArguments(L"", L"\"quoted\""),
            L" --appid  --update-check --file \"quoted\"");
  EXPECT_EQ(PingArguments(L"myapp", 7, true), L" --suicide --stat-callback 7 --appid myapp");
  EXPECT_EQ(PingArguments(L"", 0, false), L" --stat-callback 0 --appid ");
  EXPECT_EQ(SilentUpdateCommandLine(L"C:\\x y\\e.exe", L"a"),
            L"C:\\x y\\e.exe --appid a --silent-update-check");
  EXPECT_EQ(QuotedPath(L""), L"\"\"");
  EXPECT_EQ(ResultEventName("a"), L"{611172A1-0EBC-49e8-A150-3052CE9F113A}-32-a");
}

TEST(CommandLine, RefusesIdsThatWouldAddAnArgument) {
  const Table<std::wstring, std::string> table = {
      {L"my app -x", "written"},   {L"a--b", "written"},      {L"a\" --suicide", "refused"},
      {L"a --suicide", "refused"}, {L"--suicide", "refused"},
  };
  table.Expect([](const std::wstring& id) -> std::string {
    int refused = 0;
    for (const auto& write :
         {+[](const std::wstring& appId) { UpdateCheckArguments(appId, L"f"); },
          +[](const std::wstring& appId) { PingArguments(appId, 1, false); },
          +[](const std::wstring& appId) { SilentUpdateCommandLine(L"e", appId); }}) {
      try {
        write(id);
      } catch (const std::invalid_argument&) {
        ++refused;
      }
    }
    return refused == 0 ? "written" : refused == 3 ? "refused" : "only some refuse it";
  });
}
