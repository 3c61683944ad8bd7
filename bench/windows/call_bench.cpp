// Measures the exported functions of the built library beside a bare program.
//   call_bench trace            compares each call's operations with the table in calls.cpp
//   call_bench memory           measures the private memory that loading and calling adds
//   call_bench measure SECONDS  measures each call for that time; prints rows of a table
#include "bench/windows/calls.h"

#include "util/win/windows_lean.h"

#define PSAPI_VERSION 2
#include <psapi.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/windows/recorder.h"
#include "bench/windows/team.h"
#include "testing/data_home.h"
#include "testing/dll_client.h"

using testing_dll::Setting;

namespace {

// The bars: a call takes at most 1.5 times the bare program's time, the library at most 1 MB.
constexpr double kMostRatio = 1.5;
constexpr double kMostKilobytes = 1024;
// Rounds with jobs take seconds on a busy machine.
constexpr int kFewestRounds = 6;

std::filesystem::path Journal() {
  return std::filesystem::path(Setting(L"KUPDATE_STANDIN_FOLDER")) / "journal.jsonl";
}

// The calls in the service's journal behind `start`, in the form of Demand::service.
std::string ServiceCalls(std::size_t start) {
  const std::string text = ReadBytes(Journal()).substr(start);
  const std::string key = "\"call\":\"";
  std::string calls;
  for (std::size_t at = text.find(key); at != text.npos; at = text.find(key, at)) {
    at += key.size();
    if (!calls.empty()) calls += ' ';
    calls += text.substr(at, text.find('"', at) - at);
  }
  return calls;
}

bool Same(const Call& call, const char* who, const std::string& want, const std::string& found) {
  if (want == found) return true;
  std::fprintf(stderr, "%s: %s asks for\n  %s\nbut the table says\n  %s\n", call.name, who,
               found.c_str(), want.c_str());
  return false;
}

// Flushes and replacements are the operations that wait for the disk.
bool PrintWrites(const Call& call, const Ops& operations) {
  const auto flushes = std::count(operations.begin(), operations.end(), Op::kFlush);
  const auto replacements = std::count(operations.begin(), operations.end(), Op::kReplace);
  const bool met = call.mostWrites < 0 || std::max(flushes, replacements) <= call.mostWrites;
  std::printf("| %s: files flushed, files replaced | %d, %d | | | | %s | %s |\n", call.name,
              static_cast<int>(flushes), static_cast<int>(replacements),
              call.mostWrites < 0 ? "" : std::to_string(call.mostWrites).c_str(),
              met ? "yes" : "no");
  return met;
}

int Trace() {
  // Before the fixture: its calls are the library's first, and find functions that the recorder
  // must replace.
  Recorder recorder(testing_dll::DllModule());
  const Fixture fixture;
  Bare bare = MakeBare();
  int differing = 0;
  bool held = true;
  for (const Call& call : Calls()) {
    fixture.Restore(call);
    if (call.ready) call.ready();
    std::size_t start = ReadBytes(Journal()).size();
    recorder.Start();
    call.run(1);
    const Ops operations = recorder.Operations();
    std::fprintf(stderr, "%-36s %zu operations, besides%s\n", call.name, operations.size(),
                 recorder.Besides().c_str());
    // "&", so that one run shows every difference.
    bool same = Same(call, "the library", TraceOf(call.demand.operations), TraceOf(operations)) &
                Same(call, "the library of the service", call.demand.service, ServiceCalls(start));
    bare.Prepare(call.demand);
    // The bare program must ask for the same; otherwise the ratio of the two means nothing.
    start = ReadBytes(Journal()).size();
    bare.Meet(call.demand);
    same &= Same(call, "the bare program of the service", call.demand.service, ServiceCalls(start));
    differing += !same;
    held &= PrintWrites(call, operations);
  }
  std::printf("| calls whose trace differs from the table, of %zu | %d | | | | 0 | %s |\n",
              Calls().size(), differing, differing == 0 ? "yes" : "no");
  return differing == 0 && held ? 0 : 1;
}

// The memory that the system counts as this process's own, in kilobytes.
double PrivateMemory() {
  PROCESS_MEMORY_COUNTERS counters = {};
  ::GetProcessMemoryInfo(::GetCurrentProcess(), &counters, sizeof counters);
  return static_cast<double>(counters.PagefileUsage) / 1024;
}

// The bare program goes first, so that the memory of the system's own libraries is there already.
// Creating the user's id loads the browser's library, so it is measured separately.
int MeasureMemory() {
  Bare bare = MakeBare();
  const std::filesystem::path userId = testing_dll::RoamingFolder().parent_path() / "ui";
  // With this file there is an id, and the library does not create one.
  WriteBytes(userId, "{01234567-89AB-CDEF-0123-456789ABCDEF}");
  for (const Call& call : Calls()) {
    bare.Prepare(call.demand);
    bare.Meet(call.demand);
  }
  const double before = PrivateMemory();
  testing_dll::DllModule();
  const double loaded = PrivateMemory() - before;
  double most = loaded;
  for (const Call& call : Calls()) {
    if (call.ready) call.ready();
    call.run(1);
    const double now = PrivateMemory() - before;
    std::fprintf(stderr, "  %-36s %+.0f KB\n", call.name, now);
    most = std::max(most, now);
  }
  CancelAllJobs();
  // Without the file the next call creates the id.
  std::filesystem::remove(userId);
  testing_dll::Dll().getUniqUserId();
  const double withId = PrivateMemory() - before;
  const bool met = most <= kMostKilobytes;
  std::printf("| private memory after loading | %.0f KB | | | | | |\n", loaded);
  std::printf(
      "| private memory after each function's first call | | | %.0f KB | | %.0f KB | %s |\n", most,
      kMostKilobytes, met ? "yes" : "no");
  std::printf("| private memory after a user's id was made | %.0f KB | | | | | |\n", withId);
  return met ? 0 : 1;
}

struct Times {
  std::vector<double> micros;

  // The time that this share of all calls does not exceed.
  double At(double share) {
    std::sort(micros.begin(), micros.end());
    const auto index = static_cast<std::size_t>(share * static_cast<double>(micros.size()));
    return micros[std::min(index, micros.size() - 1)];
  }
};

// Library and bare program take turns, also in being first: a busy machine slows both.
bool MeasureCall(Team* team, const Fixture& fixture, int index, int processes, double seconds) {
  const Call& call = Calls()[static_cast<std::size_t>(index)];
  // A user may have only so many jobs, so a call that makes jobs is made once in a round.
  const int calls = call.once || *call.demand.service ? 1 : kMostCalls / (processes == 1 ? 1 : 2);
  Times library, bare;
  const ULONGLONG end = ::GetTickCount64() + static_cast<ULONGLONG>(1000 * seconds);
  for (int round = 0; round < kFewestRounds || ::GetTickCount64() < end; ++round) {
    for (int turn = 0; turn < 2; ++turn) {
      const Side side = (round + turn) % 2 == 0 ? Side::kLibrary : Side::kBare;
      fixture.Restore(call);
      team->Round(index, side, processes, calls,
                  side == Side::kLibrary ? &library.micros : &bare.micros);
    }
  }
  const double ratio = library.At(0.5) / bare.At(0.5);
  const bool met = ratio <= kMostRatio;
  std::printf("| %s, %d at once (%zu calls) | %.0f µs | %.0f µs | %.0f µs | %.2f | %.1f | %s |\n",
              call.name, processes, library.micros.size(), library.At(0.5), library.At(0.99),
              library.At(1), ratio, kMostRatio, met ? "yes" : "no");
  // A run takes minutes; a reader sees each row at once.
  std::fflush(stdout);
  return met;
}

int MeasureAll(double seconds) {
  const Fixture fixture;
  Team team;
  bool met = true;
  for (std::size_t i = 0; i < Calls().size(); ++i) {
    std::fprintf(stderr, "  %s\n", Calls()[i].name);
    for (const int processes : {1, kTeamSize}) {
      // The first of eight processes would leave the others nothing to do.
      if (Calls()[i].once && processes != 1) continue;
      met &= MeasureCall(&team, fixture, static_cast<int>(i), processes, seconds);
    }
  }
  return met ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  // A member of the team, started by Team.
  if (mode == "--child" && argc > 2) return RunMember(std::atoi(argv[2]));
  if (mode == "trace") return Trace();
  if (mode == "memory") return MeasureMemory();
  if (mode == "measure" && argc > 2) return MeasureAll(std::atof(argv[2]));
  std::fprintf(stderr, "usage: call_bench trace | memory | measure SECONDS\n");
  return 2;
}
