// The transfer service's jobs, and the executors that end them.
#ifndef KUPDATE_PROOF_STORM_SERVICE_H_
#define KUPDATE_PROOF_STORM_SERVICE_H_

#include <string>
#include <vector>

#include "transfer/transfer.h"

namespace storm {

/// The jobs that are alive. A client that was killed in the middle of a call can leave Wine deaf for
/// the service's class; the stand-in is restarted then, which keeps its jobs.
std::vector<JobFacts> Jobs();
/// How often that was needed.
int Restarts();

/// The arguments with which the service would start a job's executor; a job without any is ended
/// by its id.
std::wstring ArgumentsOf(const JobFacts& job);

/// Starts the executor; returns the process, an owned HANDLE.
void* StartExecutor(const std::wstring& arguments);

/// Ends jobs, by one executor after the other. One that says that it could touch nothing, or that the
/// system does not start, is started again, as the service does it. Returns the first that did not say
/// 0 in the end, and what it said; "" when all did.
std::string RunExecutors(const std::vector<JobFacts>& jobs);
/// How many had to be started again.
int SecondStarts();

/// Kills the executors that run without having been started by StartExecutor: those of hosts that
/// were killed. Returns how many.
int KillStrayExecutors();
/// Waits for their ends.
bool NoExecutorRuns();

/// Sends all that waits for these applications, through executors that the service starts itself,
/// and waits for its end.
bool Deliver(const std::vector<std::string>& appIds);

}  // namespace storm

#endif  // KUPDATE_PROOF_STORM_SERVICE_H_
