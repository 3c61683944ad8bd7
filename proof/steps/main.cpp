// Hinders every operation of the library's stores in every way of a mode, and judges what is left.
// Usage: steps FOLDER LOG MODE [MOST]
//   FOLDER  of the user's data; what it holds below "Krelix" is lost
//   LOG     a file elsewhere
//   MODE    stop    the process ends before its n-th file operation, for every n (native)
//           fail    the n-th file operation fails, for every n, with MOST codes (native)
//           full    the small file system of FOLDER has k free blocks, from 0 to MOST, with and
//                   without a free file
//           denied  files and folders may not be written; not for root, who may all the same
//           held    another program has a state file open (Windows)
// Prints the columns tried, found and held of a table; exit code 0 when nothing was lost.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <stdexcept>

#include "layout/log_start.h"
#include "proof/steps/steps.h"

namespace {

// Writes blocks until there are so many or the disk is full. Returns how many there are.
int WriteBlocks(const fs::path& path, int most) {
  std::ofstream file(path, std::ios::binary);
  int blocks = 0;
  while (blocks < most && (file << std::string(4096, 'f')).flush()) ++blocks;
  return blocks;
}

// Takes the free room of the file system but for so many blocks, and its free files on demand.
void Fill(const fs::path& folder, int freeBlocks, bool takesFiles) {
  constexpr int kMany = 2048;
  fs::create_directory(folder);
  const int reserved = WriteBlocks(folder / "reserve", freeBlocks);
  if (reserved != freeBlocks || WriteBlocks(folder / "bytes", kMany) == kMany) {
    throw std::runtime_error("the user's data is not on a small file system");
  }
  fs::remove(folder / "reserve");
  for (int i = 0; takesFiles && std::ofstream(folder / std::to_string(i)); ++i) {
  }
}

std::vector<Hindrance> FullDisks(int mostBlocks) {
  const fs::path filler = userFolder / "filler";
  std::vector<Hindrance> all;
  for (int blocks = 0; blocks <= mostBlocks; ++blocks) {
    for (const bool takesFiles : {false, true}) {
      all.push_back({std::to_string(blocks) + " blocks free" + (takesFiles ? ", no file" : ""),
                     [=] { Fill(filler, blocks, takesFiles); }, [=] { fs::remove_all(filler); }});
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
    passage.errors = ReadLog().errors;
    passages.push_back(std::move(passage));
  }
  return passages;
}

using Counts = std::map<std::string, int>;

std::string Try(const std::string& mode, const Passage& passage, const Hindrance& hindrance,
                Counts* found) {
  WriteState(passage.before);
  ClearLog();
  hindrance.begin();
  const int code = RunApart([&] {
    try {
      Run(passage.operation);
    } catch (const std::exception&) {
      // The refusal of a feed that cannot be read.
    }
  });
  hindrance.end();
  int siblings = 0;
  const std::set<std::string> errors = ReadLog().errors;
  const Outcome outcome{
      ReadState(&siblings), code == 0,
      !std::includes(passage.errors.begin(), passage.errors.end(), errors.begin(), errors.end())};
  ++(*found)[ProgressOf(passage, outcome.left)];
  if (IsInTwoFiles(outcome.left)) ++(*found)["with a block in two files"];
  if (code != (mode == "stop" ? kStopped : 0)) return "exit code " + std::to_string(code);
  if (siblings != 0 && mode != "stop" && mode != "fail") return "a sibling is left";
  const std::string fault = FaultOfFiles(passage, outcome);
  return fault.empty() ? FaultOfNextCalls(passage, outcome) : fault;
}

bool Prove(const std::string& mode, int most) {
  Counts found;
  int tried = 0;
  int faults = 0;
  const std::vector<Passage> passages = Live();
  for (const Passage& passage : passages) {
    const bool isFull = mode == "full";
    for (const Hindrance& hindrance :
         isFull ? FullDisks(most) : HindrancesOf(mode, most, passage)) {
      ++tried;
      const std::string fault = Try(mode, passage, hindrance, &found);
      if (fault.empty()) continue;
      ++faults;
      std::fprintf(stderr, "  FAULT  %s, %s: %s\n", passage.operation.verb.c_str(),
                   hindrance.label.c_str(), fault.c_str());
    }
  }
  // Where all is done nothing was hindered.
  const bool held = faults == 0 && found[kDone] < tried;
  std::printf("%d tries, %zu operations | %d faults", tried, passages.size(), faults);
  for (const auto& [what, count] : found) std::printf("; %d %s", count, what.c_str());
  std::printf(" | %s |\n", held ? "yes" : "no");
  return held;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 4) return 2;
  try {
    userFolder = arguments[1];
    StartLog(arguments[2]);
    return Prove(arguments[3], count > 4 ? std::atoi(arguments[4]) : 0) ? 0 : 1;
  } catch (const std::exception& error) {
    std::printf("%s | not tried | no |\n", error.what());
    return 1;
  }
}
