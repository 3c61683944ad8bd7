// A program that uses the library as its arguments say, one step after the other:
//
//   service_host ID STEP...
//     param NAME=VALUE           a parameter of the next report
//     start FEED REPORT SECONDS  the program starts, and reports so often at most
//     usage TEXT                 an action for the next report
//     force                      a check that does not wait for its time
//     wait MILLISECONDS          waits for the check; prints status, answer, milliseconds
//     drive FEED FILE            drives a check itself, and asks for its end once the file is there;
//                                prints each new answer
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

#include "testing/dll_client.h"
#include "util/clock.h"
#include "util/process.h"
#include "util/text.h"
#include "util/win/windows_lean.h"

namespace {

using testing_dll::Dll;

void Wait(const char* id, int milliseconds) {
  bool found = false;
  const auto begin = std::chrono::steady_clock::now();
  const kupdate_status status = Dll().isUpgradeAvailable(id, milliseconds, &found);
  const auto took = std::chrono::steady_clock::now() - begin;
  std::printf(
      "%d %d %d\n", status, found,
      static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(took).count()));
}

std::string Ask(const char* id, const char* feed, const char* operation) {
  constexpr const char* kAnswers[] = {"in work", "update found", "no update", "job failed"};
  std::int32_t answer = KUPDATE_IN_WORK;
  const kupdate_status status =
      Dll().isUpdateAvailable(id, "win64", 1, 0, 0, 0, true, feed, operation, &answer);
  return status == KUPDATE_S_OK ? kAnswers[answer] : "failure";
}

void Drive(const char* id, const char* feed, const char* file) {
  std::string last = Ask(id, feed, "start") == "in work" ? "" : "no check";
  if (!last.empty()) std::puts(last.c_str());
  while (!std::filesystem::exists(file)) SleepMilliseconds(20);
  while (last.empty() || last == "in work") {
    const std::string answer = Ask(id, feed, "check");
    if (answer != last) std::puts(answer.c_str());
    std::fflush(stdout);
    last = answer;
    SleepMilliseconds(20);
  }
}

}  // namespace

int main(int argc, char** argv) {
  // As the executor that crashes.
  if (HostProgramName() == L"kupdate-exec.exe") {
    ::RaiseException(EXCEPTION_ACCESS_VIOLATION, EXCEPTION_NONCONTINUABLE, 0, nullptr);
  }
  if (argc < 3) return 2;
  const char* const id = argv[1];
  const auto number = [](const char* text) { return static_cast<std::int32_t>(ParseInt64(text)); };
  for (char** step = argv + 2; *step; ++step) {
    const std::string_view what = *step;
    if (what == "param") Dll().setOptionalParam(id, *++step);
    if (what == "usage") Dll().usageReport(id, *++step);
    if (what == "force") Dll().forceUpdateCheck(id, false);
    if (what == "wait") Wait(id, number(*++step));
    if (what == "drive") {
      Drive(id, step[1], step[2]);
      step += 2;
    }
    if (what == "start") {
      Dll().onApplicationStartup(id, "win64", step[1], step[2], number(step[3]), 1, 0, 0, 0, true);
      step += 3;
    }
  }
}
