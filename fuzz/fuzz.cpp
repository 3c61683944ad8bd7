#include "fuzz/fuzz.h"

#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>

#include "testing/data_home.h"
#include "util/diag_log.h"

namespace fs = std::filesystem;

namespace {

bool isCounting = false;
std::size_t heldBytes = 0, peakBytes = 0;

// The folder of the application's files. The log takes lines from here on without keeping them.
const fs::path& AppFolder() {
  static const DataHome home;
  static const fs::path folder = [] {
    DiagLog::Instance().Start([] { return std::wstring(); }, {});
    return home.AppFolder(kApp);
  }();
  return folder;
}

}  // namespace

void* operator new(std::size_t size) {
  void* const memory = std::malloc(size);
  if (!memory) throw std::bad_alloc();
  if (isCounting) heldBytes += malloc_usable_size(memory);
  peakBytes = std::max(peakBytes, heldBytes);
  return memory;
}

void operator delete(void* memory) noexcept {
  // What was allocated before the call and is freed in it counts as nothing.
  if (isCounting) heldBytes -= std::min(heldBytes, malloc_usable_size(memory));
  std::free(memory);
}

// The other forms, since a sanitizer's own would go past these.
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return std::malloc(size); }
void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }
void operator delete[](void* memory) noexcept { operator delete(memory); }
void operator delete[](void* memory, std::size_t) noexcept { operator delete(memory); }

Cost Measure(const std::function<void()>& call) {
  heldBytes = peakBytes = 0;
  const std::clock_t start = std::clock();
  isCounting = true;
  call();
  isCounting = false;
  return {static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC, peakBytes};
}

void StopCounting() { isCounting = false; }

void Costs::Run(FuzzTarget target, std::string_view input) {
  RemoveAppFiles();
  const Cost cost = Measure([&] { target(input); });
  Check(cost.IsSmall(input.size()), "memory is bounded by the input");
  ++inputs;
  seconds += cost.seconds;
  const double ratio = static_cast<double>(cost.peakBytes) / static_cast<double>(input.size());
  if (input.size() >= 1024) bytesPerByte = std::max(bytesPerByte, ratio);
  if (cost.seconds <= slowest) return;
  slowest = cost.seconds;
  slowestBytes = input.size();
}

std::string Costs::Row(const std::string& name) const {
  char text[200];
  std::snprintf(text, sizeof text, "| %s | %d | %.1f | %.1f | %.1f ms for %zu bytes | ok |\n",
                name.c_str(), inputs, seconds, bytesPerByte, slowest * 1e3, slowestBytes);
  return text;
}

void Check(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "property broken: %s\n", property);
  std::abort();
}

fs::path AppFile(std::string_view name) { return AppFolder() / name; }

void RemoveAppFiles() {
  for (const auto& file : fs::directory_iterator(AppFolder())) fs::remove(file);
}
