// Measures the time that a host needs to load a library, beside an empty library.
//   load_bench LIBRARY EMPTY FOLDER COUNT   loads fresh copies, made in FOLDER, in turns
// This program imports the kernel library only. The bar is for hosts that have advapi32, as each
// program with windows has. For other hosts there is a row without a bar.
#include "util/win/windows_lean.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

constexpr double kMostMoreMillis = 2;

double Millis() {
  LARGE_INTEGER now;
  LARGE_INTEGER perSecond;
  ::QueryPerformanceCounter(&now);
  ::QueryPerformanceFrequency(&perSecond);
  return 1e3 * static_cast<double>(now.QuadPart) / static_cast<double>(perSecond.QuadPart);
}

// Loads a copy under a new name, so that the system does not know the library yet.
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

bool ReportTimes(const char* what, const std::vector<double>& library,
                 const std::vector<double>& empty, bool hasBar) {
  const double more = At(library, 0.5) - At(empty, 0.5);
  const bool met = more <= kMostMoreMillis;
  std::printf("| %s (%zu) | %.2f ms | %.2f ms | %.2f ms | %+.2f ms | %s | %s |\n", what,
              library.size(), At(library, 0.5), At(library, 0.99), At(library, 1), more,
              hasBar ? "+2 ms" : "",
              !hasBar ? ""
              : met   ? "yes"
                      : "no");
  return met || !hasBar;
}

bool Compare(const char* what, const wchar_t* const paths[], int count, bool hasBar) {
  std::vector<double> libraryTimes, emptyTimes;
  // In turns, so that a busy machine slows both.
  for (int i = 0; i <= count; ++i) {
    emptyTimes.push_back(LoadFreshCopy(paths[1], paths[2], 2 * i));
    libraryTimes.push_back(LoadFreshCopy(paths[0], paths[2], 2 * i + 1));
  }
  std::fprintf(stderr, "  first load: %.2f ms, of the empty library %.2f ms\n", libraryTimes[0],
               emptyTimes[0]);
  // The first load also loads libraries of the system, which later ones find.
  libraryTimes.erase(libraryTimes.begin());
  emptyTimes.erase(emptyTimes.begin());
  return ReportTimes(what, libraryTimes, emptyTimes, hasBar);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc == 5) {
    const int count = _wtoi(argv[4]);
    Compare("load and free, host without advapi32", argv + 1, count, false);
    // As in a program with windows. It is never freed, so all later loads find it.
    ::LoadLibraryW(L"advapi32.dll");
    return Compare("load and free", argv + 1, count, true) ? 0 : 1;
  }
  std::fprintf(stderr, "usage: load_bench LIBRARY EMPTY FOLDER COUNT\n");
  return 2;
}
