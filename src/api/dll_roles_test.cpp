// The test program's entry, and its other roles: a host of its own process, and an executor.
#include <gtest/gtest.h>

#include "util/win/windows_lean.h"

#include <cstdlib>
#include <regex>
#include <string>
#include <thread>

#include "testing/data_home.h"
#include "testing/dll_client.h"
#include "util/text.h"

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

constexpr char kFoundFeed[] =
    "<rss><channel><item><version:version>2.0.0.0</version:version>"
    "<version:status>release</version:status><guid>http://127.0.0.1/x</guid></item></channel></"
    "rss>";

void PutValue(const fs::path& file, const std::string& key, const std::string& value) {
  std::string text = ReadBytes(file);
  text = std::regex_replace(text, std::regex(" *<" + key + ">[^<]*</" + key + ">\\r?\\n"), "");
  const std::size_t end = text.rfind("</appinfo>");
  if (end == text.npos) return;
  WriteBytes(file, text.insert(end, "  <" + key + ">" + value + "</" + key + ">\r\n"));
}

void SignalResult(const std::string& appId) {
  const std::wstring name = L"{611172A1-0EBC-49e8-A150-3052CE9F113A}-32-" + WidenUtf8(appId);
  const HANDLE event = ::CreateEventW(nullptr, FALSE, FALSE, name.c_str());
  ::SetEvent(event);
  ::CloseHandle(event);
}

// An executor that does what the variable KUPDATE_TEST_EXECUTOR of its host says: dies, or answers
// a silent install with that exit code. After a download it says that an update is there.
int RunExecutor(const std::string& commandLine) {
  std::smatch match;
  std::regex_search(commandLine, match, std::regex(" --appid (.*?) --"));
  const std::string appId = match[1];
  if (commandLine.find("--silent-update-check") != commandLine.npos) {
    std::string answer = NarrowUtf8(Setting(L"KUPDATE_TEST_EXECUTOR"));
    if (answer == "die") return 1;
    if (answer.starts_with("early ")) {
      SignalResult(appId);  // as a check does that ends meanwhile
      ::Sleep(200);
      answer.erase(0, 6);
    }
    PutValue(DataFolder() / appId / "updinfo.xml", "DistroExitCode", answer);
  } else {
    PutValue(DataFolder() / appId / "appinfo.xml", "UpgradeAvailable", "1");
  }
  SignalResult(appId);
  return 0;
}

// Finds an update, then starts an executor that dies: the call must end on its own, and fail.
int HostOfDyingExecutor() {
  ::_wputenv(L"KUPDATE_TEST_EXECUTOR=die");
  wchar_t program[MAX_PATH + 1] = {};
  ::GetModuleFileNameW(nullptr, program, MAX_PATH);
  Dll().setExecutorPath(program);
  const std::string url = Publish("dying.rss", kFoundFeed);
  std::int32_t status = 0;
  const auto step = [&](const char* operation) {
    return Dll().isUpdateAvailable("dying", "win64", 1, 0, 0, 0, true, url.c_str(), operation,
                                   &status);
  };
  if (step("start") != KUPDATE_S_OK) return 10;
  if (!Eventually([&] { return step("check") != KUPDATE_S_OK || status != KUPDATE_IN_WORK; }))
    return 11;
  const HANDLE ready = ::CreateEventW(nullptr, TRUE, FALSE, L"kupdate-test-dying-ready");
  ::SetEvent(ready);
  if (status != KUPDATE_FOUND) return 12;
  std::int32_t exitCode = 77;
  const bool failed = Dll().downloadAndInstallSilentUpdate(&exitCode) == KUPDATE_E_FAIL;
  return failed && exitCode == 77 ? 0 : 13;
}

// Writes one application's record again and again.
int Hammer(const std::string& value) {
  for (int i = 0; i < 50; ++i) {
    const std::string locale = value + std::to_string(i);
    if (Dll().setLocale("shared", locale.c_str()) != KUPDATE_S_OK) return 1;
    if (Dll().onApplicationStartup("shared", "win64", "", "", 0, 1, 2, 3, i, true) != KUPDATE_S_OK)
      return 2;
  }
  return 0;
}

// Adds parameters to one application's statistics.
int Report(const std::string& name) {
  for (int i = 0; i < 20; ++i) {
    const std::string param = "p" + name + "=" + std::to_string(i);
    if (Dll().setOptionalParam("crowd", param.c_str()) != KUPDATE_S_OK) return 1;
    if (Dll().setApplicationState("crowd", "dayuse") != KUPDATE_S_OK) return 2;
  }
  return 0;
}

// Dies while it holds an application's mutex, and its record's.
int DieWithLocks() {
  for (const wchar_t* name : {L"STATISTIC{2B8F4B48-C2C5-4985-B7EB-B8818DDBBEC4}-abandoned",
                              L"APPINFO{65438470-A93E-4c32-83C0-33BFC5DDD428}-abandoned"}) {
    ::WaitForSingleObject(::CreateMutexW(nullptr, FALSE, name), INFINITE);
  }
  ::TerminateProcess(::GetCurrentProcess(), 0);
  return 1;
}

int RunChild(const std::string& role, const std::string& argument) {
  if (role == "dying-executor") return HostOfDyingExecutor();
  if (role == "hammer") return Hammer(argument);
  if (role == "report") return Report(argument);
  if (role == "die-with-locks") return DieWithLocks();
  if (role == "null-first") {
    return Dll().setLocale(nullptr, "x") == KUPDATE_E_FAIL &&
                   Dll().setLocale("later", "x") == KUPDATE_S_OK
               ? 0
               : 1;
  }
  if (role == "touch") return Dll().setLocale(argument.c_str(), "x");
  return 99;
}

void* dyingHost = nullptr;

// Its 30 seconds pass while the other tests run.
void StartDyingHost() {
  const HANDLE ready = ::CreateEventW(nullptr, TRUE, FALSE, L"kupdate-test-dying-ready");
  dyingHost = StartChild(L"dying-executor");
  const HANDLE either[] = {ready, dyingHost};
  ::WaitForMultipleObjects(2, either, FALSE, INFINITE);
  ::CloseHandle(ready);
}

}  // namespace

TEST(SilentInstall, AnExecutorThatDiesDoesNotHangItsHost) { EXPECT_EQ(EndOf(dyingHost), 0u); }

int main(int argc, char** argv) {
  const std::string commandLine = NarrowUtf8(::GetCommandLineW());
  if (argc > 2 && std::string(argv[1]) == "--child")
    return RunChild(argv[2], argc > 3 ? argv[3] : "");
  if (commandLine.find(" --appid ") != commandLine.npos) return RunExecutor(commandLine);
  testing::InitGoogleTest(&argc, argv);
  std::error_code ignored;
  for (const fs::path& folder : {RoamingFolder(), LocalFolder(), DataFolder()}) {
    fs::remove_all(folder, ignored);
  }
  std::int32_t size = 0;
  Dll().getLocale("first", nullptr, &size);
  StartDyingHost();
  return RUN_ALL_TESTS();
}
