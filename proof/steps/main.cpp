// Hinders every operation of the library's stores in every way of a mode, and judges what is left.
// Usage: steps LOG MODE [BLOCKS]
//   LOG     a file outside of the user's data
//   MODE    stop      the process ends before its n-th file operation, for every n
//           fail      the n-th file operation fails, for every n; fail-all: with every code
//           full      the small file system of the user's data has k free blocks, from 0 to BLOCKS,
//                     with and without a free file
//           denied    files and folders may not be written; not for root, who may all the same
//           held      another program has a state file open
// "stop" and "fail" are of the native build, "held" is of Windows. The data folders of the user are
// emptied: for a private prefix or home only. Prints a row of a table; exit code 0 when the promise
// held.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <stdexcept>

#include "proof/steps/steps.h"

namespace {

namespace fs = std::filesystem;

struct Mode {
  const char* name;
  const char* promise;
  int exitCode = 0;
  bool leavesSiblings = false;
};

constexpr Mode kModes[] = {
    {"stop", "A process killed before any of its file operations loses nothing", kStopped, true},
    {"fail", "A file operation that fails loses nothing and is logged", 0, true},
    {"fail-all", "A file operation that fails loses nothing and is logged", 0, true},
    {"full", "A full disk costs nothing that was stored"},
    {"denied", "A missing right to write costs nothing that was stored"},
    {"held", "A file that another program has open costs nothing that was stored"}};

const Mode& ModeNamed(const std::string& name) {
  for (const Mode& mode : kModes) {
    if (mode.name == name) return mode;
  }
  throw std::runtime_error("no such mode: " + name);
}

fs::path Filler() { return StateFolders()[0].parent_path() / "filler"; }

// Writes blocks until there are so many or the disk is full. Returns how many there are.
unsigned WriteBlocks(const fs::path& path, unsigned most) {
  std::ofstream file(path, std::ios::binary);
  unsigned blocks = 0;
  while (blocks < most && (file << std::string(4096, 'f')).flush()) ++blocks;
  return blocks;
}

// Takes the free room of the file system but for so many blocks, and its free files on demand.
void Fill(unsigned freeBlocks, bool takesFiles) {
  constexpr unsigned kMany = 2048;
  fs::create_directories(Filler());
  const unsigned reserved = WriteBlocks(Filler() / "reserve", freeBlocks);
  if (reserved != freeBlocks || WriteBlocks(Filler() / "bytes", kMany) == kMany) {
    throw std::runtime_error("the user's data is not on a small file system");
  }
  fs::remove(Filler() / "reserve");
  for (int i = 0; takesFiles && std::ofstream(Filler() / std::to_string(i)); ++i) {
  }
}

std::vector<Hindrance> FullDisks(unsigned mostBlocks) {
  std::vector<Hindrance> all;
  for (unsigned blocks = 0; blocks <= mostBlocks; ++blocks) {
    for (const bool takesFiles : {false, true}) {
      all.push_back({std::to_string(blocks) + " blocks free" + (takesFiles ? ", no file" : ""),
                     [=] { Fill(blocks, takesFiles); }, [] { fs::remove_all(Filler()); }});
    }
  }
  return all;
}

// The whole life once, unhindered.
std::vector<Passage> Live() {
  std::vector<Passage> passages;
  WriteState({});
  for (const Operation& operation : Operations()) {
    Passage passage{operation, ReadState()};
    ClearLog();
    Run(operation);
    passage.after = ReadState();
    passage.errors = ErrorsInLog();
    passages.push_back(std::move(passage));
  }
  return passages;
}

using Counts = std::map<std::string, int>;

std::string Try(const Mode& mode, const Passage& passage, const Hindrance& hindrance,
                Counts* found) {
  WriteState(passage.before);
  ClearLog();
  hindrance.begin();
  const int code = RunApart(passage.operation);
  hindrance.end();
  int siblings = 0;
  const Files left = ReadState(&siblings);
  const Progress progress = ProgressOf(passage, left);
  ++(*found)[progress == Progress::kDone     ? "done"
             : progress == Progress::kUndone ? "left as before"
                                             : "in between"];
  if (IsInTwoFiles(left)) ++(*found)["with a block in two files"];
  if (code != mode.exitCode) return "the process ended with " + std::to_string(code);
  if (siblings != 0 && !mode.leavesSiblings) return "a sibling is left";
  const std::string fault = FaultOfFiles(passage, left, code == 0);
  return fault.empty() ? FaultOfNextCalls(passage, left, code == 0) : fault;
}

bool Prove(const Mode& mode, unsigned mostBlocks) {
  const std::vector<Passage> passages = Live();
  Counts found;
  int tried = 0;
  int faults = 0;
  for (const Passage& passage : passages) {
    const bool isFull = mode.name == std::string("full");
    for (const Hindrance& hindrance :
         isFull ? FullDisks(mostBlocks) : HindrancesOf(mode.name, passage)) {
      ++tried;
      const std::string fault = Try(mode, passage, hindrance, &found);
      if (fault.empty()) continue;
      ++faults;
      std::fprintf(stderr, "  FAULT  %s, %s: %s\n", passage.operation.name, hindrance.label.c_str(),
                   fault.c_str());
    }
  }
  // Where all is done nothing was hindered.
  const bool held = faults == 0 && found["done"] < tried;
  std::printf("| %s%s | %d tries, %zu operations | %d faults", kSystem, mode.promise, tried,
              passages.size(), faults);
  for (const auto& [what, count] : found) std::printf("; %d %s", count, what.c_str());
  std::printf(" | %s |\n", held ? "yes" : "no");
  return held;
}

}  // namespace

int main(int count, char** arguments) {
  const bool isPrivate = std::getenv("KUPDATE_HOME") || std::getenv("KUPDATE_TEST_PREFIX");
  if (count < 3 || !isPrivate) return 2;
  try {
    StartLog(arguments[1]);
    const unsigned mostBlocks = count > 3 ? static_cast<unsigned>(std::atoi(arguments[3])) : 0;
    return Prove(ModeNamed(arguments[2]), mostBlocks) ? 0 : 1;
  } catch (const std::exception& error) {
    std::printf("| %s%s | %s | not tried | no |\n", kSystem, arguments[2], error.what());
    return 1;
  }
}
