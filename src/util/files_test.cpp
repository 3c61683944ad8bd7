#include "util/files.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "layout/folders.h"
#include "testing/data_home.h"
#include "testing/log_capture.h"
#include "util/clock.h"
#include "util/file_lock.h"
#include "util/text.h"

#ifndef _WIN32
#include <cerrno>

#include "util/posix/file_step.h"
#endif

namespace fs = std::filesystem;
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
  for (const wchar_t* bad : {L"..", L"a\\..", L"a/../b", L"..\\b", L".. ", L"...", L". ."}) {
    EXPECT_EQ(FolderBelow(L"C:", bad), L"") << NarrowUtf8(bad);
  }
  for (const wchar_t* good : {L"a", L".", L"a..b", L"..a", L"a\\b", L"1.2"}) {
    EXPECT_EQ(FolderBelow(L"C:", good), std::wstring(L"C:\\") + good + L"\\");
  }
  EXPECT_TRUE(capture.Has("Sub-path refused:  a/../b"));
}

TEST(FileSystem, MissingUnreadableAndTooLargeAreNotTheSame) {
  const TestFile file;
  std::string content;
  const auto read = [&](const std::string& path, std::uint64_t most = 8) {
    content = "before";
    return FileSystem::ReadFile(path, &content, most);
  };
  EXPECT_EQ(read(file.name), kMissing);
  EXPECT_EQ(content, "");
  EXPECT_EQ(FileSystem::GetFileTime(file.name), "");
  EXPECT_FALSE(FileSystem::CopyFile(file.name, file.name + "2"));
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
  EXPECT_EQ(FileSystem::ReadFileIfAny(file.name + "2", &content), kMissing);
  EXPECT_EQ(capture.Lines().size(), 0u) << "a file that need not exist is no failure";
  EXPECT_EQ(read(file.name, 6), kTooLarge);
  EXPECT_EQ(content, "");
  EXPECT_TRUE(capture.Has("File too large:  " + file.name));
  fs::remove(file.path);
  fs::create_directories(file.path);  // a folder of that name cannot be read as a file
  EXPECT_EQ(read(file.name), kFailed);
  EXPECT_TRUE(capture.Has("ReadFile: Can't open file:  " + file.name));
  EXPECT_FALSE(FileSystem::WriteFile(file.name, "x"));
  EXPECT_TRUE(capture.Has("WriteFile: Can't open file:  " + file.name));
  EXPECT_EQ(read(""), kFailed);
}

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
  EXPECT_NE(capture.Lines().back().find("Can't open lock file:  "), std::string::npos)
      << "no wait for what can never be opened";
}

#ifndef _WIN32
TEST(FileSystem, WritesNothingWhereALinkLeads) {
  const TestFile file;
  const fs::path victim = file.folder / "victim";
  for (const char* suffix : {".new", "", ".bak", ".lock"}) {
    const std::string link = file.name + suffix;
    WriteBytes(victim, "kept");
    fs::remove(link);
    fs::create_symlink(victim, link);
    FileSystem::WriteFile(file.name, "written");
    FileSystem::CopyFile(file.name, file.name + ".bak");
    EXPECT_EQ(ReadBytes(victim), "kept") << link;
    EXPECT_EQ(ReadBytes(file.name + ".bak"), "written");
  }
  EXPECT_FALSE(FileLock(file.name + ".lock", 0).Lock());
}

TEST(FileSystem, AFullDiskLeavesTheOldContent) {
  const TestFile file;
  const std::string old(5000, 'o');
  EXPECT_TRUE(FileSystem::WriteFile(file.name, old));
  SetFileStepGuard([](const char* step, const std::string& path) {
    return std::string_view(step) == "write on" && !path.ends_with(".log") ? ENOSPC : 0;
  });
  const LogCapture capture;
  EXPECT_FALSE(FileSystem::WriteFile(file.name, std::string(4500, '\n')));
  SetFileStepGuard(nullptr);
  EXPECT_TRUE(capture.Has("Try to write  4500, really -  2250"));
  EXPECT_EQ(ReadBytes(file.path), old);
}
#endif
