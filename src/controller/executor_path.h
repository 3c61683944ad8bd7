// Where the executor is. Used by any thread.
#ifndef KUPDATE_CONTROLLER_EXECUTOR_PATH_H_
#define KUPDATE_CONTROLLER_EXECUTOR_PATH_H_

#include <string>

/// The executor, as TUpdaterController::GetExecutorPath names it. Empty, and logged, when this
/// process is elevated and programs that are not could replace it: it would run with rights that
/// they lack.
std::wstring ExecutorToStart();

/// Whether no application needs that executor any more.
bool IsExecutorUnused(const std::wstring& executor);

#endif  // KUPDATE_CONTROLLER_EXECUTOR_PATH_H_
