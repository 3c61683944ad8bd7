#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "proof/steps/steps.h"
#include "util/posix/file_step.h"

const char kSystem[] = "";

namespace {

namespace fs = std::filesystem;

std::vector<std::string> steps;  // that were met
std::size_t hinderedStep = 0;    // from 1
int hinderingCode = 0;           // 0: the process ends at that step

int Guard(const char* step, const std::string& path) {
  if (path.ends_with(".log")) return 0;
  steps.push_back(step + (" " + path.substr(path.rfind('/') + 1)));
  if (steps.size() != hinderedStep) return 0;
  if (hinderingCode == 0) _exit(kStopped);
  Note(kFailureNote);
  return hinderingCode;
}

void HinderStep(std::size_t number, int code) {
  steps.clear();
  hinderedStep = number;
  hinderingCode = code;
  SetFileStepGuard(Guard);
}

void HinderNothing() { SetFileStepGuard(nullptr); }

std::vector<std::string> StepsOf(const Passage& passage) {
  WriteState(passage.before);
  HinderStep(0, 0);
  Run(passage.operation);
  HinderNothing();
  return steps;
}

// The codes that a step fails with; 0: it stops.
std::vector<int> CodesOf(const std::string& mode, std::size_t number) {
  const std::vector<int> codes = {ENOSPC, EACCES, EIO};
  if (mode == "stop") return {0};
  return mode == "fail-all" ? codes : std::vector<int>{codes[number % codes.size()]};
}

void SetWriting(bool ofFolders, bool ofFiles, fs::perm_options change) {
  const auto set = [&](const fs::path& path) {
    const bool isMeant = fs::is_directory(path) ? ofFolders : ofFiles;
    if (isMeant) fs::permissions(path, fs::perms::owner_write, change);
  };
  for (const fs::path& folder : StateFolders()) {
    if (!fs::exists(folder)) continue;
    set(folder);
    for (const auto& entry : fs::recursive_directory_iterator(folder)) set(entry.path());
  }
}

Hindrance ReadOnly(const char* label, bool folders, bool files) {
  return {label, [=] { SetWriting(folders, files, fs::perm_options::remove); },
          [=] { SetWriting(folders, files, fs::perm_options::add); }};
}

}  // namespace

std::vector<Hindrance> HindrancesOf(const std::string& mode, const Passage& passage) {
  if (mode == "denied") {
    return {ReadOnly("read-only folders", true, false), ReadOnly("read-only files", false, true),
            ReadOnly("read-only folders and files", true, true)};
  }
  std::vector<Hindrance> all;
  std::size_t number = 0;
  for (const std::string& step : StepsOf(passage)) {
    ++number;
    for (const int code : CodesOf(mode, number)) {
      const std::string what = code == 0 ? " stops" : std::string(" fails: ") + std::strerror(code);
      all.push_back({"step " + std::to_string(number) + ", " + step + what,
                     [=] { HinderStep(number, code); }, HinderNothing});
    }
  }
  return all;
}

int RunApart(const Operation& operation) {
  const pid_t child = fork();
  if (child == 0) {
    Run(operation);
    _exit(0);
  }
  int status = 0;
  return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
