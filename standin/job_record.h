// All data of a transfer job.
#ifndef KUPDATE_STANDIN_JOB_RECORD_H_
#define KUPDATE_STANDIN_JOB_RECORD_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "standin/codes.h"

namespace standin {

inline constexpr std::uint32_t kDefaultNoProgressSeconds = 14 * 24 * 60 * 60;

/// The settings that a client can change and read back. Without `notifyProgram` no program starts.
struct JobSettings {
  std::wstring displayName;
  int priority = 2;  // normal
  std::uint32_t noProgressSeconds = kDefaultNoProgressSeconds;
  std::uint32_t notifyFlags = 3;  // transferred, error
  std::optional<std::wstring> notifyProgram;
  std::optional<std::wstring> notifyParameters;
  std::optional<std::uint64_t> maxBytes;  // of all files together
};

/// In ticks of 100 ns since 1601 UTC; 0: not yet.
struct JobTimes {
  std::uint64_t created = 0;
  std::uint64_t modified = 0;
  std::uint64_t completed = 0;
};

struct JobError {
  HResult code = 0;
  int context = 0;  ///< BG_ERROR_CONTEXT
  std::string text;
};

struct JobFile {
  std::wstring url;
  std::wstring path;
  std::wstring tempPath = {};  ///< empty: there is no temporary file
  std::optional<std::uint64_t> sizeBytes = {};
  std::uint64_t doneBytes = 0;
  bool transferred = false;
  bool handedOver = false;
};

/// All that a job must keep while no server runs.
struct JobRecord {
  std::string id;  ///< in registry form, braces included
  std::string owner;
  JobState state = JobState::kSuspended;
  JobSettings settings = {};
  JobTimes times = {};
  JobError error = {};
  /// The job is transferred or failed, and its notify program has not succeeded yet.
  bool noticeDue = false;
  std::vector<JobFile> files = {};
};

}  // namespace standin

#endif  // KUPDATE_STANDIN_JOB_RECORD_H_
