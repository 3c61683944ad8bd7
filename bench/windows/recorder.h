// What a loaded library asks of the system, written down as it asks.
#ifndef KUPDATE_BENCH_WINDOWS_RECORDER_H_
#define KUPDATE_BENCH_WINDOWS_RECORDER_H_

#include <string>

#include "bench/windows/operations.h"

/// Puts itself between a loaded module and the system's functions that it imports, for the rest of
/// the process. One thread, one module.
class Recorder {
 public:
  /// @param module  an HMODULE; none of its functions called yet, for some imports are found then
  explicit Recorder(void* module);

  void Start();
  /// Since Start.
  const Ops& Operations() const;
  /// What was asked for besides: folders made or looked up, registry keys opened (by hosts with an
  /// administrator's rights).
  const std::string& Besides() const;
};

#endif  // KUPDATE_BENCH_WINDOWS_RECORDER_H_
