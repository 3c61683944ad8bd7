// The test program's entry, and its other roles: a host of its own process, and an executor.
#include <gtest/gtest.h>

#include <sstream>

#include "appinfo/local_record.h"
#include "layout/command_line.h"
#include "testing/dll_client.h"
#include "util/clock.h"
#include "util/handle.h"
#include "util/process.h"
#include "util/text.h"
#include "util/win/windows_lean.h"

using namespace testing_dll;

namespace {

// An executor that was started to install does what the variable KUPDATE_TEST_EXECUTOR of its host
// says, word by word: "signal"; "wait" so many milliseconds; "answer" with a code in the local
// record; "store" a code where everybody can; "exit".
void RunInstall(const std::string& appId) {
  std::istringstream script(NarrowUtf8(Setting(L"KUPDATE_TEST_EXECUTOR")));
  for (std::string word; script >> word;) {
    int number = 0;
    if (word == "signal") {
      JustUtil::Signal(
          JustUtil::CreateEventW(L"{611172A1-0EBC-49e8-A150-3052CE9F113A}-32-" + WidenUtf8(appId)));
    } else if (script >> number; word == "wait") {
      SleepMilliseconds(static_cast<unsigned>(number));
    } else if (word == "answer") {
      WriteAnswer(appId, InstallAnswer{OwnRunId(), number});
    } else if (word == "store") {
      WriteBytes(App{appId}.File("updinfo.xml"),
                 "<appinfo><DistroExitCode>" + DecimalText(number) + "</DistroExitCode></appinfo>");
    } else {
      ::TerminateProcess(::GetCurrentProcess(), static_cast<UINT>(number));
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2 && std::string(argv[1]) == "--child") {
    const std::string process = DecimalText(::GetCurrentProcessId());
    for (const std::string& id : std::vector<std::string>(argv + 2, argv + argc)) {
      Dll().setLocale(id == "null" ? nullptr : id.c_str(), process.c_str());
    }
    return 0;
  }
  const ExecutorCommand command = ParseExecutorCommand(::GetCommandLineW(), ModulePath());
  if (command.kind == CommandKind::kSilentUpdate) RunInstall(command.appId);
  if (command.hasAppId) return 0;
  testing::InitGoogleTest(&argc, argv);
  for (const auto& folder : {RoamingFolder(), LocalFolder(), DataFolder()}) {
    std::filesystem::remove_all(folder);
  }
  std::int32_t size = 0;
  Dll().getLocale("first", nullptr, &size);
  return RUN_ALL_TESTS();
}
