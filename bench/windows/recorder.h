// Records the operations that a loaded library asks of the system.
#ifndef KUPDATE_BENCH_WINDOWS_RECORDER_H_
#define KUPDATE_BENCH_WINDOWS_RECORDER_H_

#include <string>

#include "bench/windows/operations.h"

/// Stands between a loaded module and the system's functions that it imports, to the end of the
/// process. For one thread and one module.
class Recorder {
 public:
  /// @param module  an HMODULE. Before its first call, for that looks some functions up.
  explicit Recorder(void* module);

  void Start();
  /// Since Start.
  const Ops& Operations() const;
  /// Other requests: folders made or looked up, registry keys opened (by hosts with an
  /// administrator's rights).
  const std::string& Besides() const;
};

#endif  // KUPDATE_BENCH_WINDOWS_RECORDER_H_
