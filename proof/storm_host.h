// A host process: calls one application's exports, at random, and keeps a diary of it.
#ifndef KUPDATE_PROOF_STORM_HOST_H_
#define KUPDATE_PROOF_STORM_HOST_H_

#include <cstdint>
#include <filesystem>
#include <string>

namespace storm {

enum class Manner {
  kVictim,     ///< all exports, without end
  kLeaver,     ///< the same, and removes the application at times
  kCrowd,      ///< what records something, and getters
  kImpatient,  ///< everything that keeps an application alive, with waits for the executor
};

struct HostPlan {
  Manner manner = Manner::kVictim;
  std::string appId;
  std::string name;  ///< of the host; its items begin with it, so it is used once
  std::uint32_t seed = 0;
  int focus = 0;    ///< the ordinal that every second call is of, or each; 0: none
  int calls = 0;    ///< 0: without end
  int seconds = 0;  ///< 0: without end
  std::filesystem::path diary;
};

/// Starts the plan in a process of its own; returns the process, an owned HANDLE.
void* StartHost(const HostPlan& plan);

/// What that process runs, with the arguments that StartHost gave it.
int RunHost(int argumentCount, char** arguments);

/// Makes the application known, with the report's and the feed's address.
bool Register(const std::string& appId, const char* versionUrl);

std::string ReportUrl();
std::string FeedUrl();

/// The executor under test: a copy, since it may remove itself.
std::wstring ExecutorPath();
/// Makes the copy anew when it is gone.
void MakeExecutor();
/// A place where no executor is: jobs that name it wait until somebody else ends them.
inline constexpr wchar_t kNoExecutor[] = L"C:\\none\\kupdate-exec.exe";

}  // namespace storm

#endif  // KUPDATE_PROOF_STORM_HOST_H_
