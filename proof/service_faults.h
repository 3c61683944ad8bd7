// The faults of the transfer service and of the network: what is done, what must come of it.
#ifndef KUPDATE_PROOF_SERVICE_FAULTS_H_
#define KUPDATE_PROOF_SERVICE_FAULTS_H_

#include <cstdint>
#include <string>
#include <vector>

namespace proof {

enum class Route {
  kCheck,      ///< a feed that the service fetches and the executor judges
  kHostCheck,  ///< a feed that the host waits for
  kPing,       ///< a report, with the parameter "p=1"
};

/// What happens while the fault lasts.
enum class Strike {
  kNone,
  kRestart,          ///< the service ends and is started again, with a transfer under way
  kRestartUnheard,   ///< the same with the transfer done and the executor missing
  kServerComesBack,  ///< is away at first
  kServerRecovers,   ///< gives a good answer from then on
};

/// Who is found at the executor's place.
enum class Program { kGood, kMissing, kCrashing };

/// Where the clock stood at the application's last calls.
enum class Clock { kRight, kAYearBack, kAYearAhead };

/// A fault lasts from the host's call to `then`. Afterwards service, server and program are good,
/// time passes, and the host starts again; then the application must be as if nothing had been:
/// the update found, or "p=1" reported.
struct Fault {
  const char* label;
  Route route;
  const char* control = "";  ///< the service's control file
  /// On the web server: a path, "feed" or "report" when empty.
  const char* path = "";
  std::string get = {};   ///< instead: what an odd server answers
  std::string head = {};  ///< to HEAD, when that is another answer
  bool serverIsAway = false;
  bool quotaIsUsedUp = false;
  Program program = Program::kGood;
  Clock clock = Clock::kRight;
  Strike strike = Strike::kNone;
  const char* until = "";         ///< a journal line that shows the fault at work
  std::int64_t lastsSeconds = 0;  ///< and how long it lasts from there, on the service's clock
  const char* host = "";          ///< what a host that waits is told at last
  const char* files;              ///< then, as FilesOf gives them
  const char* jobs = "none";      ///< then, as LiveJobsText gives them
  std::vector<const char*> log = {};
  int reports = 1;                   ///< how often "p=1" has arrived in the end
  int starts = 1;                    ///< how often the host starts again
  std::int64_t laterSeconds = kDay;  ///< until it does, each time

  static constexpr std::int64_t kDay = 86400;
};

/// Those whose cause is the service, the executor or the clock.
std::vector<Fault> ServiceFaults();
/// Those whose cause is the web server or the way to it.
std::vector<Fault> NetworkFaults();

/// A feed with version 2.0.
std::string Feed();

/// Runs each fault of the list and prints its row.
/// @return how many did not end as they must
int RunFaults(const std::vector<Fault>& faults);

}  // namespace proof

#endif  // KUPDATE_PROOF_SERVICE_FAULTS_H_
