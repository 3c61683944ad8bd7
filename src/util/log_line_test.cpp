#include "util/log_line.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <barrier>
#include <mutex>
#include <thread>
#include <vector>

#include "testing/data_home.h"
#include "testing/table.h"
#include "util/append_file.h"
#include "util/diag_log.h"
#include "util/system.h"
#include "util/text.h"

namespace fs = std::filesystem;

namespace {

// A log in a file of its own.
struct TestLog {
  TestLog() {
    fs::remove(file);
    log.Start([&] { return file.wstring(); }, "heading");
  }
  const fs::path file = ProcessTempFolder() / "line.log";
  DiagLog log;
};

// One line of a log, behind its time.
template <class Append>
std::string LineOf(Append append, std::string_view level = "D:") {
  TestLog test;
  SetLastErrorCode(5);
  {
    LogLine line(&test.log, "C::M", 7, level);
    append(line);
  }
  EXPECT_EQ(LastErrorCode(), 5u);
  std::string text;
  for (const std::string& line : LinesOf(ReadBytes(test.file))) text += line + '\n';
  const std::size_t begin = text.find(' ', text.find('\n'));
  return begin == text.npos ? "" : text.substr(begin + 1, text.size() - begin - 2);
}

}  // namespace

TEST(LogLine, NamesAreCutFromEveryCompilersSpelling) {
  const Table<const char*, std::string> table = {
      {"auto TStat::Add(int)::(anonymous class)::operator()() const", "TStat::Add"},
      {"bool {anonymous}::Replace(const std::wstring&)", "Replace"},
      {"bool (anonymous namespace)::Replace(const std::wstring &)", "Replace"},
      {"std::map<int, void (*)(int)> JustUtil::Table(char)", "JustUtil::Table"},
      {"int main()", "main"},
  };
  table.Expect([](const char* pretty) { return std::string(QualifiedName(pretty)); });
}

TEST(LogLine, JoinsPiecesAndDecoratesCodes) {
  using Line = LogLine;
  const char* const none = nullptr;
  EXPECT_EQ(LineOf([&](Line& l) { l << 1 << ", b" << 2 << ".c" << 3 << ":d" << L"\x43f" << none; }),
            "D:C::M(7): 1, b 2.c 3:d \xD0\xBF");
  EXPECT_EQ(LineOf([](Line& l) { l << "n " << -12 << 18446744073709551615u << kOtherCode << 255; }),
            "D:C::M(7): n  -12 18446744073709551615 Code: 0xff.");
  EXPECT_EQ(LineOf([](Line& l) { l << "x" << kLastError << 12 << kHresult << INT32_MIN; }),
            "D:C::M(7): x LastError: 0x5. 12 HR= 0x80000000.");
  EXPECT_EQ(LineOf([](Line& l) { l << "a\n12:00:00 E:b\r\nc\rd\r\n\n"; }),
            "D:C::M(7): a\n    12:00:00 E:b\n    c d");
  EXPECT_EQ(LineOf([&](Line& l) { l << none; }), "D:C::M(7):");
  EXPECT_EQ(LineOf([](Line&) {}), "");
  EXPECT_EQ(LineOf([](Line& l) { l << "x"; }, "P:"), "") << "paranoid lines are off";
}

TEST(DiagLog, IsBoundedWhileItsProcessLives) {
  TestLog test;
  const std::string line(150'000, 'x');  // so that every second one makes it look
  std::vector<std::string> written = {"heading"};
  for (int i = 0; i < 12; ++i) test.log.Write(written.emplace_back(DecimalText(i) + line));
  const std::string old = ReadBytes(test.file.string() + ".bak");
  EXPECT_EQ(LinesOf(old + ReadBytes(test.file)), written);
  EXPECT_EQ(LinesOf(old).size(), 1u + 8u);
}

TEST(DiagLog, OfManyWritersAtTheLimitOneMovesTheFileAside) {
  const fs::path file = ProcessTempFolder() / "shared.log";
  const std::string old(10'000, 'o');
  std::mutex turn;  // Wine loses a line when two processes append at the same moment
  const auto append = [&] {
    const std::lock_guard scope(turn);
    EXPECT_TRUE(AppendToFile(file.wstring(), "y"));
  };
  for (int rounds = 0; rounds < 100; ++rounds) {
    fs::remove(file.string() + ".bak");
    WriteBytes(file, old);
    std::barrier together(8);
    std::vector<std::thread> writers;
    for (int i = 0; i < 8; ++i) {
      writers.emplace_back([&] {
        append();
        together.arrive_and_wait();
        MoveAsideAbove(file.wstring(), old.size());
        append();
      });
    }
    for (std::thread& writer : writers) writer.join();
    const std::string kept = ReadBytes(file.string() + ".bak");
    const std::string all = kept + ReadBytes(file);
    EXPECT_TRUE(kept.starts_with(old));
    EXPECT_EQ(std::count(all.begin(), all.end(), 'y'), 16);
  }
}
