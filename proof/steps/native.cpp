#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "proof/steps/steps.h"
#include "util/posix/file_step.h"

namespace {

std::vector<std::string> steps;  // that were met
std::size_t hinderedStep = 0;    // from 1
int hinderingCode = 0;           // 0: the process ends at that step

int Guard(const char* step, const std::string& path) {
  if (path.ends_with(".log")) return 0;
  steps.push_back(step + (" " + path.substr(path.rfind('/') + 1)));
  if (steps.size() != hinderedStep) return 0;
  if (hinderingCode == 0) _exit(kStopped);
  return hinderingCode;
}

void Hinder(std::size_t number, int code) {
  steps.clear();
  hinderedStep = number;
  hinderingCode = code;
  SetFileStepGuard(Guard);
}

void HinderNothing() { SetFileStepGuard(nullptr); }

std::vector<std::string> StepsOf(const Passage& passage) {
  WriteState(passage.before);
  Hinder(0, 0);
  Run(passage.operation);
  HinderNothing();
  return steps;
}

}  // namespace

std::vector<Hindrance> HindrancesOf(const std::string& mode, int most, const Passage& passage) {
  const int codes[] = {ENOSPC, EACCES, EIO};
  std::vector<Hindrance> all;
  std::size_t number = 0;
  for (const std::string& step : StepsOf(passage)) {
    const std::string label = "step " + std::to_string(++number) + ", " + step;
    if (mode == "stop")
      all.push_back({label + " stops", [=] { Hinder(number, 0); }, HinderNothing});
    for (int i = 0; mode == "fail" && i < most; ++i) {
      const int code = codes[(number + static_cast<std::size_t>(i)) % std::size(codes)];
      all.push_back(
          {label + " fails: " + std::strerror(code), [=] { Hinder(number, code); }, HinderNothing});
    }
  }
  return all;
}

int RunApart(const std::function<void()>& work) {
  const pid_t child = fork();
  if (child == 0) {
    work();
    _exit(0);
  }
  int status = 0;
  return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
