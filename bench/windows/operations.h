// The bare program: the operations of an exported function, and nothing else.
#ifndef KUPDATE_BENCH_WINDOWS_OPERATIONS_H_
#define KUPDATE_BENCH_WINDOWS_OPERATIONS_H_

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

/// Operations of the system. The comments begin with their words in traces.
enum class Op {
  kLog,       ///< "log": a line appended to the log; opened, written, closed
  kRead,      ///< "read": a file opened, read whole, closed
  kOpen,      ///< "open": opened and closed only
  kMiss,      ///< "miss": an open of a file that is not there
  kLook,      ///< "look": a name looked up in a folder
  kWrite,     ///< "write": a new file opened, written
  kFlush,     ///< "flush": the new file
  kReplace,   ///< "replace": the new file renamed over another
  kDelete,    ///< "delete"
  kCopy,      ///< "copy"
  kMutex,     ///< "mutex": made
  kAcquire,   ///< "acquire"
  kRelease,   ///< "release"
  kClose,     ///< "close": the mutex
  kEvent,     ///< "event": made
  kWait,      ///< "wait": for the event
  kProgram,   ///< "program": started, event or end waited for
  kEnterCom,  ///< "enter-com"
  kLeaveCom,  ///< "leave-com"
  kService,   ///< "service": the calls of the next service object made
};
using Ops = std::vector<Op>;

/// Reads a trace such as "log*3 mutex acquire": "*3" means three times, and some words stand for a
/// sequence, as "save" for "write flush replace". Ends the program for unknown words.
Ops OpsOf(const std::string& trace);
/// The reverse, in words for single operations.
std::string TraceOf(const Ops& operations);

/// The operations of one call, in their order.
struct Demand {
  Ops operations;
  /// The calls to the transfer service, as in its journal. A `kService` stands for a
  /// "CreateInstance" and all calls up to the next one.
  const char* service = "";
};

/// Meets demands with files, mutexes and jobs of its own; ends the program when the service
/// refuses. Processes with the same folder share them, as hosts of one application do.
class Bare {
 public:
  /// @param folder       made if missing
  /// @param state        the text of a state file
  /// @param program      the program for `kProgram` and for jobs
  /// @param commandLine  its whole command line
  Bare(const std::filesystem::path& folder, std::string state, std::wstring program,
       std::wstring commandLine);
  ~Bare();
  Bare(const Bare&) = delete;
  Bare& operator=(const Bare&) = delete;

  /// Makes a job for demands that use an earlier one. Not measured.
  void Prepare(const Demand& demand);
  void Meet(const Demand& demand);

 private:
  struct Service;
  using Handle = void*;

  void Operation(Op operation);
  void FileOperation(Op operation);
  void MutexOperation(Op operation);
  void StartProgram();
  /// Makes the calls up to the next object of the service.
  void UseService();
  long ServiceCall(std::string_view call);

  std::wstring log_, present_, missing_, fresh_, target_;
  std::string line_, state_, content_;
  std::wstring program_, commandLine_;
  std::vector<Handle> mutexes_;
  Handle replacement_ = nullptr;
  Handle event_ = nullptr;
  std::string_view calls_;  // of the service, still to be made
  Service* service_;
};

/// Cancels this user's jobs, whose number the service limits.
void CancelAllJobs();

#endif  // KUPDATE_BENCH_WINDOWS_OPERATIONS_H_
