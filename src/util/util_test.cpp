// Texts, paths, files and the log, natively and under Wine.
#include <algorithm>
#include <barrier>
#include <mutex>
#include <thread>

#include "layout/folders.h"
#include "testing/unit_test.h"
#include "util/append_file.h"
#include "util/clock.h"
#include "util/diag_log.h"
#include "util/file_lock.h"
#include "util/files.h"
#include "util/log_line.h"
#include "util/system.h"
#include "util/text.h"
#include "util/text_mode.h"
#ifndef _WIN32
#include <cerrno>

#include "util/posix/file_step.h"
#endif

using enum FileSystem::ReadOutcome;

namespace {

// A file in a folder of its own, named as stores name theirs.
struct TestFile {
  TestFile() {
    fs::remove_all(folder);
    fs::create_directories(folder);
  }
  const fs::path folder = ProcessTempFolder() / "files";
  const fs::path path = folder / "state.xml";
  const std::string name = path.string();
};

}  // namespace

TEST(Text, ParseInt64) {
  const Table<const char*, std::int64_t> table = {
      {"", 0},        {" \t-7x", -7},
      {"+5", 5},      {"+-5", 0},
      {"0x10", 0},    {"9223372036854775808", INT64_MAX},
      {"-99e9", -99}, {"-9223372036854775809", INT64_MIN}};
  table.Expect(ParseInt64);
}

TEST(Text, Utf8) {
  const std::string all = "a\xD0\x96\xE2\x82\xAC\xF0\x9F\x98\x80z";
  EXPECT_TRUE(IsValidUtf8(all));
  // Cut, lone continuation, overlong in three forms, surrogate, too high.
  ExpectAll(false,
            {"\xE2\x82", "\x82", "\xC0\xAF", "\xE0\x80\xAF", "\xF0\x80\x80\xAF", "\xED\xA0\x80",
             "\xF4\x90\x80\x80"},
            IsValidUtf8);
  EXPECT_EQ(NarrowUtf8(WidenUtf8(all + "\xFF")), all + "\xEF\xBF\xBD");
  EXPECT_EQ(Utf8FromCp1251("A\xCF\xF0\xB8\x88\xB9"),
            "A\xD0\x9F\xD1\x80\xD1\x91\xE2\x82\xAC\xE2\x84\x96");
}

TEST(Text, LineEnds) {
  EXPECT_EQ(WithCrLf("a\nb\r\n\r"), "a\r\nb\r\r\n\r");
  for (std::string text : {"a\r\nb\r\n", "a\r\r\nb", "\ra\r\nb\rc\r"}) {
    const std::string onDisk = text;
    DropCrBeforeLf(&text);
    EXPECT_EQ(WithCrLf(text), onDisk);
  }
}

TEST(Paths, FoldersAndLimits) {
  std::wstring folder = L"a/b", normal = L"a\\", root = L"/", empty;
  EXPECT_EQ(NormalizeFolder(folder) + NormalizeFolder(normal), L"a\\b\\a\\");
  EXPECT_EQ(NormalizeFolder(root) + NormalizeFolder(empty), L"\\");
  EXPECT_EQ(GetFolderOfPath(L"a\\b\\c.xml") + GetFolderOfPath(L"c.xml"), L"a\\b\\c.xml");
  std::wstring buffer(kMaxShellPathChars + 1, L'?');
  EXPECT_TRUE(PrepareString(std::wstring(259, L'a'), buffer.data()));
  EXPECT_EQ(buffer, std::wstring(259, L'a') + std::wstring(2, L'\0'));
  EXPECT_FALSE(PrepareString(std::wstring(260, L'a'), buffer.data()));
}

TEST(Paths, NoneLeavesItsFolder) {
  const LogCapture capture;
  const auto below = [](const wchar_t* path) {
    return FolderBelow(L"", path) + FolderBelow(L"C:", path);
  };
  ExpectAll(std::wstring(), {L"..", L"a\\..", L"a/../b", L"..\\b", L".. ", L"...", L". ."}, below);
  for (const wchar_t* good : {L"a", L".", L"a..b", L"..a", L"a\\b", L"1.2"}) {
    EXPECT_EQ(below(good), std::wstring(L"C:\\") + good + L"\\");
  }
  EXPECT_TRUE(capture.Has("Sub-path refused:  a/../b"));
}

TEST(FileSystem, MissingUnreadableAndTooLargeAreNotTheSame) {
  const TestFile file;
  const std::string beside = file.name + "2";
  std::string content;
  const auto read = [&](const std::string& path, std::uint64_t most = 8) {
    content = "before";
    return FileSystem::ReadFile(path, &content, most);
  };
  EXPECT_EQ(read(file.name), kMissing);
  EXPECT_EQ(content + FileSystem::GetFileTime(file.name), "");
  EXPECT_FALSE(FileSystem::CopyFile(file.name, beside));
  std::wstring path = file.path.wstring();
  JustUtil::BackupFile(path);
  EXPECT_EQ(path, file.path.wstring()) << "there is no backup";

  EXPECT_TRUE(FileSystem::WriteFile(file.name, "old, and much longer\n"));
  EXPECT_TRUE(FileSystem::WriteFile(file.name, "a\x1A\nb\n"));
  EXPECT_EQ(ReadBytes(file.path), "a\x1A\r\nb\r\n");
  EXPECT_EQ(FileSystem::ReadFile(file.name), "a\x1A\nb\n");
  EXPECT_EQ(std::distance(fs::directory_iterator(file.folder), {}), 1) << "no file beside it";
  EXPECT_TRUE(FileSystem::WriteFile((file.folder / "made" / "f").string(), "x"));
  EXPECT_FALSE(FileSystem::WriteFile((file.folder / "not" / "made" / "f").string(), "x"));

  LogCapture capture;
  EXPECT_EQ(read(file.name, 7), kRead);
  EXPECT_EQ(FileSystem::ReadFileIfAny(beside, &content), kMissing);
  EXPECT_EQ(capture.Lines().size(), 0u) << "a file that need not exist is no failure";
  EXPECT_EQ(read(file.name, 6), kTooLarge);
  EXPECT_EQ(content, "");
  fs::remove(file.path);
  fs::create_directories(file.path);  // a folder of that name cannot be read as a file
  EXPECT_EQ(read(file.name), kFailed);
  EXPECT_EQ(read(""), kFailed);
  EXPECT_FALSE(FileSystem::WriteFile(file.name, "x"));
  for (const char* line :
       {"File too large:  ", "ReadFile: Can't open file:  ", "WriteFile: Can't open file:  "}) {
    EXPECT_TRUE(capture.Has(line + file.name));
  }
}

#ifndef _WIN32
TEST(FileSystem, AFullDiskLeavesTheOldContent) {
  const TestFile file;
  EXPECT_TRUE(FileSystem::WriteFile(file.name, "old"));
  const LogCapture capture;
  SetFileStepGuard([](const char* step, const std::string& path) {
    return std::string_view(step) == "write on" && path.find("state.xml") != path.npos ? ENOSPC : 0;
  });
  EXPECT_FALSE(FileSystem::WriteFile(file.name, std::string(4500, '\n')));
  SetFileStepGuard(nullptr);
  EXPECT_TRUE(capture.Has("Try to write  4500, really -  2250"));
  EXPECT_EQ(ReadBytes(file.path), "old");
}
#endif

TEST(Folders, OneThatIsALinkIsRefused) {
  const DataHome home;
  const fs::path elsewhere = ProcessTempFolder() / "elsewhere";
  fs::create_directories(elsewhere);
  EXPECT_NE(DataFolder("app").PathOf("f"), "");
  EXPECT_NE(GetUpdaterLocalFolder("app", CreateFolder::kNo), L"");
  const std::wstring low = GetLocalAppDataLowFolder({});
  for (const char* name : {"Krelix", "Krelix/Updater", "Krelix/Updater/app"}) {
    for (const std::wstring& root : {low, GetLocalAppDataFolder({}, CreateFolder::kNo)}) {
      const fs::path link = NativePath(NarrowUtf8(root)) / name;
      SCOPED_TRACE(link.string());
      fs::remove_all(link);
      fs::create_directories(link.parent_path());
      LinkFolder(link, elsewhere);
      const LogCapture capture;
      const DataFolder data("app");
      EXPECT_EQ(data.PathOf("f").empty() && data.PathOf("g").empty(), root == low);
      EXPECT_EQ(GetUpdaterLocalFolder("app", CreateFolder::kYes).empty(), root != low);
      EXPECT_EQ(capture.Lines().size(), 1u);
      UnlinkFolder(link);
    }
  }
  EXPECT_TRUE(fs::is_empty(elsewhere)) << "where they led";
}

TEST(Folders, NamesAreReadAsTheIdsThatTheyWereMadeFrom) {
  const DataHome home;
  const std::wstring folder = WidenUtf8(GetUpdaterDataPath({}));
  std::vector<std::string> ids = {"before"};
  EXPECT_TRUE(ListAppIds(folder + L"missing\\", &ids) && ids.empty());
  home.AppFolder("\xC3\xA9 b");
  EXPECT_TRUE(ListAppIds(folder, &ids));
  EXPECT_EQ(ids, std::vector<std::string>{"\xC3\xA9 b"});
  MakeFolder(folder + L"\x65E5");
  EXPECT_EQ(ListAppIds(folder, &ids), WidenAnsi("\xE6\x97\xA5") == L"\x65E5");
  EXPECT_FALSE(ListAppIds(L"", &ids));
}

TEST(FileLock, IsHeldByOneAndWaitedForInBounds) {
  const TestFile file;
  FileLock first(file.name, 0), impatient(file.name, 50), patient(file.name, 60'000);
  ASSERT_TRUE(first.Lock());
  const LogCapture capture;
  EXPECT_FALSE(impatient.Lock());
  impatient.Unlock();
  EXPECT_TRUE(capture.Has("Lock file is held by another:  " + file.name));
  std::thread holder([&] {
    SleepMilliseconds(60);
    first.Unlock();
  });
  EXPECT_TRUE(patient.Lock());
  holder.join();
  EXPECT_FALSE(first.Lock());
  patient.Unlock();
  EXPECT_TRUE(first.Lock()) << "a file that stayed behind is no lock that is held";
  EXPECT_FALSE(FileLock(file.folder.string(), 1000).Lock());
  EXPECT_TRUE(capture.Lines().back().find("Can't open lock file:  ") != std::string::npos)
      << "at once";
}

TEST(LogLine, NamesAreCutFromEveryCompilersSpelling) {
  const Table<const char*, std::string> table = {
      {"auto TStat::Add(int)::(anonymous class)::operator()() const", "TStat::Add"},
      {"bool {anonymous}::Replace(const std::wstring&)", "Replace"},
      {"bool (anonymous namespace)::Replace(const std::wstring &)", "Replace"},
      {"std::map<int, void (*)(int)> JustUtil::Table(char)", "JustUtil::Table"},
      {"int main()", "main"}};
  table.Expect([](const char* pretty) { return std::string(QualifiedName(pretty)); });
}

TEST(LogLine, JoinsPiecesAndDecoratesCodes) {
  const char* const none = nullptr;
  const auto expect = [](const std::vector<std::string>& want, const char* level,
                         const auto&... pieces) {
    const LogCapture log;
    SetLastErrorCode(5);
    {
      LogLine line(&DiagLog::Instance(), "C::M", 7, level);
      static_cast<void>((line << ... << pieces));
    }
    EXPECT_EQ(LastErrorCode(), 5u);
    EXPECT_EQ(log.Lines(), want);
  };
  expect({"D:C::M: 1, b 2.c 3:d \xD0\xBF"}, "D:", 1, ", b", 2, ".c", 3, ":d", L"\x43f", none);
  expect({"D:C::M: n  -12 18446744073709551615 Code: 0xff."}, "D:", "n ", -12,
         18446744073709551615u, kOtherCode, 255);
  expect({"E:C::M: x LastError: 0x5. 12 HR= 0x80000000."}, "E:", "x", kLastError, 12, kHresult,
         INT32_MIN);
  expect({"D:C::M: a", "    12:00:00 E:b", "    c d"}, "D:", "a\n12:00:00 E:b\r\nc\rd\r\n\n");
  expect({"D:C::M:"}, "D:", none);
  expect({}, "D:");
  expect({}, "P:", "x");  // paranoid lines are off
}

TEST(DiagLog, IsBoundedWhileItsProcessLives) {
  const TestFile file;
  DiagLog log;
  log.Start([&] { return file.path.wstring(); }, "heading");
  const std::string line(150'000, 'x');  // so that every second one makes it look
  std::vector<std::string> written = {"heading"};
  for (int i = 0; i < 12; ++i) log.Write(written.emplace_back(DecimalText(i) + line));
  const std::string old = ReadBytes(file.name + ".bak");
  EXPECT_EQ(LinesOf(old + ReadBytes(file.path)), written);
  EXPECT_EQ(LinesOf(old).size(), 1u + 8u);
}

TEST(DiagLog, OfManyWritersAtTheLimitOneMovesTheFileAside) {
  const std::string old(10'000, 'o');
  for (int rounds = 0; rounds < 100; ++rounds) {
    const TestFile file;
    WriteBytes(file.path, old);
    std::mutex turn;  // Wine loses a line when two processes append at the same moment
    const auto append = [&] {
      const std::lock_guard scope(turn);
      EXPECT_TRUE(AppendToFile(file.path.wstring(), "y"));
    };
    std::barrier together(8);
    std::vector<std::jthread> writers(8);
    for (std::jthread& writer : writers) {
      writer = std::jthread([&] {
        append();
        together.arrive_and_wait();
        MoveAsideAbove(file.path.wstring(), old.size());
        append();
      });
    }
    writers.clear();  // waits for them
    const std::string kept = ReadBytes(file.name + ".bak"), all = kept + ReadBytes(file.path);
    EXPECT_TRUE(kept.starts_with(old));
    EXPECT_EQ(std::count(all.begin(), all.end(), 'y'), 16);
  }
}
