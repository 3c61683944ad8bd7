#include <benchmark/benchmark.h>
#include <malloc.h>

#include <limits>
#include <string>

#include "util/diag_log.h"

int main(int argc, char** argv) {
  // Freed memory stays in the process. Else most of the time of a large tree is the system's, for
  // giving out and clearing pages, and differs with what was measured before.
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
  // Without a path the log takes its lines and drops them: neither memory nor files are measured.
  DiagLog::Instance().Start([] { return std::wstring(); }, "");
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
}
