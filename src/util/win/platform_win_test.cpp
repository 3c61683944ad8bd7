// What only Windows can show: the registry, names of kernel objects, files held by others, the system's DLLs.
#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "layout/log_start.h"
#include "testing/data_home.h"
#include "testing/log_capture.h"
#include "testing/table.h"
#include "util/files.h"
#include "util/folder_content.h"
#include "util/handle.h"
#include "util/mutex.h"
#include "util/process.h"
#include "util/registry.h"
#include "util/system.h"
#include "util/text.h"
#include "util/win/security.h"
#include "util/win/system_library.h"

namespace {

namespace fs = std::filesystem;

constexpr wchar_t kKey[] = L"Software\\Krelix\\UnitTest";

// Writes behind the end of an array. Nothing of it is known to the compiler, which would say so or leave it out.
[[gnu::noinline]] void Overrun(std::size_t length) {
  char room[16];
  volatile char* volatile at = room;
  for (std::size_t i = 0; i < length; ++i) at[i] = 'x';
}

}  // namespace

TEST(Registry, ReadsByTypeAndSaysWhatIsWrong) {
  const auto root = RegistryRoot::kCurrentUser;
  std::uint64_t number = 7;
  ::RegSetKeyValueW(HKEY_CURRENT_USER, kKey, L"text", REG_SZ, L"abc", 8);
  ::RegSetKeyValueW(HKEY_CURRENT_USER, kKey, L"cut", REG_SZ, L"ab!", 4);
  ::RegSetKeyValueW(HKEY_CURRENT_USER, kKey, L"long", REG_QWORD, &number, 8);
  ::RegSetKeyValueW(HKEY_CURRENT_USER, kKey, L"odd", REG_BINARY, &number, 3);
  EXPECT_TRUE(JustUtil::WriteIntToRegistry(kKey, L"int", 5));
  EXPECT_EQ(JustUtil::EnumValues(kKey).size(), 4u) << "all but the binary one";

  std::uint32_t small = 0;
  EXPECT_EQ(JustUtil::ReadStringFromRegistry(root, kKey, L"text"), L"abc");
  EXPECT_EQ(JustUtil::ReadStringFromRegistry(root, kKey, L"cut").substr(0, 2), L"ab");
  EXPECT_TRUE(JustUtil::ReadIntFromRegistry(root, kKey, L"int", &small) && small == 5);
  EXPECT_TRUE(JustUtil::ReadLongFromRegistry(root, kKey, L"long", &number) && number == 7);
  const LogCapture capture;
  EXPECT_FALSE(JustUtil::ReadLongFromRegistry(root, kKey, L"int", &number));
  EXPECT_EQ(JustUtil::ReadStringFromRegistry(root, kKey, L"int"), L"");
  EXPECT_TRUE(capture.Has("E:JustUtil::ReadLongFromRegistry: have wrong type."));
  EXPECT_TRUE(capture.Has("E:JustUtil::ReadStringFromRegistry: have wrong type."));

  EXPECT_TRUE(JustUtil::RemoveValue(kKey, L"int"));
  EXPECT_TRUE(JustUtil::IsValueNotExist(kKey, L"int"));
  EXPECT_FALSE(JustUtil::IsValueNotExist(kKey, L"long"));
  EXPECT_TRUE(JustUtil::WriteIntToRegistry(std::wstring(kKey) + L"\\a\\b", L"x", 1));
  EXPECT_TRUE(JustUtil::RemoveKey(root, kKey));
  EXPECT_TRUE(JustUtil::IsKeyNotExist(kKey));
  const LogCapture quiet;
  EXPECT_TRUE(JustUtil::IsValueNotExist(kKey, L"long"));
  LoadLogLevel();
  IsUacEnabled();
  EXPECT_EQ(quiet.Lines(), std::vector<std::string>()) << "what need not be there is no failure";
  EXPECT_FALSE(JustUtil::ReadIntFromRegistry(root, kKey, L"int", &small));
  EXPECT_TRUE(capture.Has(
      "E:ReadFromRegistry: Can't open key:  Software\\Krelix\\UnitTest Root:  HKEY_CURRENT_USER"));
}

TEST(MutexTest, NameTakenByAnEventCannotBeLocked) {
  const UniqueHandle event = JustUtil::CreateEventW(L"kupdate-unit-test-taken");
  const LogCapture capture;
  Mutex mutex(L"kupdate-unit-test-taken");
  EXPECT_FALSE(mutex.Lock());
  mutex.Unlock();
  EXPECT_EQ(capture.Lines(), (std::vector<std::string>{"E:Mutex::Mutex: Can't create.",
                                                       "E:Mutex::Lock: Handle == NULL!!!"}));
}

TEST(FilesHeldByOthers, AreReplacedWhenTheyAreLetGoAndElseWrittenInPlace) {
  const fs::path path = ProcessTempFolder() / "held.xml";
  WriteBytes(path, "old content");
  {
    const UniqueFile held(::CreateFileW(path.c_str(), GENERIC_READ,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                        0, nullptr));
    EXPECT_TRUE(FileSystem::WriteFile(path.string(), "new"));
    EXPECT_EQ(ReadBytes(path), "new");
  }
  {
    const UniqueFile held(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                        OPEN_EXISTING, 0, nullptr));
    const LogCapture capture;
    EXPECT_FALSE(FileSystem::WriteFile(path.string(), "newer"));
    EXPECT_EQ(ReadBytes(path), "new") << "a file that cannot be written keeps its content";
    EXPECT_TRUE(capture.Has("E:FileSystem::WriteFile: Can't open file:  " + path.string()));
  }
  EXPECT_FALSE(fs::exists(path.wstring() + L".new"));
}

// Each loads another one, which lies in a folder that is searched before the system's.
TEST(SystemLibrary, ComesFromTheSystemWithAllThatItLoads) {
  const fs::path planted = ProcessTempFolder() / "dnsapi.dll";
  wchar_t self[MAX_PATH] = {};
  wchar_t system[MAX_PATH] = {};
  wchar_t loaded[MAX_PATH] = {};
  ::GetModuleFileNameW(nullptr, self, MAX_PATH);
  ::GetSystemDirectoryW(system, MAX_PATH);
  fs::copy_file(self, planted);
  ::SetDllDirectoryW(ProcessTempFolder().c_str());
  ASSERT_EQ(::GetModuleHandleW(L"dnsapi.dll"), nullptr);
  const UniqueModule library = LoadSystemLibrary(L"netapi32.dll");
  ::SetDllDirectoryW(nullptr);
  ASSERT_TRUE(library);
  ::GetModuleFileNameW(::GetModuleHandleW(L"dnsapi.dll"), loaded, MAX_PATH);
  EXPECT_TRUE(fs::equivalent(fs::path(loaded).parent_path(), system)) << fs::path(loaded);
}

TEST(SystemLibrary, MissingFunctionsAreErrors) {
  const LogCapture capture;
  for (const wchar_t* dll : {L"kernel32.dll", L"kupdate-missing.dll"}) {
    SystemFunction<int (*)()> missing(dll, "KupdateMissing");
    EXPECT_EQ(missing.Find(), nullptr);
    EXPECT_THROW(missing(), std::runtime_error);
  }
  EXPECT_EQ(capture.Lines().size(), 4u);
}

TEST(StackGuard, EndsAFunctionThatWroteBehindItsArray) {
  constexpr int kFailFast = static_cast<int>(0xC0000602);
  EXPECT_EXIT(Overrun(64), testing::ExitedWithCode(kFailFast), "");
}

TEST(FilesHeldByOthers, AreReadWhenTheyAreLetGo) {
  const fs::path path = ProcessTempFolder() / "held.xml";
  WriteBytes(path, "content");
  for (const DWORD heldMilliseconds : {50, 400}) {
    const HANDLE held =
        ::CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    std::thread holder([&] {
      ::Sleep(heldMilliseconds);
      ::CloseHandle(held);
    });
    std::string content;
    const auto outcome = FileSystem::ReadFile(path.string(), &content);
    const bool isShort = heldMilliseconds == 50;
    EXPECT_EQ(outcome, isShort ? FileSystem::ReadOutcome::kRead : FileSystem::ReadOutcome::kFailed);
    EXPECT_EQ(content, isShort ? "content" : "");
    holder.join();
  }
}

TEST(FolderContent, OnlyOurFilesGoAndLinksAreLeftAlone) {
  const fs::path folder = ProcessTempFolder() / "content";
  const fs::path link = ProcessTempFolder() / "linked";
  fs::create_directories(folder / "sub.xml");
  for (const char* name : {"a.xml", "b.xml", "c.txt"}) WriteBytes(folder / name, name);
  LinkFolder(link, folder);
  const auto isOurs = [](std::string_view name) { return name.ends_with(".xml"); };
  const LogCapture capture;
  FileSystem::DeleteFilesIn(link.string() + "\\", isOurs);
  EXPECT_TRUE(fs::exists(folder / "a.xml"));
  EXPECT_TRUE(capture.Has(
      "E:FileSystem::DeleteFilesIn: Folder left alone, it is a link:  " + link.string() + "\\"));
  FileSystem::DeleteFilesIn(folder.string() + "\\", isOurs);
  FileSystem::DeleteFilesIn(folder.string() + "\\missing\\", isOurs);
  EXPECT_EQ(capture.Lines().size(), 1u);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 2);
  EXPECT_FALSE(FileSystem::RemoveEmptyFolder(folder.string() + "\\"));
  fs::remove(folder / "c.txt");
  fs::remove(folder / "sub.xml");
  EXPECT_FALSE(FileSystem::RemoveEmptyFolder(link.string() + "\\"));
  EXPECT_NE(::GetFileAttributesW(link.c_str()), INVALID_FILE_ATTRIBUTES);
  EXPECT_TRUE(FileSystem::RemoveEmptyFolder(folder.string() + "\\"));
}

TEST(Process, RunsInTheSystemFolderAndTellsItsEnd) {
  wchar_t system[MAX_PATH];
  ::GetSystemDirectoryW(system, MAX_PATH);
  const fs::path told = ProcessTempFolder() / "folder.txt";
  UniqueHandle process;
  ASSERT_EQ(TEnvironment::Execute(std::wstring(system) + L"\\cmd.exe",
                                  L"cmd /c cd > \"" + told.wstring() + L"\" & exit 7", &process),
            0u);
  const std::string run = RunIdOf(process);
  JustUtil::WaitFor(process, kWaitForever);
  EXPECT_EQ(ExitCodeOf(process), 7u);
  EXPECT_TRUE(EqualsIgnoreCase(WidenUtf8(LinesOf(ReadBytes(told)).at(0)), system));

  const UniqueHandle self(
      ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, ::GetCurrentProcessId()));
  EXPECT_FALSE(ExitCodeOf(self).has_value());
  EXPECT_EQ(RunIdOf(self), OwnRunId());
  EXPECT_NE(OwnRunId(), "");
  EXPECT_NE(run, OwnRunId());
  EXPECT_EQ(RunIdOf(UniqueHandle()), "");
}

TEST(Security, NobodyElseMayReplaceTheProgramOrAPartOfItsPath) {
  struct Judged {
    const wchar_t* descriptor;
    Part part;
  };
  constexpr Part kProgram = Part::kProgram;
  constexpr Part kFolder = Part::kItsFolder;
  constexpr Part kAbove = Part::kFolderAbove;
  const Table<Judged, bool> table = {
      {"installed for all", {L"O:SYD:(A;;FA;;;SY)(A;;FA;;;BA)(A;;0x1200a9;;;BU)", kProgram}, false},
      {"the installer's",
       {L"O:S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464D:(A;;FA;;;BA)", kFolder},
       false},
      {"a user owns it", {L"O:S-1-5-21-1-2-3-1000D:(A;;FA;;;BA)", kProgram}, true},
      {"another service owns it", {L"O:S-1-5-80-956008885-1-1-1-1D:(A;;FA;;;BA)", kAbove}, true},
      {"no owner", {L"D:(A;;FA;;;BA)", kProgram}, true},
      {"no list", {L"O:BA", kProgram}, true},
      {"an empty list", {L"O:BAD:", kProgram}, false},
      {"everybody writes", {L"O:BAD:(A;;FA;;;BA)(A;;GW;;;WD)", kProgram}, true},
      {"users write data", {L"O:BAD:(A;;0x2;;;BU)", kProgram}, true},
      {"users append", {L"O:BAD:(A;;0x4;;;BU)", kProgram}, true},
      {"users write attributes", {L"O:BAD:(A;;0x100;;;BU)", kProgram}, true},
      {"users change rights", {L"O:BAD:(A;;0x40000;;;BU)", kProgram}, true},
      {"users take it over", {L"O:BAD:(A;;0x80000;;;BU)", kAbove}, true},
      {"what denies is no help", {L"O:BAD:(D;;FA;;;BU)(A;;FA;;;BU)", kProgram}, true},
      {"denied only", {L"O:BAD:(D;;FA;;;BU)", kProgram}, false},
      {"for what is made below", {L"O:BAD:(A;OICIIO;GA;;;CO)(A;CIIO;FA;;;AU)", kFolder}, false},
      {"the owner's rights", {L"O:BAD:(A;;FA;;;S-1-3-4)", kFolder}, false},
      {"folders beside the program", {L"O:BAD:(A;;0x4;;;AU)", kFolder}, true},
      {"folders in the root", {L"O:BAD:(A;;0x4;;;AU)", kAbove}, false},
      {"files above", {L"O:BAD:(A;;0x2;;;AU)", kAbove}, false},
      {"a folder above is renamed", {L"O:BAD:(A;;SD;;;AU)", kAbove}, true},
      {"what is in a folder above goes", {L"O:BAD:(A;;0x40;;;AU)", kAbove}, true},
      {"all above", {L"O:BAD:(A;;GA;;;AU)", kAbove}, true},
  };
  table.Expect([](const Judged& judged) {
    const UniqueDescriptor descriptor = DescriptorOf(judged.descriptor);
    EXPECT_TRUE(static_cast<bool>(descriptor));
    return LetsOthersReplace(descriptor.get(), judged.part);
  });
  EXPECT_TRUE(LetsOthersReplace(nullptr, Part::kProgram));
}

TEST(Security, EveryPartOfAPathIsJudged) {
  const Table<const wchar_t*, std::string> table = {
      {"folders", L"C:\\a\\b\\c/x.exe", "0C:\\a\\b\\c\\x.exe 1C:\\a\\b\\c 2C:\\a\\b 2C:\\a 2C:\\ "},
      {"in the root", L"C:\\x.exe", "0C:\\x.exe 1C:\\ "},
      {"relative", L"a\\x.exe", ""},
      {"of the current folder", L"C:x.exe", ""},
      {"another machine's", L"\\\\m\\a\\x.exe", ""},
      {"a device's", L"\\\\?\\C:\\x.exe", ""},
      {"parent", L"C:\\a\\..\\x.exe", ""},
      {"stream", L"C:\\a\\x:y.exe", ""},
      {"folder", L"C:\\a\\", ""},
      {"root", L"C:\\", ""},
      {"empty", L"", ""},
  };
  table.Expect([](const wchar_t* program) {
    std::string told;
    for (const PathPart& part : PartsOf(program)) {
      told += DecimalText(static_cast<int>(part.part)) + NarrowUtf8(part.path) + " ";
    }
    return told;
  });
}

TEST(System, TextsAreReadable) {
  EXPECT_EQ(ErrorCodeText(0xE0001234), "unknown error 0xe0001234");
  EXPECT_NE(ErrorCodeText(5).find("enied"), std::string::npos);
}
