// loading CYCLES: loads the library, calls it and frees it, again and again. Prints after cycle 50
// and in the end how many handles and KiB the process uses, and how many thread-local indexes are
// free. Exit code 1: a cycle failed.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "dllkupdate.h"
#include "testing/transfer_service.h"
#include "util/win/windows_lean.h"

#include <psapi.h>

namespace {

constexpr int kWarmUpCycles = 50;

void PrintUsage() {
  PROCESS_MEMORY_COUNTERS memory = {};
  std::vector<DWORD> indexes;
  // The lowest free one: Wine does not count them.
  const HANDLE handle = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
  const std::size_t handles = reinterpret_cast<std::uintptr_t>(handle) / 4;
  ::CloseHandle(handle);
  ::GetProcessMemoryInfo(::GetCurrentProcess(), &memory, sizeof memory);
  for (DWORD index = ::TlsAlloc(); index != TLS_OUT_OF_INDEXES; index = ::TlsAlloc()) {
    indexes.push_back(index);
  }
  for (const DWORD index : indexes) ::TlsFree(index);
  std::printf("%zu %zu %zu\n", handles, memory.PagefileUsage / 1024, indexes.size());
}

// A word that is no state makes the library throw inside.
bool LoadCallFree() {
  const HMODULE module = ::LoadLibraryW(testing_dll::Setting(L"KUPDATE_DLL").c_str());
  const auto setState = reinterpret_cast<decltype(&DLLSetApplicationState)>(
      reinterpret_cast<void*>(::GetProcAddress(module, "DLLSetApplicationState")));
  const bool done = setState && setState("loaded", "no state") == KUPDATE_S_OK;
  return ::FreeLibrary(module) && done;
}

}  // namespace

int main(int argc, char** argv) {
  const int cycles = argc > 1 ? std::atoi(argv[1]) : 0;
  for (int cycle = 0; cycle < cycles; ++cycle) {
    if (!LoadCallFree()) return 1;
    if (cycle == kWarmUpCycles) PrintUsage();
  }
  PrintUsage();
}
