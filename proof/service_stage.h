// What a host, the transfer service and the network leave behind: read as texts, set back, counted.
#ifndef KUPDATE_PROOF_SERVICE_STAGE_H_
#define KUPDATE_PROOF_SERVICE_STAGE_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "standin/job_record.h"

namespace proof {

inline constexpr std::int64_t kSecondsPerDay = 86400;

/// The executor where the library looks for it when no host names one.
std::wstring ExecutorPath();
/// Puts a copy of the program there, over what is there.
void PlaceExecutor(const std::wstring& program);
void RemoveExecutor();

/// Deletes every log, and what transfers left in the temporary folder and beside the data.
void CleanUserFolders();

/// All files of an application but its logs and those that each one has in the local folder, in
/// alphabetical order, with the values that tell how
/// things stand: "appinfo.xml(1) in_work_0.xml(install p=1) statistics.xml(confirmed)". Of names
/// the application's id is left out.
std::string FilesOf(const std::string& appId);

/// The jobs that the service has now, by its own file.
std::vector<standin::JobRecord> LiveJobs();
/// The same for people: "check TRANSIENT_ERROR, ping QUEUED"; "none". Equal ones are counted. One
/// whose bytes come in shows as CONNECTING: the service's file does not follow that.
std::string LiveJobsText();

/// Whether some bytes of a transfer that is under way have come.
bool IsFetching();

/// Whether the line, without time and source line, stands in any log.
bool IsLogged(std::string_view line);

/// Lets a time pass for the application's files: the times in its record and the dates of its
/// in-work files are set back.
void SetTimesBack(const std::string& appId, std::int64_t seconds);

/// The same for the times of all jobs, for which the service is restarted.
void SetJobTimesBack(std::int64_t seconds);

/// The reports of an application that the web server answered with 200, from "stat=" on, in their
/// order.
std::vector<std::string> Reports(const std::string& appId);
/// The same of addresses as they were asked for.
std::vector<std::string> ReportsAmong(const std::vector<std::string>& addresses,
                                      const std::string& appId);

/// Ends the service; its jobs stay, and the next client starts it again. False when it does not end.
bool StopService();
/// Cancels all jobs, whosever they are.
void EndAllJobs();
/// Starts the service when it does not run.
void WakeService();
/// Takes `count` jobs for another program, and gives them back in the end.
class OtherProgramsJobs {
 public:
  explicit OtherProgramsJobs(int count);
  ~OtherProgramsJobs();
  OtherProgramsJobs(const OtherProgramsJobs&) = delete;
  OtherProgramsJobs& operator=(const OtherProgramsJobs&) = delete;

 private:
  std::vector<void*> jobs_;
};

}  // namespace proof

#endif  // KUPDATE_PROOF_SERVICE_STAGE_H_
