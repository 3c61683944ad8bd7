#include "fuzz/fuzz.h"

#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>
#include <stdexcept>

#include "layout/folders.h"
#include "util/diag_log.h"

bool isCounting = false;

namespace {

std::size_t heldBytes = 0;
std::size_t peakBytes = 0;

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

void Costs::Run(FuzzTarget target, std::string_view input) {
  const Cost cost = Measure([&] { target(input); });
  Files().clear();  // now: what is left would be searched for leaks
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

bool IsTaken(std::string_view message, const std::function<void()>& read) {
  std::string thrown;
  try {
    read();
    return true;
  } catch (const std::invalid_argument& error) {
    thrown = error.what();
  } catch (const char* text) {
    thrown = text;
  }
  Check(thrown.starts_with(message), "the message is the known one");
  return false;
}

std::string AppFile(std::string_view name) {
  static const DataFolder& folder = *new DataFolder(kApp);
  return folder.PathOf(name);
}

void DropLog() {
  DiagLog::Instance().Start([] { return std::wstring(); }, {});
}
