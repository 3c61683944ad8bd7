// "--status": the state of the updater, for people. It only reads.
#ifndef KUPDATE_EXECUTOR_STATUS_H_
#define KUPDATE_EXECUTOR_STATUS_H_

#include <string>

struct ExecutorCommand;

/// The report, of one application where the command names one, as JSON where it asks for that.
/// Changes nothing and writes no log.
std::string StatusText(const ExecutorCommand& command);

#endif  // KUPDATE_EXECUTOR_STATUS_H_
