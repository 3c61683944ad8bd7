// The fuzzer's entry: KUPDATE_FUZZ_TARGET names the target. Prints a row when all went well.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string name = std::getenv("KUPDATE_FUZZ_TARGET");
  static Costs costs;
  static const int atExit = std::atexit([] { std::fputs(costs.Row(name).c_str(), stderr); });
  costs.Run(kFuzzTargets.at(name), {reinterpret_cast<const char*>(data), size});
  return atExit;
}
