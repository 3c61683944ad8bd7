#include "util/log_line.h"

#include <gtest/gtest.h>

#include <string>

#include "testing/data_home.h"
#include "testing/table.h"
#include "util/diag_log.h"
#include "util/last_error.h"

namespace {

// What one line of a log of its own looks like, without its time.
template <class Append>
std::string LineOf(Append append, std::string_view level = "D:") {
  const auto file = ProcessTempFolder() / "line.log";
  std::filesystem::remove(file);
  DiagLog log;
  log.Start([&] { return file.wstring(); }, "heading");
  SetLastErrorCode(5);
  {
    LogLine line(&log, "C::M", 7, level);
    append(line);
  }
  EXPECT_EQ(LastErrorCode(), 5u);
  const std::string text = ReadBytes(file);
  const std::size_t begin = text.find(' ', text.find('\n'));
  return begin == std::string::npos ? ""
                                    : text.substr(begin + 1, text.find_last_not_of("\r\n") - begin);
}

}  // namespace

TEST(QualifiedName, CutsEveryCompilersSpelling) {
  const Table<const char*, std::string> table = {
      {"auto TStatCtrl::AddState(int)::(anonymous class)::operator()() const",
       "TStatCtrl::AddState"},
      {"bool {anonymous}::Replace(const std::wstring&)", "Replace"},
      {"bool (anonymous namespace)::Replace(const std::wstring &)", "Replace"},
      {"std::map<int, void (*)(int)> JustUtil::Table(char)", "JustUtil::Table"},
      {"int main()", "main"},
  };
  table.Expect([](const char* pretty) { return std::string(QualifiedName(pretty)); });
}

TEST(LogLine, JoinsPiecesAndDecoratesCodes) {
  using Line = LogLine;
  const Table<void (*)(Line&), std::string> table = {
      {"attached", [](Line& l) { l << 1 << ", b" << 2 << ".c" << 3 << ":d"; },
       "D:C::M(7): 1, b 2.c 3:d"},
      {"wide", [](Line& l) { l << L"\x43f" << L"b"; }, "D:C::M(7): \xD0\xBF b"},
      {"null text", [](Line& l) { l << static_cast<const char*>(nullptr); }, "D:C::M(7):"},
      {"numbers", [](Line& l) { l << "n " << -12 << 18446744073709551615u; },
       "D:C::M(7): n  -12 18446744073709551615"},
      {"last error", [](Line& l) { l << "x" << L"y" << kLastError << 12; },
       "D:C::M(7): x y LastError: 0x5. 12"},
      {"hresult", [](Line& l) { l << kHresult << static_cast<std::int32_t>(0x80070005); },
       "D:C::M(7): HR= 0x80070005."},
      {"other code", [](Line& l) { l << kOtherCode << 255; }, "D:C::M(7): Code: 0xff."},
      {"nothing", [](Line&) {}, ""},
  };
  table.Expect([](void (*append)(Line&)) { return LineOf(append); });
  EXPECT_EQ(LineOf([](Line& l) { l << "x"; }, "P:"), "") << "paranoid lines are off";
}
