// What only Windows can show: the registry, mutexes between processes, files held by others.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <thread>

#include "testing/data_home.h"
#include "testing/log_capture.h"
#include "util/event.h"
#include "util/files.h"
#include "util/folders.h"
#include "util/mutex.h"
#include "util/process.h"
#include "util/registry.h"
#include "util/system.h"
#include "util/text.h"
#include "util/win/unique.h"

namespace {

namespace fs = std::filesystem;

constexpr wchar_t kKey[] = L"Software\\Krelix\\UnitTest";

void SetValue(const wchar_t* name, DWORD type, const void* data, DWORD size) {
  UniqueKey key;
  ASSERT_EQ(::RegCreateKeyExW(HKEY_CURRENT_USER, kKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                              key.put(), nullptr),
            ERROR_SUCCESS);
  ::RegSetValueExW(key.get(), name, 0, type, static_cast<const BYTE*>(data), size);
}

class Registry : public testing::Test {
 protected:
  void SetUp() override {
    const std::uint64_t number = 7;
    SetValue(L"text", REG_SZ, L"abc", 8);
    SetValue(L"cut", REG_SZ, L"ab!", 4);
    SetValue(L"int", REG_DWORD, &number, 4);
    SetValue(L"long", REG_QWORD, &number, 8);
    SetValue(L"odd", REG_BINARY, &number, 3);
  }
  void TearDown() override { JustUtil::RemoveKey(RegistryRoot::kCurrentUser, kKey); }
};

}  // namespace

TEST_F(Registry, ReadsByTypeAndSaysWhatIsWrong) {
  const auto root = RegistryRoot::kCurrentUser;
  std::uint32_t number = 0;
  std::uint64_t longNumber = 0;
  EXPECT_EQ(JustUtil::ReadStringFromRegistry(root, kKey, L"text"), L"abc");
  EXPECT_TRUE(JustUtil::ReadIntFromRegistry(root, kKey, L"int", &number) && number == 7);
  EXPECT_TRUE(JustUtil::ReadLongFromRegistry(root, kKey, L"long", &longNumber) && longNumber == 7);
  const LogCapture capture;
  EXPECT_EQ(JustUtil::ReadStringFromRegistry(root, kKey, L"cut").substr(0, 2), L"ab");
  EXPECT_FALSE(JustUtil::ReadLongFromRegistry(root, kKey, L"int", &longNumber));
  EXPECT_EQ(JustUtil::ReadStringFromRegistry(root, kKey, L"int"), L"");
  EXPECT_FALSE(JustUtil::ReadIntFromRegistry(root, kKey, L"none", &number));
  EXPECT_FALSE(JustUtil::ReadIntFromRegistry(root, L"Software\\Krelix\\None", L"x", &number));
  const std::string key = NarrowUtf8(kKey);
  for (const std::string& line :
       {std::string("E:JustUtil::ReadLongFromRegistry: have wrong type."),
        std::string("E:JustUtil::ReadStringFromRegistry: have wrong type."),
        std::string("E:ReadFromRegistry: Size == 0."),
        std::string("E:ReadFromRegistry: Can't open key:  Software\\Krelix\\None Root:  "
                    "HKEY_CURRENT_USER")}) {
    EXPECT_TRUE(capture.Has(line)) << line;
  }
}

TEST_F(Registry, EnumeratesRemovesAndTellsWhatIsMissing) {
  EXPECT_EQ(JustUtil::EnumValues(kKey).size(), 4u) << "all but the binary one";
  EXPECT_FALSE(JustUtil::IsValueNotExist(kKey, L"int"));
  EXPECT_TRUE(JustUtil::WriteIntToRegistry(std::wstring(kKey) + L"\\a\\b", L"x", 1));
  EXPECT_TRUE(JustUtil::RemoveValue(kKey, L"int"));
  EXPECT_TRUE(JustUtil::IsValueNotExist(kKey, L"int"));
  EXPECT_FALSE(JustUtil::IsKeyNotExist(kKey));
  EXPECT_TRUE(JustUtil::RemoveKey(RegistryRoot::kCurrentUser, kKey));
  EXPECT_TRUE(JustUtil::IsKeyNotExist(kKey));
  EXPECT_TRUE(JustUtil::IsValueNotExist(kKey, L"int"));
}

TEST(MutexTest, ExcludesOthersUntilItIsDestroyed) {
  const UniqueHandle raw(::CreateMutexW(nullptr, FALSE, L"kupdate-unit-test-mutex"));
  const auto tryFromAnotherThread = [&] {
    std::uint32_t result = kWaitFailed;
    std::thread([&] { result = JustUtil::WaitFor(raw, 0); }).join();
    return result;
  };
  {
    Mutex mutex(L"kupdate-unit-test-mutex");
    ASSERT_TRUE(mutex.Lock());
    EXPECT_EQ(tryFromAnotherThread(), kWaitTimeout);
  }
  EXPECT_EQ(tryFromAnotherThread(), kWaitSignalled);
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

TEST(MutexTest, AbandonedByAThreadThatEndedIsTaken) {
  const HANDLE raw = ::CreateMutexW(nullptr, FALSE, L"kupdate-unit-test-abandoned");
  std::thread([&] { ::WaitForSingleObject(raw, INFINITE); }).join();
  Mutex mutex(L"kupdate-unit-test-abandoned");
  EXPECT_TRUE(mutex.Lock());
  ::CloseHandle(raw);
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

TEST(Process, ExecuteReportsTheSystemsError) {
  UniqueHandle process;
  EXPECT_EQ(TEnvironment::Execute(L"C:\\none\\none.exe", L"none", &process), 3u);
  EXPECT_FALSE(process);
  EXPECT_EQ(TEnvironment::Execute(L"C:\\windows\\system32\\cmd.exe", L"cmd /c exit 5", &process),
            0u);
  EXPECT_EQ(JustUtil::WaitFor(process, kWaitForever), kWaitSignalled);
  EXPECT_EQ(HostProgramName(), L"unit_tests.exe");
}

TEST(System, TextsAreReadable) {
  EXPECT_EQ(OsDisplayName().find("Microsoft Windows "), 0u);
  EXPECT_EQ(ErrorCodeText(0xE0001234), "unknown error 0xe0001234");
  EXPECT_NE(ErrorCodeText(5).find("enied"), std::string::npos);
  EXPECT_EQ(FileVersionText(L"C:\\none.dll"), "");
}
