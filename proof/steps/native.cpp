#include <sys/wait.h>
#include <unistd.h>

#include "proof/steps/hindrance.h"
#include "util/posix/file_step.h"

namespace {

int met = 0;  // steps
int hinderedStep = 0;
int hinderingCode = 0;
std::string hindered;  // the step, once it is met

int Guard(const char* step, const std::string& path) {
  if (path.ends_with(".log") || ++met != hinderedStep) return 0;
  hindered = step + (" " + path.substr(path.rfind('/') + 1));
  if (hinderingCode != 0) return hinderingCode;
  Reply("stopped before " + hindered);
  _exit(0);
}

}  // namespace

void Hinder(const std::string& what, int how) {
  hinderedStep = std::stoi(what);
  hinderingCode = how;
  SetFileStepGuard(Guard);
}

void HinderNothing() { SetFileStepGuard(nullptr); }

void RunHindered(const std::function<void()>& work) {
  const pid_t child = fork();
  if (child == 0) {
    work();
    Reply(hindered.empty() ? "undisturbed" : "hindered in " + hindered);
    _exit(0);
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child || status != 0) Reply("ended by itself");
}
