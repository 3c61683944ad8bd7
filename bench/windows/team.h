// Processes that make the same call at the same time, with the time of each call.
#ifndef KUPDATE_BENCH_WINDOWS_TEAM_H_
#define KUPDATE_BENCH_WINDOWS_TEAM_H_

#include <vector>

inline constexpr int kTeamSize = 8;
/// The most calls of one process in a round.
inline constexpr int kMostCalls = 8;

enum class Side { kLibrary, kBare };

/// The leader of kTeamSize processes. Ends the program when one of them dies.
class Team {
 public:
  /// Starts the members: this program with "--child INDEX".
  Team();
  ~Team();
  Team(const Team&) = delete;
  Team& operator=(const Team&) = delete;

  /// The first `processes` members make `calls` calls each, all at the same time.
  /// @param call   index in Calls()
  /// @param times  receives each call's time in microseconds
  void Round(int call, Side side, int processes, int calls, std::vector<double>* times);

 private:
  using Handle = void*;
  void WaitForAll(int processes);

  Handle processes_[kTeamSize];
  Handle go_[kTeamSize];
  Handle done_[kTeamSize];
};

/// Serves the leader until the leader ends this process.
int RunMember(int index);

#endif  // KUPDATE_BENCH_WINDOWS_TEAM_H_
