#include "fuzz/fuzz.h"

#include <malloc.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <utility>

#include "layout/folders.h"
#include "util/diag_log.h"

namespace {

bool counting = false;
std::size_t heldBytes = 0;
std::size_t peakBytes = 0;

double ProcessorSeconds() {
  timespec time;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

}  // namespace

void* operator new(std::size_t size) {
  void* const memory = std::malloc(size);
  if (!memory) throw std::bad_alloc();
  if (counting) heldBytes += malloc_usable_size(memory);
  peakBytes = std::max(peakBytes, heldBytes);
  return memory;
}

void operator delete(void* memory) noexcept {
  // What was allocated before the call and is freed in it counts as nothing.
  if (counting) heldBytes -= std::min(heldBytes, malloc_usable_size(memory));
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
  const double start = ProcessorSeconds();
  counting = true;
  call();
  StopCounting();
  return {ProcessorSeconds() - start, peakBytes};
}

void Costs::Run(const FuzzTarget& target, std::string_view input) {
  const Cost cost = Measure([&] { target.run(input); });
  Files().clear();  // now: what is left would be searched for leaks
  Check(IsSmall(cost, input.size()), "memory is bounded by the input");
  ++inputs;
  seconds += cost.seconds;
  if (input.size() >= 1024) {
    bytesPerByte = std::max(
        bytesPerByte, static_cast<double>(cost.peakBytes) / static_cast<double>(input.size()));
  }
  if (cost.seconds <= slowest) return;
  slowest = cost.seconds;
  slowestBytes = input.size();
}

void Costs::Print(std::FILE* file, std::string_view name) const {
  std::fprintf(file, "| %s | %d | %.1f | %.1f | %.1f ms for %zu bytes | ok |\n",
               std::string(name).c_str(), inputs, seconds, bytesPerByte, slowest * 1e3,
               slowestBytes);
}

void StopCounting() { counting = false; }

Uncounted::Uncounted() : was_(std::exchange(counting, false)) {}
Uncounted::~Uncounted() { counting = was_; }

void Check(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "property broken: %s\n", property);
  std::abort();
}

std::string_view TakeLine(std::string_view* text) {
  const std::string_view line = text->substr(0, text->find('\n'));
  text->remove_prefix(std::min(line.size() + 1, text->size()));
  return line;
}

std::string AppFile(std::string_view name) {
  static const DataFolder& folder = *new DataFolder(kApp);
  return folder.PathOf(name);
}
std::string MakerFile(std::string_view name) { return GetMakerFolder().append(name); }

void DropLog() {
  DiagLog::Instance().Start([] { return std::wstring(); }, {});
}
