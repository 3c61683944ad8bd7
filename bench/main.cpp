#include <benchmark/benchmark.h>
#include <malloc.h>

#include <limits>
#include <string>
#include <string_view>

#include "util/diag_log.h"

// With the argument "--fresh" memory comes from the system for each tree, as in a process that
// reads one feed. Without it, freed memory stays in the process. Otherwise most of the time of a
// large tree would be the system's, for clearing pages, and would depend on earlier benchmarks.
int main(int argc, char** argv) {
  const bool isFresh = argc > 1 && std::string_view(argv[1]) == "--fresh";
  if (isFresh) {
    // The library of benchmarks refuses arguments that it does not know.
    argv[1] = argv[0];
    ++argv;
    --argc;
  } else {
    // No block gets a mapping of its own, which a free would end; and the heap never shrinks.
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
  }
  // Without a path the log drops its lines: neither its memory nor its file may be measured.
  DiagLog::Instance().Start([] { return std::wstring(); }, "");
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
}
