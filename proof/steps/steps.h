// A user's state files, all that hosts and executors do to them, and the ways to hinder that.
#ifndef KUPDATE_PROOF_STEPS_STEPS_H_
#define KUPDATE_PROOF_STEPS_STEPS_H_

#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace fs = std::filesystem;

/// Bytes by path. The path of a folder ends with a separator.
using Files = std::map<fs::path, std::string>;

/// The folder of the user's data: what is below "Krelix" in its folders is state.
extern fs::path userFolder;
std::vector<fs::path> StateFolders();
/// @param siblings  receives the number of ".new" files, which are no state; may be null
Files ReadState(int* siblings = nullptr);
/// Makes the state files these and no others.
void WriteState(const Files& files);

/// The log of this process, with notes of the proof between its lines.
struct Log {
  std::set<std::string> errors;  ///< lines without their time
  std::string sent;              ///< the addresses of blocks
};
void StartLog(const fs::path& file);
void ClearLog();
void NoteSent(const std::string& address);
Log ReadLog();

enum class Kind {
  kOneStep,     ///< leaves the state before or the one behind it, nothing between
  kQuiet,       ///< the same, and logs no failure
  kRepeatable,  ///< several values, each the old or the new one; a second call completes it
  kMoves,       ///< moves what is to be reported between files
  kTakesBack,   ///< the same, and what was sent before may be sent again
};

struct Operation {
  std::string app;
  std::string verb;
  std::string text;
  Kind kind;
};

inline constexpr const char* kApplications[] = {"app", "Other app"};

/// One life of both applications, from no file at all.
std::vector<Operation> Operations();
void Run(const Operation& operation);
/// An application writes and reads back. Returns what is wrong.
std::string FaultOfStores(const std::string& app);
/// An application sends what waits, one block for each state, and all of it arrives.
std::string FaultOfReport(const std::string& app);

/// An operation between the states that it leads from and to when nothing hinders it.
struct Passage {
  Operation operation;
  Files before;
  Files after = {};
  std::set<std::string> errors = {};  ///< that it logs all the same
};

/// What a stopped or hindered operation left.
struct Outcome {
  Files left;
  bool returned;
  bool isFailureLogged;
};

inline constexpr char kDone[] = "done";
inline constexpr char kUndone[] = "left as before";
/// One of those, or "in between".
std::string ProgressOf(const Passage& passage, const Files& left);
/// Whether something to be reported is in two files.
bool IsInTwoFiles(const Files& files);
std::string FaultOfFiles(const Passage& passage, const Outcome& outcome);
/// Repeats the operation where that is due, then lets both applications go on. Returns what fails,
/// is lost or is sent twice.
std::string FaultOfNextCalls(const Passage& passage, const Outcome& outcome);

struct Hindrance {
  std::string label;
  std::function<void()> begin;
  std::function<void()> end;
};

// For each system:

/// The ways of a mode to hinder the operation; for "full" see main.cpp.
std::vector<Hindrance> HindrancesOf(const std::string& mode, int most, const Passage& passage);
inline constexpr int kStopped = 77;
/// Natively in a process of its own. Returns its exit code, `kStopped` when the hindrance ends it.
int RunApart(const std::function<void()>& work);

#endif  // KUPDATE_PROOF_STEPS_STEPS_H_
