#include "util/files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <thread>
#include <vector>

#include "layout/folders.h"
#include "testing/data_home.h"
#include "testing/log_capture.h"
#include "testing/table.h"
#include "util/clock.h"
#include "util/file_lock.h"
#include "util/folders.h"
#include "util/text.h"
#include "util/text_mode.h"

#ifndef _WIN32
#include <cerrno>

#include "util/posix/file_step.h"
#endif

namespace {

namespace fs = std::filesystem;

// A file in a folder of its own, named as stores name theirs.
struct TestFile {
  TestFile() {
    fs::remove_all(folder);
    fs::create_directories(folder);
  }
  fs::path folder = ProcessTempFolder() / "files";
  fs::path path = folder / "state.xml";
  std::string name = path.string();
};

}  // namespace

TEST(Paths, NormalizeFolderAndFolderOfPath) {
  const Table<std::wstring, std::wstring> table = {
      {L"a/b", L"a\\b\\"}, {L"a\\", L"a\\"}, {L"", L""}, {L"/", L"\\"}};
  table.Expect([](std::wstring path) { return NormalizeFolder(path); });
  EXPECT_EQ(GetFolderOfPath(L"a\\b\\c.xml"), L"a\\b\\");
  EXPECT_EQ(GetFolderOfPath(L"c.xml"), L"c.xml");
}

TEST(Paths, NoneLeavesItsFolder) {
  for (const wchar_t* bad : {L"..", L"a\\..", L"a/../b", L"..\\b", L".. ", L"...", L". ."}) {
    EXPECT_EQ(FolderBelow(L"C:", bad), L"") << NarrowUtf8(bad);
  }
  for (const wchar_t* good : {L"a", L".", L"a..b", L"..a", L"a\\b", L"1.2"}) {
    EXPECT_EQ(FolderBelow(L"C:", good), std::wstring(L"C:\\") + good + L"\\");
  }
  const LogCapture capture;
  FolderBelow(L"C:", L"Krelix\\..\\x");
  EXPECT_TRUE(capture.Has("E:FolderBelow: Sub-path refused:  Krelix\\..\\x"));
}

TEST(Paths, PrepareStringTakesUpTo259Characters) {
  std::wstring buffer(kMaxShellPathChars + 1, L'?');
  EXPECT_TRUE(PrepareString(std::wstring(259, L'a'), buffer.data()));
  EXPECT_EQ(buffer, std::wstring(259, L'a') + std::wstring(2, L'\0'));
  EXPECT_FALSE(PrepareString(std::wstring(260, L'a'), buffer.data()));
}

TEST(TextMode, LineEnds) {
  const Table<std::string, std::string> table = {
      {"a\nb\n", "a\r\nb\r\n"}, {"a\r\nb", "a\r\r\nb"}, {"\r", "\r"}};
  table.Expect(WithCrLf);
  for (std::string text : {"a\r\nb\r\n", "a\r\r\nb", "\ra\r\nb\rc\r"}) {
    const std::string onDisk = text;
    DropCrBeforeLf(&text);
    EXPECT_EQ(WithCrLf(text), onDisk);
  }
}

TEST(FileSystem, WriteReplacesAndReadReturns) {
  const TestFile file;
  EXPECT_TRUE(FileSystem::WriteFile(file.name, "old, and much longer\n"));
  EXPECT_TRUE(FileSystem::WriteFile(file.name, "a\x1A\nb\n"));
  EXPECT_EQ(ReadBytes(file.path), "a\x1A\r\nb\r\n");
  EXPECT_EQ(FileSystem::ReadFile(file.name), "a\x1A\nb\n");
  EXPECT_EQ(std::distance(fs::directory_iterator(file.folder), {}), 1)
      << "nothing is left beside it";
}

TEST(FileSystem, MissingAndUnreadableAreNotTheSame) {
  const TestFile file;
  EXPECT_TRUE(FileSystem::WriteFile((file.folder / "made" / "f").string(), "x"));
  std::string content = "before";
  EXPECT_EQ(FileSystem::ReadFile(file.name, &content), FileSystem::ReadOutcome::kMissing);
  EXPECT_EQ(content, "");
  EXPECT_EQ(FileSystem::GetFileTime(file.name), "");
  EXPECT_FALSE(FileSystem::CopyFile(file.name, file.name + "2"));
  EXPECT_FALSE(FileSystem::WriteFile((file.folder / "not" / "made" / "f").string(), "x"));
  std::wstring path = file.path.wstring();
  JustUtil::BackupFile(path);
  EXPECT_EQ(path, file.path.wstring()) << "there is no backup";
  fs::create_directories(file.path);  // a folder of that name cannot be read as a file
  const LogCapture capture;
  EXPECT_EQ(FileSystem::ReadFile(file.name, &content), FileSystem::ReadOutcome::kFailed);
  EXPECT_TRUE(capture.Has("E:FileSystem::ReadFile: Can't open file:  " + file.name));
  EXPECT_FALSE(FileSystem::WriteFile(file.name, "x"));
  EXPECT_TRUE(capture.Has("E:FileSystem::WriteFile: Can't open file:  " + file.name));
  EXPECT_EQ(FileSystem::ReadFile("", &content), FileSystem::ReadOutcome::kFailed);
}

TEST(FileSystem, ReadsNoMoreThanIsAccepted) {
  const TestFile file;
  WriteBytes(file.path, "12345678");
  std::string content = "before";
  const LogCapture capture;
  EXPECT_EQ(FileSystem::ReadFile(file.name, &content, 8), FileSystem::ReadOutcome::kRead);
  EXPECT_EQ(FileSystem::ReadFileIfAny(file.name + "2", &content),
            FileSystem::ReadOutcome::kMissing);
  EXPECT_EQ(capture.Lines().size(), 0u) << "a file that need not exist is no failure";
  EXPECT_EQ(FileSystem::ReadFile(file.name, &content, 7), FileSystem::ReadOutcome::kTooLarge);
  EXPECT_EQ(content, "");
  EXPECT_TRUE(capture.Has("E:FileSystem::ReadFile: File too large:  " + file.name));
}

TEST(Folders, OneThatIsALinkIsRefused) {
  const DataHome home;
  const fs::path elsewhere = ProcessTempFolder() / "elsewhere";
  fs::create_directories(elsewhere);
  const DataFolder sound("app");
  EXPECT_NE(sound.PathOf("f"), "");
  EXPECT_NE(GetUpdaterLocalFolder("app", CreateFolder::kNo), L"");
  for (const char* name : {"Krelix", "Krelix/Updater", "Krelix/Updater/app"}) {
    for (const std::wstring& root :
         {GetLocalAppDataLowFolder({}), GetLocalAppDataFolder({}, CreateFolder::kNo)}) {
      const fs::path link = NativePath(NarrowUtf8(root)) / name;
      SCOPED_TRACE(link.string());
      fs::remove_all(link);
      fs::create_directories(link.parent_path());
      LinkFolder(link, elsewhere);
      const LogCapture capture;
      const DataFolder data("app");
      const bool isRefused = data.PathOf("f").empty() && data.PathOf("g").empty();
      EXPECT_NE(isRefused, GetUpdaterLocalFolder("app", CreateFolder::kYes).empty());
      EXPECT_EQ(isRefused, root == GetLocalAppDataLowFolder({}));
      EXPECT_EQ(capture.Lines().size(), 1u);
      UnlinkFolder(link);
    }
  }
  EXPECT_TRUE(fs::is_empty(elsewhere)) << "nothing was made where they led";
}

TEST(Folders, NamesAreReadAsTheIdsThatTheyWereMadeFrom) {
  const DataHome home;
  const std::wstring folder = WidenUtf8(GetUpdaterDataPath({}));
  std::vector<std::string> ids = {"before"};
  EXPECT_TRUE(ListAppIds(folder + L"missing\\", &ids));
  EXPECT_EQ(ids, std::vector<std::string>());
  for (const char* id : {"a b", "\xC3\xA9"}) home.AppFolder(id);
  EXPECT_TRUE(ListAppIds(folder, &ids));
  std::sort(ids.begin(), ids.end());
  EXPECT_EQ(ids, (std::vector<std::string>{"a b", "\xC3\xA9"}));
  MakeFolder(folder + L"\x65E5");
  const bool isUtf8 = WidenAnsi("\xE6\x97\xA5") == L"\x65E5";
  EXPECT_EQ(ListAppIds(folder, &ids), isUtf8);
  EXPECT_FALSE(ListAppIds(L"", &ids));
}

TEST(FileLock, IsHeldByOneAndWaitedForInBounds) {
  const TestFile file;
  FileLock first(file.name, 0);
  FileLock impatient(file.name, 50);
  FileLock patient(file.name, 60'000);
  ASSERT_TRUE(first.Lock());
  const LogCapture capture;
  EXPECT_FALSE(impatient.Lock());
  impatient.Unlock();
  EXPECT_TRUE(capture.Has("E:FileLock::Lock: Lock file is held by another:  " + file.name));
  std::thread holder([&] {
    SleepMilliseconds(60);
    first.Unlock();
  });
  EXPECT_TRUE(patient.Lock());
  holder.join();
  EXPECT_FALSE(first.Lock());
  patient.Unlock();
  EXPECT_TRUE(first.Lock()) << "a file that stayed behind is no lock that is held";
  FileLock folder(file.folder.string(), 1000);
  EXPECT_FALSE(folder.Lock());
  EXPECT_TRUE(capture.Lines().back().starts_with("E:FileLock::Lock: Can't open lock file:  "))
      << "what can never be opened is not waited for";
}

#ifndef _WIN32
TEST(FileSystem, WritesNothingWhereALinkLeads) {
  const TestFile file;
  const fs::path victim = file.folder / "victim";
  for (const std::string& link : {file.name + ".new", file.name, file.name + ".bak"}) {
    WriteBytes(victim, "kept");
    fs::remove(link);
    fs::create_symlink(victim, link);
    FileSystem::WriteFile(file.name, "written");
    FileSystem::CopyFile(file.name, file.name + ".bak");
    EXPECT_EQ(ReadBytes(victim), "kept") << link;
    EXPECT_EQ(ReadBytes(file.name + ".bak"), "written");
    FileLock lock((file.folder / "lock").string(), 0);
    fs::create_symlink(victim, file.folder / "lock");
    EXPECT_FALSE(lock.Lock());
    fs::remove(file.folder / "lock");
  }
}

TEST(FileSystem, AFullDiskLeavesTheOldContent) {
  const TestFile file;
  const std::string old(5000, 'o');
  static bool isSiblingRefused;
  for (const bool refused : {false, true}) {
    ASSERT_TRUE(FileSystem::WriteFile(file.name, old));
    isSiblingRefused = refused;
    SetFileStepGuard([](const char* step, const std::string& path) {
      const bool fails = path.ends_with(".new") && isSiblingRefused
                             ? std::string_view(step) == "open"
                             : std::string_view(step) == "write on";
      return fails && !path.ends_with(".log") ? ENOSPC : 0;
    });
    const LogCapture capture;
    const std::string text(4500, '\n');
    EXPECT_FALSE(FileSystem::WriteFile(file.name, text)) << refused;
    EXPECT_TRUE(capture.Has("E:FileSystem::WriteFile: Try to write  4500, really -  " +
                            std::string(refused ? "1000" : "2250")));
    EXPECT_FALSE(FileSystem::IsNameFree(file.name));
    SetFileStepGuard(nullptr);
    EXPECT_EQ(ReadBytes(file.path), old) << refused;
    EXPECT_TRUE(FileSystem::IsNameFree(file.name + ".new"));
  }
}
#endif
