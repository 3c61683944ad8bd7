// The library is loaded and freed again and again.
#include <vector>

#include "proof/storm.h"
#include "proof/storm_row.h"
#include "testing/data_home.h"
#include "testing/dll_client.h"
#include "util/win/windows_lean.h"

#include <psapi.h>

namespace storm {

using namespace testing_dll;

namespace {

constexpr int kWarmUpCycles = 50;
// What the allocators of the system and of Wine may keep.
constexpr long kSlackKilobytes = 1024;

struct Usage {
  long handles = 0;
  long kilobytes = 0;
  long freeTlsIndexes = 0;
};

long FreeTlsIndexes() {
  std::vector<DWORD> taken;
  for (DWORD index = ::TlsAlloc(); index != TLS_OUT_OF_INDEXES; index = ::TlsAlloc()) {
    taken.push_back(index);
  }
  for (const DWORD index : taken) ::TlsFree(index);
  return static_cast<long>(taken.size());
}

Usage UsageNow() {
  DWORD handles = 0;
  PROCESS_MEMORY_COUNTERS memory = {};
  ::GetProcessHandleCount(::GetCurrentProcess(), &handles);
  ::GetProcessMemoryInfo(::GetCurrentProcess(), &memory, sizeof memory);
  return {static_cast<long>(handles), static_cast<long>(memory.PagefileUsage / 1024),
          FreeTlsIndexes()};
}

// One cycle: a word that is no state makes the library throw inside.
bool LoadCallFree() {
  const HMODULE module = ::LoadLibraryW(Setting(L"KUPDATE_DLL").c_str());
  if (!module) return false;
  const FARPROC address = ::GetProcAddress(module, MAKEINTRESOURCEA(7));
  const auto setState =
      reinterpret_cast<decltype(&DLLSetApplicationState)>(reinterpret_cast<void*>(address));
  const bool done = setState && setState("loaded", "no state") == KUPDATE_S_OK;
  return ::FreeLibrary(module) && done;
}

}  // namespace

bool RunLoading(int cycles) {
  const DataHome home;
  Complaints complaints;
  Usage before;
  for (int cycle = 0; cycle < cycles; ++cycle) {
    if (!LoadCallFree()) complaints.Add("cycle " + std::to_string(cycle) + " failed");
    if (cycle == kWarmUpCycles) before = UsageNow();
    if (cycle % 500 == 0) Progress(std::to_string(cycle) + " cycles");
  }
  const Usage after = UsageNow();
  const long handles = after.handles - before.handles;
  const long kilobytes = after.kilobytes - before.kilobytes;
  const long indexes = before.freeTlsIndexes - after.freeTlsIndexes;
  if (handles > 0) complaints.Add("handles leak");
  if (kilobytes > kSlackKilobytes) complaints.Add("memory leaks");
  if (indexes > 0) complaints.Add("thread-local indexes leak");
  return Row("loading and freeing leaks nothing",
             std::to_string(cycles) + " cycles of load, a call that throws inside, free",
             complaints.Text() + "; handles " + std::to_string(handles) + ", memory " +
                 std::to_string(kilobytes) + " KiB, thread-local indexes " +
                 std::to_string(indexes) + " more than after cycle " +
                 std::to_string(kWarmUpCycles),
             complaints.none());
}

}  // namespace storm
