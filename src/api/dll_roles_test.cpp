// The test program's entry, and its other roles: a host of its own process, and an executor.
#include <gtest/gtest.h>

#include "util/win/windows_lean.h"

#include <regex>

#include "testing/data_home.h"
#include "testing/dll_client.h"
#include "util/text.h"

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

void SignalResult(const std::string& appId) {
  const std::wstring name = L"{611172A1-0EBC-49e8-A150-3052CE9F113A}-32-" + WidenUtf8(appId);
  const HANDLE event = ::CreateEventW(nullptr, FALSE, FALSE, name.c_str());
  ::SetEvent(event);
  ::CloseHandle(event);
}

// An executor. After a download it says that an update is there. A silent install it answers as the
// variable KUPDATE_TEST_EXECUTOR of its host says: not at all, or with that exit code.
int RunExecutor(const std::string& commandLine) {
  std::smatch match;
  const std::regex known(" --appid (.*?) --(silent-)?update-check");
  if (!std::regex_search(commandLine, match, known)) return 0;
  const std::string appId = match[1];
  const std::string answer = NarrowUtf8(Setting(L"KUPDATE_TEST_EXECUTOR"));
  const bool install = match[2].matched;
  if (install && answer == "die") return 1;
  if (install) {
    SignalResult(appId);  // as a check does that ends meanwhile
    ::Sleep(200);
  }
  WriteBytes(DataFolder() / appId / (install ? "updinfo.xml" : "appinfo.xml"),
             install ? "<appinfo><DistroExitCode>" + answer + "</DistroExitCode></appinfo>"
                     : "<appinfo><UpgradeAvailable>1</UpgradeAvailable></appinfo>");
  SignalResult(appId);
  return 0;
}

// A host that sets the locale of these applications.
int RunHost(const std::vector<std::string>& appIds) {
  for (const std::string& id : appIds) Dll().setLocale(id == "null" ? nullptr : id.c_str(), "x");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string commandLine = NarrowUtf8(::GetCommandLineW());
  if (argc > 2 && std::string(argv[1]) == "--child") return RunHost({argv + 2, argv + argc});
  if (commandLine.find(" --appid ") != commandLine.npos) return RunExecutor(commandLine);
  testing::InitGoogleTest(&argc, argv);
  for (const fs::path& folder : {RoamingFolder(), LocalFolder(), DataFolder()}) {
    fs::remove_all(folder);
  }
  std::int32_t size = 0;
  Dll().getLocale("first", nullptr, &size);
  return RUN_ALL_TESTS();
}
