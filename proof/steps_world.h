// A user's state files, every operation on them, and what must be true of them when an operation was
// stopped or hindered. Shared by the proofs on both systems.
#ifndef KUPDATE_PROOF_STEPS_WORLD_H_
#define KUPDATE_PROOF_STEPS_WORLD_H_

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

/// Bytes by name below the user's data, "low/app/statistics.xml"; names of folders end with "/" and
/// hold nothing. Siblings (".new", ".bak") are no state and not among them.
using Files = std::map<std::string, std::string>;

/// The user's folders that state files lie in, which are made.
std::vector<std::filesystem::path> StateFolders();
std::filesystem::path PathOf(const std::string& name);
Files ReadState();
/// Makes the state files these and no others; siblings go too.
void WriteState(const Files& files);
/// How many ".new" files there are.
int CountSiblings();

/// Takes what an operation hands out: "application, blank, address" of each block, one a line.
using Sent = std::string;

struct Operation {
  const char* name;
  enum Kind {
    kOneStep,     ///< the state before or the one behind it, nothing between
    kRepeatable,  ///< several values, each the old or the new one; done again it is done
    kMoves,       ///< moves what is to be reported between files
  } kind;
  std::function<void(Sent* sent)> run;
  bool takesBack = false;  ///< what was handed out before may be handed out again
  bool isQuiet = false;    ///< promises to say nothing when it fails
};

/// The applications that they are done to.
inline constexpr const char* kApplications[] = {"app", "Other app"};

/// In the order in which they are to be done, from no file at all to the end.
std::vector<Operation> Operations();

/// An operation between the states that it leads from and to when nothing hinders it.
struct Passage {
  Operation operation;
  Files before;
  Files after;
};

struct Outcome {
  bool returned = false;
  bool isLogged = false;  ///< that it failed
  Sent sent;
};

/// What is wrong with the files that a stopped or hindered operation left; empty: nothing.
std::string FaultOfFiles(const Passage& passage, const Files& left, const Outcome& outcome);

/// Does the operation again where that is due, and then everything a host would do next, with
/// nothing that hinders. Empty when all succeeds, nothing is lost and nothing is reported twice.
std::string FaultOfNextCalls(const Passage& passage, const Files& left, const Outcome& outcome);

/// Whether the operation left the files as it found them, or as it should leave them.
bool IsUndone(const Passage& passage, const Files& left);
bool IsDone(const Passage& passage, const Files& left);
/// Whether something to be reported is in two files.
bool IsInTwoFiles(const Files& files);

/// Sends the log of this process to a file outside of the state and keeps it short.
class StepsLog {
 public:
  explicit StepsLog(const std::filesystem::path& file);
  void Clear() const;
  /// Notes that an operation fails now: the next line must tell so.
  void Mark() const;
  /// Whether a failure is told: next behind the mark; without a mark by a write that failed, or by one
  /// of the files that were there `before` and could not be read.
  bool TellsFailure(const Files& before) const;
  std::string Text() const;

 private:
  std::filesystem::path file_;
};

/// Counts what was tried, tells faults on stderr, and makes the row of one promise.
class Promise {
 public:
  explicit Promise(std::string text) : text_(std::move(text)) {}
  void Try() { ++tried_; }
  /// @param fault  empty: none
  void Judge(const std::string& label, const std::string& fault);
  void Found(const std::string& what) { ++found_[what]; }
  /// Prints the row. @return whether the promise held; one that was never tried did not.
  bool Print(const std::string& unit) const;

 private:
  std::string text_;
  int tried_ = 0;
  int faults_ = 0;
  std::map<std::string, int> found_;
};

#endif  // KUPDATE_PROOF_STEPS_WORLD_H_
