// Hinders every write of the library's stores, as the Windows build does them.
// Usage: steps_win LOG MODE
//   LOG   a file outside of the state
//   MODE  held    another program has a state file open
//         denied  files and folders may not be written; not for root, who may all the same
//         full    the user's data lies on a small file system, which is filled
// Prints rows of a table; exit code 0 when every promise held. Works in the user's data folders: for
// a private prefix only.
#include "util/win/unique.h"

#include <sddl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <utility>

#include "proof/steps_world.h"

namespace {

namespace fs = std::filesystem;

class Prover {
 public:
  explicit Prover(const StepsLog& log) : log_(log) {
    WriteState({});
    for (const Operation& operation : Operations()) {
      Passage passage{operation, ReadState(), {}};
      Sent sent;
      operation.run(&sent);
      passage.after = ReadState();
      passages_.push_back(std::move(passage));
    }
  }

  const std::vector<Passage>& Passages() const { return passages_; }

  void Try(const Passage& passage, const std::string& label, const std::function<void()>& begin,
           const std::function<void()>& end, Promise* promise) const {
    WriteState(passage.before);
    log_.Clear();
    begin();
    Outcome outcome;
    try {
      passage.operation.run(&outcome.sent);
    } catch (const std::exception&) {
      // A feed that cannot be read is refused so.
    }
    outcome.returned = true;
    outcome.isLogged = log_.TellsFailure(passage.before);
    end();
    const Files left = ReadState();
    promise->Try();
    promise->Found(IsDone(passage, left)     ? "done"
                   : IsUndone(passage, left) ? "left as before"
                                             : "in between");
    std::string fault = FaultOfFiles(passage, left, outcome);
    if (fault.empty() && CountSiblings() != 0) fault = "a sibling is left";
    if (fault.empty()) fault = FaultOfNextCalls(passage, left, outcome);
    promise->Judge(passage.operation.name + (", " + label), fault);
  }

 private:
  const StepsLog& log_;
  std::vector<Passage> passages_;
};

// The files that an operation finds and those that it leaves: one of them is hindered at a time.
std::vector<std::string> FilesOf(const Passage& passage) {
  std::vector<std::string> names;
  for (const auto& [name, bytes] : passage.before) {
    const auto after = passage.after.find(name);
    const bool changes = after == passage.after.end() || after->second != bytes;
    if (!name.ends_with('/') && changes) names.push_back(name);
  }
  return names;
}

void ProveHeld(const Prover& prover, Promise* promise) {
  const struct {
    const char* label;
    DWORD share;
  } rows[] = {{"nothing", 0},
              {"reading", FILE_SHARE_READ},
              {"reading and deleting", FILE_SHARE_READ | FILE_SHARE_DELETE},
              {"reading and writing", FILE_SHARE_READ | FILE_SHARE_WRITE}};
  for (const Passage& passage : prover.Passages()) {
    for (const std::string& name : FilesOf(passage)) {
      for (const auto& row : rows) {
        UniqueFile holder;
        prover.Try(
            passage, name + " held, shared for " + row.label,
            [&] {
              holder =
                  UniqueFile(::CreateFileW(PathOf(name).c_str(), GENERIC_READ, row.share, nullptr,
                                           OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
              if (!holder) throw std::runtime_error("the file cannot be held");
            },
            [&] { holder = UniqueFile(); }, promise);
      }
    }
  }
}

// Takes the right to write from the file or folder, or gives it back.
void Deny(const fs::path& path, bool isDenied) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  const bool isMade = ::ConvertStringSecurityDescriptorToSecurityDescriptorW(
      isDenied ? L"D:P(A;;FRFX;;;WD)" : L"D:P(A;;FA;;;WD)", SDDL_REVISION_1, &descriptor, nullptr);
  const bool isSet =
      isMade && ::SetFileSecurityW(path.c_str(), DACL_SECURITY_INFORMATION, descriptor);
  ::LocalFree(descriptor);
  if (!isSet) throw std::runtime_error("the right cannot be changed");
}

void SetReadOnly(const fs::path& path, bool readOnly) {
  ::SetFileAttributesW(path.c_str(), readOnly ? FILE_ATTRIBUTE_READONLY : FILE_ATTRIBUTE_NORMAL);
}

void ProveDenied(const Prover& prover, Promise* promise) {
  for (const Passage& passage : prover.Passages()) {
    for (const std::string& name : FilesOf(passage)) {
      const fs::path path = PathOf(name);
      prover.Try(
          passage, name + " read-only", [&] { SetReadOnly(path, true); },
          [&] { SetReadOnly(path, false); }, promise);
      prover.Try(
          passage, "folder of " + name + " denied", [&] { Deny(path.parent_path(), true); },
          [&] { Deny(path.parent_path(), false); }, promise);
      prover.Try(
          passage, name + " and its folder denied",
          [&] {
            Deny(path, true);
            Deny(path.parent_path(), true);
          },
          [&] {
            Deny(path.parent_path(), false);
            Deny(path, false);
          },
          promise);
    }
  }
}

// Writes blocks until there are so many or the disk is full. Returns how many there are.
unsigned WriteBlocks(const fs::path& path, unsigned most) {
  const UniqueFile file(::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) throw std::runtime_error("the file system cannot be filled");
  const std::string block(4096, 'f');
  for (unsigned count = 0; count < most; ++count) {
    DWORD written = 0;
    ::WriteFile(file.get(), block.data(), 4096, &written, nullptr);
    if (written != block.size()) return count;
  }
  return most;
}

void Fill(const fs::path& filler, unsigned blocks) {
  constexpr unsigned kMany = 2048;
  const fs::path reserve = filler.wstring() + L"-reserve";
  const unsigned free = WriteBlocks(reserve, blocks);
  if (free != blocks || WriteBlocks(filler, kMany) == kMany) {
    throw std::runtime_error("the file system is not a small one");
  }
  fs::remove(reserve);
}

void ProveFull(const Prover& prover, unsigned maxBlocks, Promise* promise) {
  const fs::path filler = StateFolders()[0].parent_path() / "filler";
  for (const Passage& passage : prover.Passages()) {
    for (unsigned blocks = 0; blocks <= maxBlocks; ++blocks) {
      prover.Try(
          passage, std::to_string(blocks) + " blocks free", [&] { Fill(filler, blocks); },
          [&] { fs::remove(filler); }, promise);
    }
  }
}

bool Prove(const StepsLog& log, const std::string& mode) {
  const Prover prover(log);
  const std::string unit = "tries, " + std::to_string(prover.Passages().size()) + " operations";
  if (mode == "held") {
    Promise promise("Windows: a file that another program has open costs nothing that was stored");
    ProveHeld(prover, &promise);
    return promise.Print(unit);
  }
  if (mode == "denied") {
    Promise promise("Windows: a missing right to write costs nothing that was stored");
    ProveDenied(prover, &promise);
    return promise.Print(unit);
  }
  if (mode == "full" || mode == "full-wide") {
    Promise promise("Windows: a full disk costs nothing that was stored");
    ProveFull(prover, mode == "full" ? 3 : 20, &promise);
    return promise.Print(unit);
  }
  throw std::runtime_error("no such mode");
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3 || !std::getenv("KUPDATE_TEST_PREFIX")) return 2;
  try {
    const StepsLog log(arguments[1]);
    return Prove(log, arguments[2]) ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "  FAULT  %s\n", error.what());
    std::printf("| %s | %s | not tried | no |\n", arguments[2], error.what());
    return 1;
  }
}
