// The fuzzer's entry: KUPDATE_FUZZ_TARGET names the target. Prints a row when all went well.
#include <cstdint>
#include <cstdlib>

#include "fuzz/fuzz.h"

namespace {

const FuzzTarget* target = nullptr;
Costs costs;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const char* const name = std::getenv("KUPDATE_FUZZ_TARGET");
  for (const FuzzTarget& each : kFuzzTargets) {
    if (name && each.name == name) target = &each;
  }
  Check(target != nullptr, "KUPDATE_FUZZ_TARGET names a target");
  DropLog();
  std::atexit([] { costs.Print(stderr, target->name); });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  costs.Run(*target, {reinterpret_cast<const char*>(data), size});
  return 0;
}
