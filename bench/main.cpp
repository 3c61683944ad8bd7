#include <benchmark/benchmark.h>
#include <malloc.h>

#include <limits>
#include <string>
#include <string_view>

#include "util/diag_log.h"

// With the argument "--fresh" memory comes from the system again and again, as for a process that
// reads one feed. Without it what was freed stays in the process: else most of the time of a large
// tree is the system's, for clearing pages, and differs with what was measured before.
int main(int argc, char** argv) {
  const bool isFresh = argc > 1 && std::string_view(argv[1]) == "--fresh";
  if (isFresh) {
    argv[1] = argv[0];
    ++argv;
    --argc;
  } else {
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
  }
  // Without a path the log takes its lines and drops them: neither memory nor files are measured.
  DiagLog::Instance().Start([] { return std::wstring(); }, "");
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
}
