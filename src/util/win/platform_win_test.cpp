// What only Windows can show: the registry, names of kernel objects, files held by others, the system's DLLs.
#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "testing/data_home.h"
#include "testing/log_capture.h"
#include "util/event.h"
#include "util/files.h"
#include "util/mutex.h"
#include "util/registry.h"
#include "util/system.h"
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

TEST(System, TextsAreReadable) {
  EXPECT_EQ(ErrorCodeText(0xE0001234), "unknown error 0xe0001234");
  EXPECT_NE(ErrorCodeText(5).find("enied"), std::string::npos);
}
