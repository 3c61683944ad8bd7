#include "proof/storm_host.h"

#include <random>

#include "proof/storm_diary.h"
#include "stat/stat_ctrl.h"
#include "testing/dll_client.h"
#include "util/mutex.h"
#include "util/text.h"
#include "util/win/windows_lean.h"

namespace storm {

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

class Host {
 public:
  explicit Host(HostPlan plan)
      : plan_(std::move(plan)),
        app_(plan_.appId.c_str()),
        random_(plan_.seed),
        diary_(plan_.diary),
        stateTurn_(L"storm-state-" + WidenUtf8(plan_.appId)) {}

  void Run() {
    const ULONGLONG end = ::GetTickCount64() + static_cast<ULONGLONG>(plan_.seconds) * 1000;
    Dll().setExecutorPath(UsesRealExecutor() ? ExecutorPath().c_str() : kNoExecutor);
    const bool isNarrow = random_() % 2 == 0;
    diary_.Ready();
    for (int call = 0; plan_.calls == 0 || call < plan_.calls; ++call) {
      if (plan_.seconds > 0 && ::GetTickCount64() >= end) break;
      Make(plan_.focus != 0 && (isNarrow || call % 2 == 0) ? plan_.focus : Choose());
    }
  }

 private:
  bool UsesRealExecutor() const {
    return plan_.manner == Manner::kCrowd || plan_.manner == Manner::kImpatient;
  }

  int Choose() {
    // How many of 100 calls are of each export, by ordinal from 1, and the library's own one.
    static constexpr int kShares[][kAddAction] = {
        {2, 8, 8, 1, 4, 0, 4, 4, 22, 6, 1, 8, 3, 8, 3, 8, 10, 0},
        {2, 8, 8, 1, 6, 6, 4, 4, 16, 6, 1, 6, 3, 8, 3, 8, 10, 0},
        {1, 6, 5, 0, 2, 0, 4, 0, 38, 8, 0, 3, 1, 4, 0, 5, 15, 8},
        {4, 8, 8, 8, 8, 0, 4, 2, 14, 6, 2, 8, 2, 6, 4, 6, 8, 2}};
    int left = static_cast<int>(random_() % 100);
    const auto& shares = kShares[static_cast<int>(plan_.manner)];
    for (int call = 1; call <= kAddAction; ++call) {
      left -= shares[call - 1];
      if (left < 0) return call;
    }
    return 9;
  }

  std::string Item(int call) {
    const std::string place = plan_.name + "." + std::to_string(++count_);
    switch (call) {
      case 7:
        return StateItem();
      case 9:
      case 10:
        return "p" + place + "=1";
      case 16:
        return "L" + place;
      case 17:
        return "u" + place + "=1";
      case kAddAction:
        return "a" + place;
      default:
        return "-";
    }
  }

  // The state after one like it says nothing new and is not counted: hosts alternate.
  std::string StateItem() const {
    char last[16] = "";
    std::int32_t size = sizeof last;
    Dll().getApplicationState(app_, last, &size);
    return std::string_view(last) == "install" ? "uninstall" : "install";
  }

  void Make(int call) {
    const LockScope turn(call == 7 ? &stateTurn_ : nullptr);
    const std::string item = Item(call);
    diary_.Begin(call, item);
    const ULONGLONG start = ::GetTickCount64();
    const bool succeeded = Call(call, item);
    diary_.End(call, item, succeeded, static_cast<unsigned>(::GetTickCount64() - start));
  }

  bool Call(int call, const std::string& item) {
    const Exports& dll = Dll();
    char text[64];
    std::int32_t size = sizeof text;
    wchar_t wide[64];
    std::int32_t wideSize = 64;
    bool found = false;
    switch (call) {
      case 1:
        return dll.forceUpdateCheck(app_, random_() % 2 == 0) == KUPDATE_S_OK;
      case 2:
        return dll.getApplicationState(app_, text, &size) == KUPDATE_S_OK;
      case 3:
        return dll.getOptionalParam(app_, text, &size) == KUPDATE_S_OK;
      case 4:
        return dll.isUpgradeAvailable(app_, WaitMilliseconds(), &found) == KUPDATE_S_OK;
      case 5:
        return Register(plan_.appId, FeedUrl().c_str());
      case 6:
        return dll.onApplicationUninstall(app_) == KUPDATE_S_OK;
      case 7:
        return dll.setApplicationState(app_, item.c_str()) == KUPDATE_S_OK;
      case 8:
        return dll.setExecutorPath(UsesRealExecutor() ? ExecutorPath().c_str() : kNoExecutor) ==
               KUPDATE_S_OK;
      case 9:
        return dll.setOptionalParam(app_, item.c_str()) == KUPDATE_S_OK;
      case 10:
        return dll.usageReport(app_, item.c_str()) == KUPDATE_S_OK;
      case 11:
        return Install();
      case 12:
        return dll.getLocale(app_, text, &size) == KUPDATE_S_OK;
      case 13:
        return dll.getUniqUserId()[0] == '{';
      case 14:
        return dll.getUniqueParam(app_, "u", wide, &wideSize) == KUPDATE_S_OK;
      case 15:
        return Check();
      case 16:
        return dll.setLocale(app_, item.c_str()) == KUPDATE_S_OK;
      case 17:
        return dll.setUniqueParam(app_, item.substr(0, item.size() - 2).c_str(), L"1") ==
               KUPDATE_S_OK;
      default:
        return AddAction(item);
    }
  }

  std::int32_t WaitMilliseconds() {
    return static_cast<std::int32_t>(plan_.manner == Manner::kImpatient ? random_() % 5000
                                                                        : random_() % 20);
  }

  kupdate_status Step(const char* operation, std::int32_t* status) {
    return Dll().isUpdateAvailable(app_, "win64", 1, 0, 0, 0, true, FeedUrl().c_str(), operation,
                                   status);
  }

  // A check from its start to its end. The service may refuse each step; then it is given up.
  bool Check() {
    std::int32_t status = KUPDATE_IN_WORK;
    if (Step("start", &status) != KUPDATE_S_OK) return true;
    const int maxPolls = random_() % 4 == 0 ? 0 : 50;
    for (int polls = 0; polls < maxPolls && status == KUPDATE_IN_WORK; ++polls) {
      if (Step("check", &status) != KUPDATE_S_OK) return true;
      ::Sleep(5);
    }
    if (status == KUPDATE_IN_WORK) Step("stop", &status);
    return true;
  }

  // Whether something is installed is the executor's affair; that it was asked, and has ended, is
  // this one's.
  bool Install() {
    Dll().setExecutorPath(ExecutorPath().c_str());
    std::int32_t code = 0;
    Check();
    Dll().downloadAndInstallSilentUpdate(&code);
    if (!UsesRealExecutor()) Dll().setExecutorPath(kNoExecutor);
    return true;
  }

  bool AddAction(const std::string& item) {
    Mutex mutex(L"STATISTIC{2B8F4B48-C2C5-4985-B7EB-B8818DDBBEC4}-" + WidenUtf8(plan_.appId));
    TStatCtrl(plan_.appId, &mutex).AddAction(item);
    return true;
  }

  HostPlan plan_;
  const char* app_;
  std::mt19937 random_;
  Diary diary_;
  Mutex stateTurn_;
  int count_ = 0;
};

}  // namespace

void* StartHost(const HostPlan& plan) {
  return StartChild(L"host " + std::to_wstring(static_cast<int>(plan.manner)) + L" " +
                    WidenUtf8(plan.appId) + L" " + WidenUtf8(plan.name) + L" " +
                    std::to_wstring(plan.seed) + L" " + std::to_wstring(plan.focus) + L" " +
                    std::to_wstring(plan.calls) + L" " + std::to_wstring(plan.seconds) + L" \"" +
                    plan.diary.wstring() + L"\"");
}

int RunHost(int argumentCount, char** arguments) {
  if (argumentCount != 8) return 2;
  HostPlan plan;
  plan.manner = static_cast<Manner>(std::stoi(arguments[0]));
  plan.appId = arguments[1];
  plan.name = arguments[2];
  plan.seed = static_cast<std::uint32_t>(std::stoul(arguments[3]));
  plan.focus = std::stoi(arguments[4]);
  plan.calls = std::stoi(arguments[5]);
  plan.seconds = std::stoi(arguments[6]);
  plan.diary = arguments[7];
  Host(plan).Run();
  return 0;
}

bool Register(const std::string& appId, const char* versionUrl) {
  static const std::string report = ReportUrl();
  return Dll().onApplicationStartup(appId.c_str(), "win64", versionUrl, report.c_str(), 3600, 1, 0,
                                    0, 0, true) == KUPDATE_S_OK;
}

std::string ReportUrl() { return HttpUrl("storm-report"); }
std::string FeedUrl() { return HttpUrl("storm.rss"); }

std::wstring ExecutorPath() {
  return fs::path(Setting(L"KUPDATE_STANDIN_FOLDER")) / "storm program" / "kupdate-exec.exe";
}

void MakeExecutor() {
  const fs::path program = ExecutorPath();
  if (fs::exists(program)) return;
  fs::create_directories(program.parent_path());
  fs::copy_file(Setting(L"KUPDATE_EXEC"), program);
}

}  // namespace storm
