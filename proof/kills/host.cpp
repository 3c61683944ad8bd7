// kills_host APP DIARY SEED EXECUTOR FEED REPORT WAIT SECONDS CALL...: a host program. Makes the
// calls CALL..., which are ordinals, for one application, and keeps a diary of them. WAIT: how many
// milliseconds it waits for an executor's answer at most. SECONDS: for so long it makes the calls
// again and again; 0: once.
//
// Each call is a line before and after it, "SIGN ORDINAL ITEM MILLISECONDS". The sign says that the
// call begins (?), has succeeded (!) or failed (x). The item is what is to arrive at the web
// server, a locale ("L...") or "-". A line is in the file before the host goes on, however it ends.
#include "util/win/windows_lean.h"

#include <comdef.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "stat/stat_ctrl.h"
#include "testing/dll_client.h"
#include "transfer/com_apartment.h"
#include "transfer/transfer.h"
#include "util/mutex.h"
#include "util/text.h"

namespace {

using namespace testing_dll;

struct Plan {
  std::string appId;
  std::filesystem::path diary;
  std::uint32_t seed;
  std::wstring executor;
  std::string feed;
  std::string report;
  std::uint32_t waitMilliseconds;
  ULONGLONG milliseconds;
  std::vector<int> calls;
};

class Host {
 public:
  explicit Host(const Plan& plan)
      : plan_(plan),
        random_(plan.seed),
        diary_(plan.diary, std::ios::binary),
        stateTurn_(L"storm-state-" + WidenUtf8(plan.appId)) {}

  void Run() {
    const ULONGLONG end = ::GetTickCount64() + plan_.milliseconds;
    const bool isOnce = plan_.milliseconds == 0;
    UseExecutor();
    for (std::size_t i = 0; isOnce ? i < plan_.calls.size() : ::GetTickCount64() < end; ++i) {
      Make(plan_.calls[i % plan_.calls.size()]);
    }
  }

 private:
  struct Call {
    std::string item;  // "#": the diary's name and a number
    std::function<std::int32_t(const std::string& item)> make;
  };

  void Make(int ordinal) {
    const Call& call = calls_.at(ordinal - 1);
    const LockScope turn(call.item == kState ? &stateTurn_ : nullptr);
    const std::string item = call.item == kState ? NextState() : ItemOf(call.item);
    const auto write = [&](char sign, ULONGLONG milliseconds) {
      std::ostringstream line;
      line << sign << ' ' << ordinal << ' ' << item << ' ' << milliseconds << '\n';
      diary_ << line.str() << std::flush;
    };
    write('?', 0);
    const ULONGLONG start = ::GetTickCount64();
    const bool succeeded = call.make(item) == KUPDATE_S_OK;
    write(succeeded ? '!' : 'x', ::GetTickCount64() - start);
  }

  std::string ItemOf(std::string pattern) {
    const std::size_t place = pattern.find('#');
    if (place == pattern.npos) return pattern;
    return pattern.replace(place, 1, plan_.diary.stem().string() + "." + std::to_string(++count_));
  }

  // The state after one like it says nothing new and is not counted: hosts alternate.
  std::string NextState() const {
    return TextFrom(Dll().getApplicationState, app_) == "install" ? "uninstall" : "install";
  }

  std::int32_t UseExecutor() { return Dll().setExecutorPath(plan_.executor.c_str()); }

  std::int32_t Register() {
    return Dll().onApplicationStartup(app_, "win64", plan_.feed.c_str(), plan_.report.c_str(), 3600,
                                      1, 0, 0, 0, true);
  }

  std::int32_t IsUpgradeAvailable() {
    bool found = false;
    return Dll().isUpgradeAvailable(
        app_, static_cast<std::int32_t>(random_() % plan_.waitMilliseconds), &found);
  }

  // A check from its start to its end. The service may refuse each step; then it is given up.
  std::int32_t Check() {
    std::int32_t status = KUPDATE_IN_WORK;
    const auto step = [&](const char* operation) {
      return Dll().isUpdateAvailable(app_, "win64", 1, 0, 0, 0, true, plan_.feed.c_str(), operation,
                                     &status) == KUPDATE_S_OK;
    };
    bool goesOn = step("start");
    const int maxPolls = random_() % 4 == 0 ? 0 : 50;
    for (int polls = 0; goesOn && polls < maxPolls && status == KUPDATE_IN_WORK; ++polls) {
      goesOn = step("check");
      ::Sleep(5);
    }
    if (goesOn && status == KUPDATE_IN_WORK) step("stop");
    return KUPDATE_S_OK;
  }

  // Whether something is installed is the executor's affair; this asks it and awaits its end.
  std::int32_t Install() {
    std::int32_t code = 0;
    Dll().setExecutorPath(Setting(L"KUPDATE_EXEC").c_str());
    Check();
    Dll().downloadAndInstallSilentUpdate(&code);
    return UseExecutor();
  }

  std::int32_t AddAction(const std::string& item) {
    Mutex mutex(L"STATISTIC{2B8F4B48-C2C5-4985-B7EB-B8818DDBBEC4}-" + WidenUtf8(plan_.appId));
    TStatCtrl(plan_.appId, &mutex).AddAction(item);
    return KUPDATE_S_OK;
  }

  static std::int32_t AskService() try {
    const ComApartment apartment;
    ListOwnJobs();
    return KUPDATE_S_OK;
  } catch (const _com_error&) {
    return KUPDATE_E_FAIL;
  }

  static constexpr char kState[] = "state";

  const Plan plan_;
  const char* const app_ = plan_.appId.c_str();
  std::mt19937 random_;
  std::ofstream diary_;
  Mutex stateTurn_;
  int count_ = 0;
  std::int32_t size_ = 0;  // of a text that is asked for, not copied
  // By ordinal; those behind the exports only the library and this program have.
  const std::vector<Call> calls_ = {
      {"-", [&](auto&) { return Dll().forceUpdateCheck(app_, false); }},
      {"-", [&](auto&) { return Dll().getApplicationState(app_, nullptr, &size_); }},
      {"-", [&](auto&) { return Dll().getOptionalParam(app_, nullptr, &size_); }},
      {"-", [&](auto&) { return IsUpgradeAvailable(); }},
      {"-", [&](auto&) { return Register(); }},
      {"-", [&](auto&) { return Dll().onApplicationUninstall(app_); }},
      {kState, [&](auto& item) { return Dll().setApplicationState(app_, item.c_str()); }},
      {"-", [&](auto&) { return UseExecutor(); }},
      {"p#=1", [&](auto& item) { return Dll().setOptionalParam(app_, item.c_str()); }},
      {"p#=1", [&](auto& item) { return Dll().usageReport(app_, item.c_str()); }},
      {"-", [&](auto&) { return Install(); }},
      {"-", [&](auto&) { return Dll().getLocale(app_, nullptr, &size_); }},
      {"-", [&](auto&) { return Dll().getUniqUserId()[0] == '{' ? KUPDATE_S_OK : KUPDATE_E_FAIL; }},
      {"-", [&](auto&) { return Dll().getUniqueParam(app_, "u", nullptr, &size_); }},
      {"-", [&](auto&) { return Check(); }},
      {"L#", [&](auto& item) { return Dll().setLocale(app_, item.c_str()); }},
      {"u#=1",
       [&](auto& item) {
         return Dll().setUniqueParam(app_, item.substr(0, item.find('=')).c_str(), L"1");
       }},
      {"a#", [&](auto& item) { return AddAction(item); }},
      {"-", [&](auto&) { return AskService(); }},
  };
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 10) return 2;
  const auto number = [&](int i) { return static_cast<std::uint32_t>(std::stoul(argv[i])); };
  Plan plan = {argv[1], argv[2], number(3), WidenUtf8(argv[4]),
               argv[5], argv[6], number(7), number(8) * 1000ULL,
               {}};
  for (int i = 9; i < argc; ++i) plan.calls.push_back(std::stoi(argv[i]));
  Host(plan).Run();
  return 0;
}
