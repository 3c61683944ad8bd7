// A user's state files, all that hosts and executors do to them, and the ways to hinder that.
#ifndef KUPDATE_PROOF_STEPS_STEPS_H_
#define KUPDATE_PROOF_STEPS_STEPS_H_

#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

/// Bytes by path. The path of a folder ends with a separator.
using Files = std::map<std::filesystem::path, std::string>;

/// The folders of the user's state files.
const std::vector<std::filesystem::path>& StateFolders();
/// @param siblings  receives the number of ".new" files, which are no state; may be null
Files ReadState(int* siblings = nullptr);
/// Makes the state files these and no others.
void WriteState(const Files& files);

/// The log of this process, which lies outside of the state, with notes of the proof between its lines.
void StartLog(const std::filesystem::path& file);
void ClearLog();
void Note(const std::string& line);
std::vector<std::string> LogLines();
std::set<std::string> ErrorsInLog();
/// The note that an operation fails now: the next line must report that.
inline constexpr char kFailureNote[] = "--- an operation fails";
/// Begins the note of a block that is sent, "application, tab, address".
inline constexpr char kSentNote[] = "--- sent ";

struct Host;

struct Operation {
  enum Kind {
    kOneStep,     ///< leaves the state before or the one behind it, nothing between
    kQuiet,       ///< the same, and logs no failure
    kRepeatable,  ///< several values, each the old or the new one; a second call completes it
    kMoves,       ///< moves what is to be reported between files
    kTakesBack,   ///< the same, and what was sent before may be sent again
  };
  const char* name;
  Kind kind;
  std::function<void(Host&)> work;
  std::string app = "app";
};

inline constexpr const char* kApplications[] = {"app", "Other app"};

/// One life of two applications, from no file at all.
std::vector<Operation> Operations();
void Run(const Operation& operation);
/// An application writes, reads back, and sends all that waits. Returns what is wrong.
std::string FaultOfGoingOn(const std::string& app);

/// An operation between the states that it leads from and to when nothing hinders it.
struct Passage {
  Operation operation;
  Files before;
  Files after = {};
  std::set<std::string> errors = {};  ///< that it logs all the same
};

enum class Progress { kUndone, kBetween, kDone };
Progress ProgressOf(const Passage& passage, const Files& left);
/// Whether statistics of the application wait to be reported.
bool IsWaiting(const std::string& app);
/// Whether something to be reported is in two files.
bool IsInTwoFiles(const Files& files);
/// What is wrong with the files that a stopped or hindered operation left.
/// @param returned  it was not stopped
std::string FaultOfFiles(const Passage& passage, const Files& left, bool returned);
/// Repeats the operation where that is due, then lets both applications go on. Returns whether
/// something fails, is lost or is reported twice.
std::string FaultOfNextCalls(const Passage& passage, const Files& left, bool returned);

struct Hindrance {
  std::string label;
  std::function<void()> begin;
  std::function<void()> end;
};

// For each system:

extern const char kSystem[];
/// The ways of a mode to hinder the operation; for "full" see main.cpp.
std::vector<Hindrance> HindrancesOf(const std::string& mode, const Passage& passage);
inline constexpr int kStopped = 77;
/// Natively in a process of its own. Returns its exit code, `kStopped` when the hindrance ends it.
int RunApart(const Operation& operation);

#endif  // KUPDATE_PROOF_STEPS_STEPS_H_
