#include "util/log_line.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <barrier>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "testing/data_home.h"
#include "testing/table.h"
#include "util/append_file.h"
#include "util/diag_log.h"
#include "util/system.h"
#include "util/text.h"
#include "util/text_mode.h"

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
  std::string text = ReadBytes(file);
  DropCrBeforeLf(&text);
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
      {"foreign line ends", [](Line& l) { l << "a\n12:00:00 E:b\r\nc\rd\r\n\n"; },
       "D:C::M(7): a\n    12:00:00 E:b\n    c d"},
  };
  table.Expect([](void (*append)(Line&)) { return LineOf(append); });
  EXPECT_EQ(LineOf([](Line& l) { l << "x"; }, "P:"), "") << "paranoid lines are off";
}

TEST(DiagLog, IsBoundedWhileItsProcessLives) {
  const auto file = ProcessTempFolder() / "bounded.log";
  const std::string line(150'000, 'x');  // so that it looks after every second one
  constexpr int kLines = 12;
  DiagLog log;
  log.Start([&] { return file.wstring(); }, "heading");
  for (int i = 0; i < kLines; ++i) log.Write(DecimalText(i) + line);
  const std::string old = ReadBytes(file.string() + ".bak");
  std::vector<std::string> written = {"heading"};
  for (int i = 0; i < kLines; ++i) written.push_back(DecimalText(i) + line);
  EXPECT_EQ(LinesOf(old + ReadBytes(file)), written);
  EXPECT_EQ(LinesOf(old).size(), 1u + 8u);
}

TEST(DiagLog, OfManyWritersAtTheLimitOneMovesTheFileAside) {
  constexpr int kWriters = 8;
  constexpr int kRounds = 100;
  const std::filesystem::path file = ProcessTempFolder() / "shared.log";
  const std::filesystem::path backup = file.string() + ".bak";
  const std::string old(10'000, 'o');
  std::mutex turn;  // Wine loses a line when two processes append at the same moment
  const auto append = [&] {
    const std::lock_guard scope(turn);
    EXPECT_TRUE(AppendToFile(file.wstring(), "y"));
  };
  std::barrier round(kWriters);
  std::vector<std::thread> writers;
  for (int writer = 0; writer < kWriters; ++writer) {
    writers.emplace_back([&, writer] {
      for (int i = 0; i < kRounds; ++i) {
        if (writer == 0) {
          std::filesystem::remove(backup);
          WriteBytes(file, old);
        }
        round.arrive_and_wait();
        append();
        round.arrive_and_wait();
        MoveAsideAbove(file.wstring(), old.size());
        append();
        round.arrive_and_wait();
        if (writer != 0) continue;
        const std::string kept = ReadBytes(backup);
        const std::string all = kept + ReadBytes(file);
        EXPECT_TRUE(kept.starts_with(old));
        EXPECT_EQ(std::count(all.begin(), all.end(), 'y'), 2 * kWriters);
      }
    });
  }
  for (std::thread& writer : writers) writer.join();
}
