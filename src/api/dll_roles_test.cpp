// The test program's entry, and its other roles: a host of its own process, and an executor.
#include <gtest/gtest.h>

#include "util/win/windows_lean.h"

#include <regex>
#include <sstream>
#include <vector>

#include "appinfo/local_record.h"
#include "testing/data_home.h"
#include "testing/dll_client.h"
#include "util/process.h"
#include "util/text.h"

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

void Store(const std::string& appId, const char* file, const std::string& values) {
  WriteBytes(DataFolder() / appId / file, "<appinfo>" + values + "</appinfo>");
}

// An executor that was started to install does what the variable KUPDATE_TEST_EXECUTOR of its host
// says, word by word: "signal"; "wait" so many milliseconds; "answer" with a code in the local record;
// "store" a code where everybody can; "late": a process of its own stores 6 and signals; "exit".
int RunInstall(const std::string& appId, const std::string& commandLine) {
  std::istringstream script(NarrowUtf8(Setting(L"KUPDATE_TEST_EXECUTOR")));
  int number = 0;
  for (std::string word; script >> word;) {
    if (word == "signal") {
      SignalResult(appId);
    } else if (word == "late") {
      ::_wputenv_s(L"KUPDATE_TEST_EXECUTOR", L"wait 500 store 6 signal exit 0");
      ::CloseHandle(StartProgram(ThisProgram(), WidenUtf8(commandLine), nullptr));
    } else if (script >> number; word == "wait") {
      ::Sleep(static_cast<DWORD>(number));
    } else if (word == "answer") {
      WriteAnswer(appId, InstallAnswer{OwnRunId(), number});
    } else if (word == "exit") {
      ::TerminateProcess(::GetCurrentProcess(), static_cast<UINT>(number));
    } else {
      Store(appId, "updinfo.xml",
            "<DistroExitCode>" + std::to_string(number) + "</DistroExitCode>");
    }
  }
  return 0;
}

// After a download it first answers an older check, with "no", and then the one that it is for.
int RunCheck(const std::string& appId, const std::string& job) {
  for (const bool isOwn : {false, true}) {
    Store(appId, "appinfo.xml",
          std::string("<UpgradeAvailable>") + (isOwn ? "1" : "0") + "</UpgradeAvailable>");
    WriteAnswer(appId, CheckAnswer{isOwn ? job : "{older}", isOwn});
    SignalResult(appId);
    ::Sleep(300);
  }
  return 0;
}

int RunExecutor(const std::string& commandLine) {
  std::smatch match;
  const std::regex check(" --appid (.*?) --update-check .*--job (.*)");
  if (std::regex_search(commandLine, match, check)) return RunCheck(match[1], match[2]);
  const std::regex install(" --appid (.*?) --silent-update-check");
  if (std::regex_search(commandLine, match, install)) return RunInstall(match[1], commandLine);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string commandLine = NarrowUtf8(::GetCommandLineW());
  if (argc > 2 && std::string(argv[1]) == "--child") {
    for (const std::string& id : std::vector<std::string>(argv + 2, argv + argc)) {
      Dll().setLocale(id == "null" ? nullptr : id.c_str(),
                      DecimalText(::GetCurrentProcessId()).c_str());
    }
    return 0;
  }
  if (commandLine.find(" --appid ") != commandLine.npos) return RunExecutor(commandLine);
  testing::InitGoogleTest(&argc, argv);
  for (const fs::path& folder : {RoamingFolder(), LocalFolder(), DataFolder()}) {
    fs::remove_all(folder);
  }
  std::int32_t size = 0;
  Dll().getLocale("first", nullptr, &size);
  return RUN_ALL_TESTS();
}
