#include <benchmark/benchmark.h>

#include "util/diag_log.h"

int main(int argc, char** argv) {
  // Without a path the log takes its lines and drops them: neither memory nor files are measured.
  DiagLog::Instance().Start([] { return std::wstring(); }, "");
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
}
