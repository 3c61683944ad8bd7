// The state of the updater as text, for people and for programs.
#ifndef KUPDATE_EXECUTOR_STATUS_REPORT_H_
#define KUPDATE_EXECUTOR_STATUS_REPORT_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Texts are UTF-8, times seconds since 1970-01-01 UTC.
struct AppStatus {
  std::string id;
  std::string version;
  std::string channel;  ///< "beta" when beta versions are offered too, else "release"
  bool removed = false;
  std::string executor;         ///< the program that the host named; empty: the default one
  std::uint64_t nextCheck = 0;  ///< in the past: due
  std::uint64_t nextPing = 0;
  std::string update;  ///< the version that the last check found; empty: no update
  bool statisticsWait = false;
  std::vector<int> blocksInWork;
  std::string lastError;  ///< the last error in its log
};

struct JobStatus {
  std::string id;
  std::string state;
  std::string purpose;  ///< "check", "ping" or "download"
  std::string appId;
  std::uint64_t created = 0;
  std::uint32_t error = 0;  ///< the service's code; 0: no error
};

struct StatusReport {
  std::string program;
  std::string version;
  std::string trust;  ///< which updates are installed, or why no update is
  bool serviceAnswers = false;
  std::vector<AppStatus> apps;
  std::vector<JobStatus> jobs;
};

/// The last error in the text of a log, from its level on; empty without one. A file or a registry
/// key that cannot be opened does not count: most are not there before they are first written, and
/// a caller that cannot go on without one logs a line of its own.
std::string LastErrorIn(std::string_view log);

std::string ReadableStatus(const StatusReport& report, std::uint64_t now);

/// One JSON object and a line feed. Bytes that are no UTF-8 become U+FFFD.
std::string JsonStatus(const StatusReport& report);

#endif  // KUPDATE_EXECUTOR_STATUS_REPORT_H_
