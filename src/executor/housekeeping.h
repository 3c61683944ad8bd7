// The work at the end of every run of the executor, so that nothing is left behind.
#ifndef KUPDATE_EXECUTOR_HOUSEKEEPING_H_
#define KUPDATE_EXECUTOR_HOUSEKEEPING_H_

/// Ends abandoned jobs (a report's block is confirmed or taken back with it), takes back blocks
/// that have been in work for 15 days without a job, and follows the wish to remove the program.
/// Best effort: throws nothing, failures are logged. Not to be called under a lock: it takes the
/// statistics' ones.
void KeepHouse() noexcept;

#endif  // KUPDATE_EXECUTOR_HOUSEKEEPING_H_
