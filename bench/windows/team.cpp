#include "bench/windows/team.h"

#include "util/win/windows_lean.h"

#include <process.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/windows/calls.h"
#include "testing/data_home.h"
#include "testing/dll_client.h"
#include "util/process.h"

namespace {

// Shared by leader and members: the order for a round, and its times. The events of the team decide
// who uses it, so it needs no lock.
struct Board {
  int call;
  Side side;
  int calls;
  double micros[kTeamSize][kMostCalls];
};

Board& SharedBoard() {
  static Board* const board = [] {
    // By its name, the first process makes it and the others open it.
    const HANDLE memory = ::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                               sizeof(Board), L"kupdate-bench-board");
    return static_cast<Board*>(::MapViewOfFile(memory, FILE_MAP_WRITE, 0, 0, sizeof(Board)));
  }();
  return *board;
}

// One per member and purpose. Each wait resets it, so that no round leaves it set.
HANDLE TeamEvent(const wchar_t* kind, int index) {
  const std::wstring name = L"kupdate-bench-" + std::wstring(kind) + std::to_wstring(index);
  return ::CreateEventW(nullptr, FALSE, FALSE, name.c_str());
}

double MicrosSince(const LARGE_INTEGER& start) {
  LARGE_INTEGER now;
  LARGE_INTEGER perSecond;
  ::QueryPerformanceCounter(&now);
  ::QueryPerformanceFrequency(&perSecond);
  return 1e6 * static_cast<double>(now.QuadPart - start.QuadPart) /
         static_cast<double>(perSecond.QuadPart);
}

// The preparations of both sides are not measured.
double Measure(const Call& call, Side side, Bare* bare, int number) {
  if (side == Side::kBare) {
    bare->Prepare(call.demand);
  } else if (call.ready) {
    call.ready();
  }
  LARGE_INTEGER start;
  ::QueryPerformanceCounter(&start);
  if (side == Side::kBare) {
    bare->Meet(call.demand);
  } else {
    call.run(number);
  }
  return MicrosSince(start);
}

}  // namespace

Team::Team() {
  SharedBoard();
  for (int i = 0; i < kTeamSize; ++i) {
    go_[i] = TeamEvent(L"go", i);
    done_[i] = TeamEvent(L"done", i);
    // The C library gives the words of the command line on as they are.
    processes_[i] = reinterpret_cast<HANDLE>(::_wspawnl(
        _P_NOWAIT, ModulePath().c_str(), L"bench --child", std::to_wstring(i).c_str(), nullptr));
  }
  WaitForAll(kTeamSize);
}

Team::~Team() {
  for (int i = 0; i < kTeamSize; ++i) {
    ::TerminateProcess(processes_[i], 0);
    ::WaitForSingleObject(processes_[i], INFINITE);
    ::CloseHandle(processes_[i]);
  }
}

void Team::WaitForAll(int processes) {
  for (int i = 0; i < processes; ++i) {
    // A member that has died would never be done.
    const HANDLE either[] = {done_[i], processes_[i]};
    if (::WaitForMultipleObjects(2, either, FALSE, INFINITE) == WAIT_OBJECT_0) continue;
    std::fprintf(stderr, "failed: a measuring process has ended\n");
    std::exit(2);
  }
}

void Team::Round(int call, Side side, int processes, int calls, std::vector<double>* times) {
  Board& board = SharedBoard();
  board.call = call;
  board.side = side;
  board.calls = calls;
  for (int i = 0; i < processes; ++i) ::SetEvent(go_[i]);
  WaitForAll(processes);
  for (int i = 0; i < processes; ++i) {
    times->insert(times->end(), board.micros[i], board.micros[i] + calls);
  }
}

int RunMember(int index) {
  Board& board = SharedBoard();
  const HANDLE go = TeamEvent(L"go", index);
  const HANDLE done = TeamEvent(L"done", index);
  MakeFirstCall();
  Bare bare = MakeBare();
  // Numbers of all members differ, so that each call changes a stored value and has to write it.
  int number = index;
  for (;;) {
    // The first time: this member is ready for its first round.
    ::SetEvent(done);
    ::WaitForSingleObject(go, INFINITE);
    for (int i = 0; i < board.calls; ++i, number += kTeamSize) {
      const Call& call = Calls()[static_cast<std::size_t>(board.call)];
      board.micros[index][i] = Measure(call, board.side, &bare, number);
    }
  }
}
