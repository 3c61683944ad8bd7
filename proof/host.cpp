// proof_host APP DIARY SECONDS: a host program. Makes the calls that its standard input lists, one
// a line, for one application, and keeps a diary of them. With SECONDS it reads the whole list and
// makes its calls again and again for so long.
//
// A line of the input is a call's name and its arguments; those with blanks are quoted. "#" in an
// argument becomes a word that no other call has.
//
// Each call is a line of the diary before and after it, "SIGN MILLISECONDS ANSWER NAME ARGUMENT".
// The sign says that the call begins (?), has succeeded (!) or failed (x). ARGUMENT is the first
// one. A line is in the file before the host goes on, however it ends.
#include "util/win/windows_lean.h"

#include <psapi.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iomanip>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "layout/names.h"
#include "stat/stat_ctrl.h"
#include "testing/dll_client.h"
#include "transfer/transfer.h"
#include "util/mutex.h"
#include "util/process.h"
#include "util/text.h"

namespace {

using testing_dll::Dll;

class Host {
 public:
  Host(const char* app, const std::filesystem::path& diary)
      : app_(app),
        name_(diary.stem().string()),
        diary_(diary, std::ios::binary),
        stateTurn_(L"proof-state-" + WidenUtf8(app)) {}

  void Make(const std::string& line) {
    std::istringstream input(line);
    std::string name;
    input >> name;
    arguments_.clear();
    for (std::string word; input >> std::quoted(word);) arguments_.push_back(Unique(word));
    const bool isState = name == "DLLSetApplicationState";
    const LockScope turn(isState ? &stateTurn_ : nullptr);
    if (isState) arguments_ = {NextState()};
    answer_ = "-";
    const auto write = [&](char sign, ULONGLONG milliseconds) {
      diary_ << sign << ' ' << milliseconds << ' ' << answer_ << ' ' << name << ' '
             << (arguments_.empty() ? "-" : arguments_[0]) << '\n'
             << std::flush;
    };
    write('?', 0);
    const ULONGLONG start = ::GetTickCount64();
    const bool succeeded = calls_.at(name)() == KUPDATE_S_OK;
    write(succeeded ? '!' : 'x', ::GetTickCount64() - start);
  }

 private:
  std::string Unique(std::string word) {
    const std::size_t place = word.find('#');
    if (place == word.npos) return word;
    return word.replace(place, 1, name_ + "." + std::to_string(++count_));
  }

  // The state after one like it says nothing new and is not counted: hosts alternate.
  std::string NextState() const {
    return testing_dll::TextFrom(Dll().getApplicationState, app_) == "install" ? "uninstall"
                                                                               : "install";
  }

  const char* Text(std::size_t i) const { return arguments_.at(i).c_str(); }
  std::int32_t Number(std::size_t i) const { return std::stoi(arguments_.at(i)); }

  std::int32_t Wait() {
    bool found = false;
    const std::int32_t result = Dll().isUpgradeAvailable(app_, Number(0), &found);
    answer_ = found ? "found" : "none";
    return result;
  }

  // One step of a check, "start", "check" or "stop"; answers with the status.
  std::int32_t Check(const char* step) {
    std::int32_t status = KUPDATE_IN_WORK;
    const std::int32_t result =
        Dll().isUpdateAvailable(app_, "win64", 1, 0, 0, 0, true, Text(0), step, &status);
    answer_ = std::to_string(status);
    return result;
  }

  // A check from its start to its end, which asks so many times at most.
  std::int32_t WholeCheck(int most) {
    const std::string inWork = std::to_string(KUPDATE_IN_WORK);
    std::int32_t result = Check("start");
    for (int i = 0; i < most && result == KUPDATE_S_OK && answer_ == inWork; ++i) {
      ::Sleep(5);
      result = Check("check");
    }
    return result == KUPDATE_S_OK && answer_ == inWork ? Check("stop") : result;
  }

  std::int32_t SetUniqueParam() {
    const std::string& item = arguments_.at(0);  // NAME=1
    return Dll().setUniqueParam(app_, item.substr(0, item.find('=')).c_str(), L"1");
  }

  std::int32_t AddAction() {
    Mutex mutex(StatisticsMutexName(app_));
    TStatCtrl(app_, &mutex).AddAction(Text(0));
    return KUPDATE_S_OK;
  }

  static std::int32_t AskService() try {
    ListOwnJobs();
    return KUPDATE_S_OK;
  } catch (const std::exception&) {
    return KUPDATE_E_FAIL;
  }

  // A word that is no state makes the library throw inside.
  static std::int32_t LoadCallFree() {
    const HMODULE module = ::LoadLibraryW(testing_dll::Setting(L"KUPDATE_DLL").c_str());
    const auto setState = reinterpret_cast<decltype(&DLLSetApplicationState)>(
        reinterpret_cast<void*>(::GetProcAddress(module, "DLLSetApplicationState")));
    const std::int32_t result = setState ? setState("loaded", "no state") : KUPDATE_E_FAIL;
    return ::FreeLibrary(module) ? result : KUPDATE_E_FAIL;
  }

  // Answers with the handles and KiB that the process uses, and how many thread-local indexes are
  // free.
  std::int32_t Measure() {
    // The lowest free one: Wine does not count them.
    const HANDLE handle = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
    ::CloseHandle(handle);
    PROCESS_MEMORY_COUNTERS memory = {};
    ::GetProcessMemoryInfo(::GetCurrentProcess(), &memory, sizeof memory);
    std::vector<DWORD> indexes;
    while (indexes.empty() || indexes.back() != TLS_OUT_OF_INDEXES) indexes.push_back(::TlsAlloc());
    indexes.pop_back();
    for (const DWORD index : indexes) ::TlsFree(index);
    answer_ = std::to_string(reinterpret_cast<std::uintptr_t>(handle) / 4) + ',' +
              std::to_string(memory.PagefileUsage / 1024) + ',' + std::to_string(indexes.size());
    return KUPDATE_S_OK;
  }

  const char* const app_;
  const std::string name_;
  std::ofstream diary_;
  Mutex stateTurn_;
  std::vector<std::string> arguments_;
  std::string answer_;
  int count_ = 0;
  std::int32_t number_ = 0;  // that a call delivers and no line shows
  // Those behind the exports only the library and this program have.
  const std::map<std::string, std::function<std::int32_t()>> calls_ = {
      {"DLLForceUpdateCheck",
       [&] { return Dll().forceUpdateCheck(app_, /*needDialog=*/!arguments_.empty()); }},
      {"DLLGetApplicationState",
       [&] { return Dll().getApplicationState(app_, nullptr, &number_); }},
      {"DLLGetOptionalParam", [&] { return Dll().getOptionalParam(app_, nullptr, &number_); }},
      {"DLLIsUpgradeAvailable", [&] { return Wait(); }},
      {"DLLOnApplicationStartup",
       [&] {
         return Dll().onApplicationStartup(app_, "win64", Text(0), Text(1), Number(2), 1, 0, 0, 0,
                                           true);
       }},
      {"DLLOnApplicationUninstall", [&] { return Dll().onApplicationUninstall(app_); }},
      {"DLLSetApplicationState", [&] { return Dll().setApplicationState(app_, Text(0)); }},
      {"DLLSetExecutorPath",
       [&] { return Dll().setExecutorPath(WidenUtf8(arguments_.at(0)).c_str()); }},
      {"DLLSetOptionalParam", [&] { return Dll().setOptionalParam(app_, Text(0)); }},
      {"DLLUsageReport", [&] { return Dll().usageReport(app_, Text(0)); }},
      {"DLLDownloadAndInstallSilentUpdate",
       [&] { return Dll().downloadAndInstallSilentUpdate(&number_); }},
      {"DLLGetLocale", [&] { return Dll().getLocale(app_, nullptr, &number_); }},
      {"DLLGetUniqUserId",
       [&] { return Dll().getUniqUserId()[0] == '{' ? KUPDATE_S_OK : KUPDATE_E_FAIL; }},
      {"DLLGetUniqueParam", [&] { return Dll().getUniqueParam(app_, "u", nullptr, &number_); }},
      {"DLLIsUpdateAvailable",
       [&] { return arguments_.at(1) == "all" ? WholeCheck(Number(2)) : Check(Text(1)); }},
      {"DLLSetLocale", [&] { return Dll().setLocale(app_, Text(0)); }},
      {"DLLSetUniqueParam", [&] { return SetUniqueParam(); }},
      {"AddAction", [&] { return AddAction(); }},
      {"AskService", [&] { return AskService(); }},
      {"LoadCallFree", [&] { return LoadCallFree(); }},
      {"Measure", [&] { return Measure(); }},
  };
};

}  // namespace

int main(int count, char** arguments) {
  // As the executor that crashes.
  if (HostProgramName() == L"kupdate-exec.exe") {
    ::RaiseException(EXCEPTION_ACCESS_VIOLATION, EXCEPTION_NONCONTINUABLE, 0, nullptr);
  }
  if (count != 4) return 2;
  const ULONGLONG milliseconds = 1000 * std::stoull(arguments[3]);
  const ULONGLONG end = ::GetTickCount64() + milliseconds;
  Host host(arguments[1], arguments[2]);
  std::vector<std::string> lines;
  for (std::string line; std::getline(std::cin, line);) {
    if (milliseconds == 0) host.Make(line);
    lines.push_back(line);
  }
  for (std::size_t i = 0; ::GetTickCount64() < end; ++i) host.Make(lines[i % lines.size()]);
}
