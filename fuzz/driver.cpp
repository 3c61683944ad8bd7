// The fuzzer's entry: KUPDATE_FUZZ_TARGET names the target. Prints at the end what the run cost.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "fuzz/fuzz.h"

namespace {

// Below that the fixed cost of an input says nothing of its bytes.
constexpr std::size_t kLeastBytes = 1024;

const FuzzTarget* target = nullptr;
long long executions = 0;
double bytesPerByte = 0;
double slowestSeconds = 0;
std::size_t slowestBytes = 0;

void Report() {
  std::fprintf(stderr, "cost: %lld %.1f %.2f %zu\n", executions, bytesPerByte, slowestSeconds * 1e3,
               slowestBytes);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const char* const name = std::getenv("KUPDATE_FUZZ_TARGET");
  for (const FuzzTarget& each : kFuzzTargets) {
    if (name && each.name == name) target = &each;
  }
  Check(target != nullptr, "KUPDATE_FUZZ_TARGET names a target");
  DropLog();
  std::atexit(Report);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const Cost cost = Measure([&] { target->run(input); });
  Files().clear();  // now: what is left would be searched for leaks
  Check(cost.peakBytes <= AllowedBytes(size), "memory is bounded by the input");
  ++executions;
  if (size >= kLeastBytes) {
    bytesPerByte =
        std::max(bytesPerByte, static_cast<double>(cost.peakBytes) / static_cast<double>(size));
  }
  if (cost.seconds > slowestSeconds) {
    slowestSeconds = cost.seconds;
    slowestBytes = size;
  }
  return 0;
}
