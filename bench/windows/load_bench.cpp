// Measures what a library costs the host that loads it, beside an empty one.
//   load_bench time LIBRARY EMPTY FOLDER COUNT   loads fresh copies, made in FOLDER, in turns
//   load_bench memory LIBRARY                    private memory of this process, before and after
// Imports nothing but the system's kernel library, so that no other is there before.
#include "util/win/windows_lean.h"

#define PSAPI_VERSION 2
#include <psapi.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "dllkupdate.h"

namespace {

constexpr double kMostMoreMillis = 2;
constexpr double kMostKilobytes = 1024;

double Millis() {
  LARGE_INTEGER now;
  LARGE_INTEGER perSecond;
  ::QueryPerformanceCounter(&now);
  ::QueryPerformanceFrequency(&perSecond);
  return 1e3 * static_cast<double>(now.QuadPart) / static_cast<double>(perSecond.QuadPart);
}

// A copy under a name that was not loaded before.
double LoadFreshCopy(const wchar_t* library, const wchar_t* folder, int number) {
  const std::wstring copy = std::wstring(folder) + L"\\copy" + std::to_wstring(number) + L".dll";
  if (!::CopyFileW(library, copy.c_str(), FALSE)) std::exit(2);
  const double start = Millis();
  const HMODULE module = ::LoadLibraryW(copy.c_str());
  if (!module) {
    std::fprintf(stderr, "failed: loading a copy, error %lu\n", ::GetLastError());
    std::exit(2);
  }
  ::FreeLibrary(module);
  const double millis = Millis() - start;
  ::DeleteFileW(copy.c_str());
  return millis;
}

double At(std::vector<double> times, double share) {
  std::sort(times.begin(), times.end());
  const auto index = static_cast<std::size_t>(share * static_cast<double>(times.size()));
  return times[std::min(index, times.size() - 1)];
}

// The first load of a process finds none of the system's libraries that are needed.
bool ReportTimes(const char* what, const std::vector<double>& library,
                 const std::vector<double>& empty) {
  const double more = At(library, 0.5) - At(empty, 0.5);
  const bool met = more <= kMostMoreMillis;
  std::printf("| %s (%zu) | %.2f ms | %.2f ms | %.2f ms | %+.2f ms | +2 ms | %s |\n", what,
              library.size(), At(library, 0.5), At(library, 0.99), At(library, 1), more,
              met ? "yes" : "no");
  return met;
}

int CompareTimes(const wchar_t* library, const wchar_t* empty, const wchar_t* folder, int count) {
  std::vector<double> libraryTimes, emptyTimes;
  for (int i = 0; i <= count; ++i) {
    emptyTimes.push_back(LoadFreshCopy(empty, folder, 2 * i));
    libraryTimes.push_back(LoadFreshCopy(library, folder, 2 * i + 1));
  }
  std::fprintf(stderr, "  first load of a process: %.2f ms, of the empty library %.2f ms\n",
               libraryTimes[0], emptyTimes[0]);
  libraryTimes.erase(libraryTimes.begin());
  emptyTimes.erase(emptyTimes.begin());
  return ReportTimes("load and free", libraryTimes, emptyTimes) ? 0 : 1;
}

double PrivateKilobytes() {
  PROCESS_MEMORY_COUNTERS_EX counters = {};
  ::GetProcessMemoryInfo(::GetCurrentProcess(),
                         reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters), sizeof counters);
  return static_cast<double>(counters.PagefileUsage) / 1024;
}

template <class Function>
Function* Find(HMODULE library, const char* name) {
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(::GetProcAddress(library, name)));
}
#define FIND(name) Find<decltype(name)>(library, #name)

// The first call of each function, in the order of their ordinals; the one that needs the transfer
// service most comes first.
void CallEach(HMODULE library) {
  constexpr char kId[] = "memory";
  constexpr char kUrl[] = "http://127.0.0.1:9/feed.xml";
  char text[64];
  wchar_t wideText[64];
  std::int32_t size = sizeof text;
  std::int32_t chars = 64;
  std::int32_t number = 0;
  bool available = false;
  FIND(DLLForceUpdateCheck)(kId, false);
  FIND(DLLGetApplicationState)(kId, text, &size);
  FIND(DLLGetOptionalParam)(kId, text, &size);
  FIND(DLLIsUpgradeAvailable)(kId, 0, &available);
  FIND(DLLOnApplicationStartup)(kId, "win64", kUrl, kUrl, 86400, 1, 0, 0, 0, true);
  FIND(DLLOnApplicationUninstall)(kId);
  FIND(DLLSetApplicationState)(kId, "dayuse");
  FIND(DLLSetExecutorPath)(nullptr);
  FIND(DLLSetOptionalParam)(kId, "a=1");
  FIND(DLLUsageReport)(kId, "a=2");
  FIND(DLLDownloadAndInstallSilentUpdate)(&number);
  FIND(DLLGetLocale)(kId, text, &size);
  FIND(DLLGetUniqUserId)();
  FIND(DLLGetUniqueParam)(kId, "name", wideText, &chars);
  FIND(DLLIsUpdateAvailable)(kId, "win64", 1, 0, 0, 0, true, kUrl, "start", &number);
  FIND(DLLIsUpdateAvailable)(kId, "win64", 1, 0, 0, 0, true, kUrl, "stop", &number);
  FIND(DLLSetLocale)(kId, "en");
  FIND(DLLSetUniqueParam)(kId, "name", L"value");
}

int MeasureMemory(const wchar_t* path) {
  const double before = PrivateKilobytes();
  const HMODULE library = ::LoadLibraryW(path);
  if (!library) return 2;
  const double loaded = PrivateKilobytes() - before;
  CallEach(library);
  const double called = PrivateKilobytes() - before;
  std::printf("| %.0f %.0f %.0f |\n", before, loaded, called);
  return called <= kMostKilobytes ? 0 : 1;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  const std::wstring mode = argc > 1 ? argv[1] : L"";
  if (mode == L"time" && argc == 6) return CompareTimes(argv[2], argv[3], argv[4], _wtoi(argv[5]));
  if (mode == L"memory" && argc == 3) return MeasureMemory(argv[2]);
  std::fprintf(stderr,
               "usage: load_bench time LIBRARY EMPTY FOLDER COUNT | load_bench memory LIBRARY\n");
  return 2;
}
