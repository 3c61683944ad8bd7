// Stops and hinders every file operation of the library's stores, as the native build does them.
// Usage: steps_native FOLDER LOG MODE
//   FOLDER  an empty folder for the user's data; for "full" one of a small file system
//   LOG     a file elsewhere
//   MODE    stop     the process ends before its n-th file operation, for every n
//           fail     the n-th file operation fails, for every n; fail-all: with every code
//           full     the file system has k free blocks, or no free file, from 0 up; full-wide: to more
//           denied   folders and files are read-only, which root would not notice
// Prints rows of a table; exit code 0 when every promise held.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>

#include "proof/steps_world.h"
#include "util/posix/file_step.h"

namespace {

namespace fs = std::filesystem;

constexpr int kStopped = 77;

// What the guard does to the operations of a child.
struct Plan {
  long at = 0;       // the number of the step that is not done, from 1; 0: all are done
  int failWith = 0;  // 0: the process ends there
};

Plan plan;
long stepsSeen = 0;
std::string lastStep;
const StepsLog* markedLog = nullptr;

int Guard(const char* step, const std::string& path) {
  if (path.ends_with(".log")) return 0;
  if (++stepsSeen != plan.at) return 0;
  lastStep = std::string(step) + " " + path.substr(path.rfind('/') + 1);
  if (plan.failWith == 0) _exit(kStopped);
  markedLog->Mark();
  return plan.failWith;
}

void WriteAll(int pipe, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t count = write(pipe, text.data() + done, text.size() - done);
    if (count <= 0) _exit(1);
    done += static_cast<std::size_t>(count);
  }
}

struct Answer {
  std::string text;
  int code;  // exit code; -1: ended by a signal
};

// Runs `work` in a process of its own, which ends like a killed one, and returns what it told.
Answer InChild(const std::function<std::string()>& work) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("no process");
  if (child == 0) {
    close(ends[0]);
    try {
      WriteAll(ends[1], work());
    } catch (const std::exception& error) {
      WriteAll(ends[1], std::string("exception: ") + error.what());
    }
    _exit(0);
  }
  close(ends[1]);
  Answer answer;
  char piece[4096];
  for (ssize_t count; (count = read(ends[0], piece, sizeof piece)) > 0;) {
    answer.text.append(piece, static_cast<std::size_t>(count));
  }
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  answer.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return answer;
}

// One try: what is done to the operation, and undone before the next calls.
struct Hindrance {
  std::string label;
  Plan plan;
  std::function<void()> begin;  // may be empty
  std::function<void()> end;
};

struct Tried {
  bool wasHit = false;  // the step was reached
  std::string step;
};

class Prover {
 public:
  Prover(const StepsLog& log, std::vector<Passage> passages)
      : log_(log), passages_(std::move(passages)) {}

  const std::vector<Passage>& Passages() const { return passages_; }

  Tried Try(const Passage& passage, const Hindrance& hindrance, Promise* promise) const {
    WriteState(passage.before);
    log_.Clear();
    if (hindrance.begin) hindrance.begin();
    const Answer answer = InChild([&] { return RunHindered(passage.operation, hindrance.plan); });
    const Outcome outcome = OutcomeOf(answer, passage.before);
    if (hindrance.end) hindrance.end();
    const Files left = ReadState();
    const Tried tried{answer.code == kStopped || answer.text.starts_with("hit "),
                      answer.text.substr(0, answer.text.find('\n'))};
    if (hindrance.plan.at != 0 && !tried.wasHit) return tried;
    promise->Try();
    std::string fault = answer.code == 0 || answer.code == kStopped
                            ? FaultOfFiles(passage, left, outcome)
                            : "the process ended with " + std::to_string(answer.code);
    if (fault.empty() && hindrance.plan.at == 0 && CountSiblings() != 0)
      fault = "a sibling is left";
    promise->Found(IsDone(passage, left)     ? "done"
                   : IsUndone(passage, left) ? "left as before"
                                             : "in between");
    if (IsInTwoFiles(left)) promise->Found("with a block in two files");
    if (fault.empty()) fault = NextCalls(passage, left, outcome);
    promise->Judge(passage.operation.name + (", " + hindrance.label) + ", " + tried.step, fault);
    return tried;
  }

 private:
  // Tells "hit" and the step where one was not done, then what was handed out.
  static std::string RunHindered(const Operation& operation, const Plan& what) {
    plan = what;
    stepsSeen = 0;
    lastStep.clear();
    SetFileStepGuard(what.at == 0 ? nullptr : Guard);
    Sent sent;
    try {
      operation.run(&sent);
    } catch (const std::exception&) {
      // A feed that cannot be read is refused so.
    }
    SetFileStepGuard(nullptr);
    return (lastStep.empty() ? "done" : "hit " + lastStep) + '\n' + sent;
  }

  Outcome OutcomeOf(const Answer& answer, const Files& before) const {
    Outcome outcome;
    outcome.returned = answer.code == 0;
    outcome.isLogged = log_.TellsFailure(before);
    outcome.sent = answer.text.substr(std::min(answer.text.find('\n'), answer.text.size() - 1) + 1);
    return outcome;
  }

  static std::string NextCalls(const Passage& passage, const Files& left, const Outcome& outcome) {
    const Answer answer = InChild([&] { return FaultOfNextCalls(passage, left, outcome); });
    return answer.code == 0 ? answer.text : "the next calls end the process";
  }

  const StepsLog& log_;
  std::vector<Passage> passages_;
};

// The whole life once, unhindered: each operation in a process that acknowledges it.
std::vector<Passage> Live() {
  std::vector<Passage> passages;
  WriteState({});
  for (const Operation& operation : Operations()) {
    Passage passage{operation, ReadState(), {}};
    const Answer answer = InChild([&] {
      Sent sent;
      operation.run(&sent);
      return std::string("ok");
    });
    if (answer.text != "ok") throw std::runtime_error(operation.name + (": " + answer.text));
    passage.after = ReadState();
    passages.push_back(std::move(passage));
  }
  return passages;
}

void StopEverywhere(const Prover& prover, Promise* promise) {
  for (const Passage& passage : prover.Passages()) {
    for (long n = 1;; ++n) {
      if (!prover.Try(passage, {"stop " + std::to_string(n), {n, 0}, {}, {}}, promise).wasHit)
        break;
    }
  }
}

void FailEverywhere(const Prover& prover, bool withEveryCode, Promise* promise) {
  const int codes[] = {ENOSPC, EACCES, EIO};
  for (const Passage& passage : prover.Passages()) {
    bool goesOn = true;
    for (long n = 1; goesOn; ++n) {
      for (int i = 0; i < 3; ++i) {
        if (!withEveryCode && i != n % 3) continue;
        const std::string label =
            "step " + std::to_string(n) + " fails: " + std::strerror(codes[i]);
        goesOn = prover.Try(passage, {label, {n, codes[i]}, {}, {}}, promise).wasHit;
      }
    }
  }
}

// Takes the free room of a file system but for so many blocks, and its free files but for so many.
class Filler {
 public:
  explicit Filler(const fs::path& folder) : folder_(folder / "filler") {}

  void Fill(unsigned blocks, bool takeFiles) const {
    fs::create_directory(folder_);
    const std::string path = (folder_ / "bytes").string();
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const std::string block(4096, 'f');
    off_t size = 0;
    for (ssize_t count; (count = write(file, block.data(), block.size())) > 0;) size += count;
    if (file < 0 || ftruncate(file, std::max<off_t>(0, size - 4096 * off_t{blocks})) != 0) {
      throw std::runtime_error("the file system cannot be filled");
    }
    close(file);
    if (!takeFiles) return;
    for (int i = 0;; ++i) {
      const std::string name = (folder_ / std::to_string(i)).string();
      const int taken = open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
      if (taken < 0) return;
      close(taken);
    }
  }
  void Empty() const { fs::remove_all(folder_); }

 private:
  fs::path folder_;
};

void FillTheDisk(const Prover& prover, const fs::path& folder, unsigned maxBlocks,
                 Promise* promise) {
  struct statvfs room;
  if (statvfs(folder.c_str(), &room) != 0 || room.f_blocks * room.f_frsize > (4u << 20)) {
    throw std::runtime_error("the folder is not on a small file system");
  }
  const Filler filler(folder);
  for (const Passage& passage : prover.Passages()) {
    for (unsigned blocks = 0; blocks <= maxBlocks; ++blocks) {
      for (const bool takeFiles : {false, true}) {
        prover.Try(passage,
                   {std::to_string(blocks) + " blocks free" + (takeFiles ? ", no file" : ""),
                    {},
                    [&] { filler.Fill(blocks, takeFiles); },
                    [&] { filler.Empty(); }},
                   promise);
      }
    }
  }
}

// Takes the right to write from folders, or files, or both.
void SetMode(bool folders, bool files, bool mayWrite) {
  for (const fs::path& root : StateFolders()) {
    std::error_code missing;
    std::vector<fs::path> paths = {root};
    for (const auto& entry : fs::recursive_directory_iterator(root, missing)) {
      paths.push_back(entry.path());
    }
    for (const fs::path& path : paths) {
      const bool isFolder = fs::is_directory(path, missing);
      if (isFolder ? !folders : !files) continue;
      chmod(path.c_str(), (isFolder ? 0500 : 0400) | (mayWrite ? 0200 : 0));
    }
  }
}

void DenyWriting(const Prover& prover, Promise* promise) {
  const struct {
    const char* label;
    bool folders;
    bool files;
  } rows[] = {{"read-only folders", true, false},
              {"read-only files", false, true},
              {"read-only folders and files", true, true}};
  for (const Passage& passage : prover.Passages()) {
    for (const auto& row : rows) {
      prover.Try(passage,
                 {row.label,
                  {},
                  [&] { SetMode(row.folders, row.files, false); },
                  [&] { SetMode(row.folders, row.files, true); }},
                 promise);
    }
  }
}

bool Prove(const fs::path& folder, const StepsLog& log, const std::string& mode) {
  const Prover prover(log, Live());
  const std::string unit = "tries, " + std::to_string(prover.Passages().size()) + " operations";
  if (mode == "stop") {
    Promise promise("A process killed before any of its file operations loses nothing");
    StopEverywhere(prover, &promise);
    return promise.Print(unit);
  }
  if (mode == "fail" || mode == "fail-all") {
    Promise promise("A file operation that fails loses nothing and is logged");
    FailEverywhere(prover, mode == "fail-all", &promise);
    return promise.Print(unit);
  }
  if (mode == "full" || mode == "full-wide") {
    Promise promise("A full disk costs nothing that was stored");
    FillTheDisk(prover, folder, mode == "full" ? 6 : 60, &promise);
    return promise.Print(unit);
  }
  if (mode == "denied" && geteuid() != 0) {
    Promise promise("A missing right to write costs nothing that was stored");
    DenyWriting(prover, &promise);
    return promise.Print(unit);
  }
  throw std::runtime_error("no such mode, or denied as root");
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 4) return 2;
  try {
    setenv("KUPDATE_HOME", arguments[1], 1);
    const StepsLog log(arguments[2]);
    markedLog = &log;
    return Prove(arguments[1], log, arguments[3]) ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "  FAULT  %s\n", error.what());
    std::printf("| %s | %s | not tried | no |\n", arguments[3], error.what());
    return 1;
  }
}
