// The measured calls, and the operations that each of them may ask of the system.
#ifndef KUPDATE_BENCH_WINDOWS_CALLS_H_
#define KUPDATE_BENCH_WINDOWS_CALLS_H_

#include <filesystem>
#include <string>
#include <vector>

#include "bench/windows/operations.h"

inline constexpr char kAppId[] = "bench";

/// The state of the application's files at the start of a round.
enum class Start {
  kNothingDue,  ///< registered, report and check done a moment ago
  kAllDue,      ///< registered, neither done yet
  kRemoved,     ///< its removal reported
  kUnknown,     ///< never registered; the user has an id
};

struct Call {
  const char* name;
  Start start = Start::kNothingDue;
  void (*ready)() = nullptr;  ///< not measured, before each call; null: nothing to do
  void (*run)(int number);    ///< the call; the number differs from call to call
  Demand demand;              ///< its operations, compared word by word by `call_bench trace`
  /// Its second call would ask for something else, so eight processes could not all do the same.
  bool once = false;
  /// The most files that it may flush, and the most that it may replace; below zero: no bar.
  int mostWrites = -1;
};

/// The order matters: after DLLSetExecutorPath each later call writes that path.
const std::vector<Call>& Calls();

/// The application's files for each Start, read once, by the leader of the processes.
class Fixture {
 public:
  /// Registers the application, which must be unknown, and makes it report and check.
  Fixture();
  /// Restores the files, and cancels all jobs if `call` uses the service.
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

/// Makes the process's first call of the library, which starts the log.
void MakeFirstCall();

#endif  // KUPDATE_BENCH_WINDOWS_CALLS_H_
