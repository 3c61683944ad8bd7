// The bare program: what an exported function asks of the system, and nothing else.
#ifndef KUPDATE_BENCH_WINDOWS_OPERATIONS_H_
#define KUPDATE_BENCH_WINDOWS_OPERATIONS_H_

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

/// What one call asks for, in its order.
struct Demand {
  /// One letter an operation; blanks mean nothing.
  ///   l  a line appended to the log: opened, written, closed
  ///   r  a file opened, read whole, closed         o  opened and closed only
  ///   x  an open of a file that is not there       p  a name looked up in a folder
  ///   w  a new file opened, written                f  flushed         v  renamed over another
  ///   d  a file deleted                            y  a file copied
  ///   m  a mutex created   a  waited for   z  released   c  closed
  ///   e  an event created  s  waited for           P  a program started, event or end waited for
  ///   i  COM entered       u  left                 C  the calls of the next service object made
  const char* operations;
  /// What the transfer service is called for, by its journal: each "CreateInstance" is one "C".
  const char* service;
};

/// Meets demands with files, mutexes and jobs of its own; ends the program when the service refuses.
/// Processes that are given the same folder share them, as hosts of one application do.
class Bare {
 public:
  /// @param folder       made when absent
  /// @param state        the text of a state file
  /// @param program      what "P" starts, and jobs are to start
  /// @param commandLine  its whole command line
  Bare(const std::filesystem::path& folder, std::string state, std::wstring program,
       std::wstring commandLine);
  ~Bare();
  Bare(const Bare&) = delete;
  Bare& operator=(const Bare&) = delete;

  /// Makes what must be there before: a job, for demands that get one.
  void Prepare(const Demand& demand);
  void Meet(const Demand& demand);

 private:
  struct Service;
  using Handle = void*;

  void Operation(char letter);
  void FileOperation(char letter);
  void MutexOperation(char letter);
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

/// Cancels this user's jobs: the service takes only so many.
void CancelAllJobs();

#endif  // KUPDATE_BENCH_WINDOWS_OPERATIONS_H_
