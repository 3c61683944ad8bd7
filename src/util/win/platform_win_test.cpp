// Tests that only Windows can run: the registry, names of kernel objects, files held by others, the system's DLLs.
#include <stdexcept>
#include <thread>

#include "layout/log_start.h"
#include "testing/unit_test.h"
#include "util/files.h"
#include "util/folder_content.h"
#include "util/handle.h"
#include "util/process.h"
#include "util/registry.h"
#include "util/system.h"
#include "util/text.h"
#include "util/win/security.h"
#include "util/win/system_library.h"

namespace {

const fs::path kHeld = ProcessTempFolder() / "held.xml";

UniqueFile Hold(DWORD share) {
  return UniqueFile(
      ::CreateFileW(kHeld.c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING, 0, nullptr));
}

fs::path SystemFolder() {
  wchar_t path[MAX_PATH] = {};
  ::GetSystemDirectoryW(path, MAX_PATH);
  return path;
}

// Writes behind the end of an array. Nothing of it is known to the compiler, which would say so or leave it out.
[[gnu::noinline]] void Overrun(std::size_t length) {
  char room[16];
  volatile char* volatile at = room;
  for (std::size_t i = 0; i < length; ++i) at[i] = 'x';
}

}  // namespace

TEST(Registry, ReadsByTypeAndSaysWhatIsWrong) {
  using namespace JustUtil;
  const auto root = RegistryRoot::kCurrentUser;
  const std::wstring key = L"Software\\Krelix\\UnitTest";
  std::uint64_t number = 7;
  std::uint32_t small = 0;
  ::RegSetKeyValueW(HKEY_CURRENT_USER, key.c_str(), L"text", REG_SZ, L"ab!", 4);  // cut
  ::RegSetKeyValueW(HKEY_CURRENT_USER, key.c_str(), L"long", REG_QWORD, &number, 8);
  ::RegSetKeyValueW(HKEY_CURRENT_USER, key.c_str(), L"odd", REG_BINARY, &number, 3);
  EXPECT_TRUE(WriteIntToRegistry(key, L"int", 5) && WriteIntToRegistry(key + L"\\a\\b", L"x", 1));
  EXPECT_EQ(EnumValues(key).size(), 3u) << "all but the binary one";
  EXPECT_EQ(ReadStringFromRegistry(root, key, L"text").substr(0, 2), L"ab");
  EXPECT_TRUE(ReadIntFromRegistry(root, key, L"int", &small) && small == 5);
  EXPECT_TRUE(ReadLongFromRegistry(root, key, L"long", &number) && number == 7);
  const LogCapture capture;
  EXPECT_FALSE(ReadLongFromRegistry(root, key, L"int", &number));
  EXPECT_EQ(ReadStringFromRegistry(root, key, L"int"), L"");
  EXPECT_TRUE(capture.Has("have wrong type."));
  EXPECT_TRUE(RemoveValue(key, L"int") && IsValueNotExist(key, L"int"));
  EXPECT_FALSE(IsValueNotExist(key, L"long"));
  EXPECT_TRUE(RemoveKey(root, key));
  const LogCapture quiet;
  EXPECT_TRUE(IsKeyNotExist(key) && IsValueNotExist(key, L"long"));
  LoadLogLevel();
  IsUacEnabled();
  EXPECT_EQ(quiet.Lines().size(), 0u) << "what need not be there is no failure";
  EXPECT_FALSE(ReadIntFromRegistry(root, key, L"int", &small));
  EXPECT_TRUE(quiet.Has("Can't open key:  Software\\Krelix\\UnitTest Root:  HKEY_CURRENT_USER"));
}

TEST(FilesHeldByOthers, AreWrittenInPlaceOrKeepTheirContent) {
  const std::string name = kHeld.string();
  WriteBytes(kHeld, "old content");
  UniqueFile held = Hold(FILE_SHARE_READ | FILE_SHARE_WRITE);
  EXPECT_TRUE(FileSystem::WriteFile(name, "new"));
  held = Hold(FILE_SHARE_READ);
  const LogCapture capture;
  EXPECT_FALSE(FileSystem::WriteFile(name, "newer"));
  EXPECT_EQ(ReadBytes(kHeld), "new");
  EXPECT_TRUE(capture.Has("Can't open file:  " + name));
  EXPECT_FALSE(fs::exists(name + ".new"));
}

TEST(FilesHeldByOthers, AreReadWhenTheyAreReleased) {
  WriteBytes(kHeld, "content");
  for (const DWORD milliseconds : {50, 400}) {
    std::jthread holder([&, held = Hold(0)] { ::Sleep(milliseconds); });
    EXPECT_EQ(FileSystem::ReadFile(kHeld.string()), milliseconds == 50 ? "content" : "");
  }
}

// It loads another one, which lies in a folder that is searched before the system's.
TEST(SystemLibrary, ComesFromTheSystemWithAllThatItLoads) {
  fs::copy_file(ModulePath(), ProcessTempFolder() / "dnsapi.dll");
  ::SetDllDirectoryW(ProcessTempFolder().c_str());
  ASSERT_EQ(::GetModuleHandleW(L"dnsapi.dll"), nullptr);
  const UniqueModule library = LoadSystemLibrary(L"netapi32.dll");
  ::SetDllDirectoryW(nullptr);
  ASSERT_TRUE(library);
  wchar_t loaded[MAX_PATH] = {};
  ::GetModuleFileNameW(::GetModuleHandleW(L"dnsapi.dll"), loaded, MAX_PATH);
  EXPECT_TRUE(fs::equivalent(fs::path(loaded).parent_path(), SystemFolder())) << fs::path(loaded);
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

TEST(FolderContent, OnlyOurFilesGoAndLinksAreLeftAlone) {
  const fs::path folder = ProcessTempFolder() / "content", link = ProcessTempFolder() / "linked";
  const std::string path = folder.string() + "\\", linked = link.string() + "\\";
  fs::create_directories(folder / "sub.xml");
  for (const char* name : {"a.xml", "b.xml", "c.txt"}) WriteBytes(folder / name, name);
  LinkFolder(link, folder);
  const LogCapture capture;
  for (const std::string& each : {linked, path, path + "missing\\"}) {
    FileSystem::DeleteFilesIn(each, [](std::string_view name) { return name.ends_with(".xml"); });
    EXPECT_EQ(fs::exists(folder / "a.xml"), each == linked);
    EXPECT_TRUE(capture.Has("Folder left alone, it is a link:  " + linked));
    EXPECT_EQ(capture.Lines().size(), 1u);
  }
  EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 2);
  EXPECT_FALSE(FileSystem::RemoveEmptyFolder(path));
  fs::remove(folder / "c.txt");
  fs::remove(folder / "sub.xml");
  EXPECT_FALSE(FileSystem::RemoveEmptyFolder(linked));
  EXPECT_NE(::GetFileAttributesW(link.c_str()), INVALID_FILE_ATTRIBUTES);
  EXPECT_TRUE(FileSystem::RemoveEmptyFolder(path));
}

TEST(Process, RunsInTheSystemFolderAndReportsItsEnd) {
  const fs::path output = ProcessTempFolder() / "folder.txt";
  const std::wstring line = L"cmd /c cd > \"" + output.wstring() + L"\" & exit 7";
  UniqueHandle process;
  ASSERT_EQ(TEnvironment::Execute(SystemFolder() / "cmd.exe", line, &process), 0u);
  EXPECT_NE(RunIdOf(process), OwnRunId());
  JustUtil::WaitFor(process, kWaitForever);
  EXPECT_EQ(ExitCodeOf(process), 7u);
  EXPECT_TRUE(fs::equivalent(LinesOf(ReadBytes(output)).at(0), SystemFolder()));
}

TEST(Security, OnlyAdministratorsMayReplaceTheProgramOrAPartOfItsPath) {
  constexpr Part kProgram = Part::kProgram, kFolder = Part::kItsFolder, kAbove = Part::kFolderAbove;
  const auto expect = [](bool lets, Part part, std::initializer_list<const wchar_t*> descriptors) {
    for (const wchar_t* const text : descriptors) {
      const UniqueDescriptor descriptor = DescriptorOf(text);
      EXPECT_TRUE(static_cast<bool>(descriptor)) << NarrowUtf8(text);
      EXPECT_EQ(LetsOthersReplace(descriptor.get(), part), lets) << NarrowUtf8(text);
    }
  };
  // Writing, appending, attributes, the list, the owner; no list, and a user who is the owner.
  expect(true, kProgram,
         {L"O:BAD:(A;;FA;;;BA)(A;;GW;;;WD)", L"O:BAD:(A;;0x2;;;BU)", L"O:BAD:(A;;0x4;;;BU)",
          L"O:BAD:(A;;0x100;;;BU)", L"O:BAD:(A;;0x40000;;;BU)", L"O:BA",
          L"O:S-1-5-21-1-2-3-1000D:(A;;FA;;;BA)"});
  // A denial takes no right away that another entry gives.
  expect(true, kProgram, {L"O:BAD:(D;;FA;;;BU)(A;;FA;;;BU)"});
  expect(false, kProgram,
         {L"O:BAD:", L"O:BAD:(D;;FA;;;BU)", L"O:SYD:(A;;FA;;;BA)",
          L"O:BAD:(A;;FA;;;SY)(A;;FA;;;BA)(A;;0x1200a9;;;BU)"});
  // Entries that are inherited only, those for the owner, and the service that installs Windows.
  expect(false, kFolder,
         {L"O:BAD:(A;OICIIO;GA;;;CO)(A;CIIO;FA;;;AU)", L"O:BAD:(A;;FA;;;S-1-3-4)",
          L"O:S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464D:(A;;FA;;;BA)"});
  // Folders and files may be made above the program's folder, but not be moved or deleted.
  expect(true, kFolder, {L"O:BAD:(A;;0x4;;;AU)"});
  expect(false, kAbove, {L"O:BAD:(A;;0x4;;;AU)", L"O:BAD:(A;;0x2;;;AU)"});
  expect(true, kAbove,
         {L"O:BAD:(A;;SD;;;AU)", L"O:BAD:(A;;0x40;;;AU)", L"O:BAD:(A;;GA;;;AU)",
          L"O:BAD:(A;;0x80000;;;BU)", L"O:S-1-5-80-956008885-1-1-1-1D:(A;;FA;;;BA)"});
  EXPECT_TRUE(LetsOthersReplace(nullptr, kProgram));
}

TEST(Security, EveryPartOfAPathIsJudged) {
  const auto parts = [](const wchar_t* program) {
    std::wstring text;
    for (const auto& [path, part] : PartsOf(program)) {
      text += std::to_wstring(static_cast<int>(part)) + path + L" ";
    }
    return text;
  };
  EXPECT_EQ(parts(L"C:\\a\\b\\c/x.exe"),
            L"0C:\\a\\b\\c\\x.exe 1C:\\a\\b\\c 2C:\\a\\b 2C:\\a 2C:\\ ");
  EXPECT_EQ(parts(L"C:\\x.exe"), L"0C:\\x.exe 1C:\\ ");
  ExpectAll(std::wstring(),
            {L"a\\x.exe", L"C:x.exe", L"\\\\m\\a\\x.exe", L"\\\\?\\C:\\x.exe", L"C:\\a\\..\\x.exe",
             L"C:\\a\\x:y.exe", L"C:\\a\\", L"C:\\", L""},
            parts);
}

TEST(System, TextsAreReadable) {
  EXPECT_EQ(ErrorCodeText(0xE0001234), "unknown error 0xe0001234");
  EXPECT_NE(ErrorCodeText(5).find("enied"), std::string::npos);
}
