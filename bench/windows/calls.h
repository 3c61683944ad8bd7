// The calls that are measured, and what each of them may ask of the system.
#ifndef KUPDATE_BENCH_WINDOWS_CALLS_H_
#define KUPDATE_BENCH_WINDOWS_CALLS_H_

#include <filesystem>
#include <string>
#include <vector>

#include "bench/windows/operations.h"

inline constexpr char kAppId[] = "bench";

/// How the application's files are when a round begins.
enum class Start {
  kNothingDue,  ///< registered, report and check done a moment ago
  kAllDue,      ///< registered, neither done yet
  kRemoved,     ///< its removal reported
  kUnknown,     ///< never registered, for a user who has an id
};

struct Call {
  const char* name;
  Start start = Start::kNothingDue;
  void (*ready)() = nullptr;  ///< not measured, before each call; null: nothing to do
  void (*run)(int number);    ///< the call; the number differs from call to call
  Demand demand;              ///< what it asks for, to the word: `call_bench trace` compares
  /// Its second call would ask for something else, so eight processes could not all do the same.
  bool once = false;
  /// How many files it may flush and replace, the same number for both; below zero: no bar.
  int mostWrites = -1;
};

/// In an order that must be kept: a path once given to DLLSetExecutorPath is written by all later
/// calls.
const std::vector<Call>& Calls();

/// The application's files for each Start, taken once; of the process that leads the others.
class Fixture {
 public:
  /// Registers the application, which must be unknown, and lets it report and check.
  Fixture();
  /// Puts the files back, and cancels jobs when `call` makes some.
  void Restore(const Call& call) const;
  const std::string& Record() const { return record_; }

 private:
  std::filesystem::path folder_;
  std::filesystem::path localRecord_;
  std::string record_, statistics_, recordDue_, recordRemoved_, statisticsRemoved_;
  std::string local_, localRemoved_;
};

/// The bare program beside them, the same for all processes.
Bare MakeBare();

/// Gives the process its log and its first call.
void MakeFirstCall();

#endif  // KUPDATE_BENCH_WINDOWS_CALLS_H_
