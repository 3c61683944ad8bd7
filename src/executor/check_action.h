// The work after the download of an application's feed.
#ifndef KUPDATE_EXECUTOR_CHECK_ACTION_H_
#define KUPDATE_EXECUTOR_CHECK_ACTION_H_

struct ExecutorCommand;

/// "--update-check": ends the job, judges the feed, writes the result and signals it to the host
/// that may be waiting. Holds the application's check lock from start to end, so that two
/// executors answer one after the other. Never shows a window.
/// @return the exit code: kExitJobAlive or kExitBusy when nothing was touched, else kExitDone.
int RunCheckAction(const ExecutorCommand& command);

#endif  // KUPDATE_EXECUTOR_CHECK_ACTION_H_
