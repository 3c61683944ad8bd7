// Which of the jobs in the transfer service the executor ends, because no other program will.
#ifndef KUPDATE_EXECUTOR_JOB_POLICY_H_
#define KUPDATE_EXECUTOR_JOB_POLICY_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "layout/command_line.h"
#include "transfer/job.h"

/// A job and the command in its notify command line; kNone for a job without one.
struct OwnJob {
  JobFacts facts;
  ExecutorCommand command;
};

/// Reads the jobs' command lines. Those that start another program than `program` are left out:
/// they are that one's to end.
std::vector<OwnJob> JobsOf(const std::vector<JobFacts>& jobs, std::wstring_view program);

/// The places in the list of the jobs to end, in ascending order:
/// - ended by the service, or never started, and untouched for a day: a host or an executor died
///   before it came back;
/// - one that has transferred more than it may, and goes on;
/// - an update check into the same file as a newer one;
/// - the jobs above kMaxOwnJobs: first those without a command, then checks, then reports, the
///   oldest first.
/// @param now  seconds since 1970-01-01 UTC
std::vector<std::size_t> JobsToEnd(const std::vector<OwnJob>& jobs, std::uint64_t now);

#endif  // KUPDATE_EXECUTOR_JOB_POLICY_H_
