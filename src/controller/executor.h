// The jobs that end by starting the executor.
#ifndef KUPDATE_CONTROLLER_EXECUTOR_H_
#define KUPDATE_CONTROLLER_EXECUTOR_H_

#include <cstdint>
#include <string>

class TAppInfo2;
struct PingBlock;

/// Full path of a file in the temporary folder, any old one of that name deleted. Empty when there is no
/// such folder, or when the name (made with an application id) would lead out of it.
std::wstring FreshTempFile(const std::wstring& name);

/// The executor, as TUpdaterController::GetExecutorPath names it. Empty, and logged, when this process
/// is elevated and programs that are not could replace it: it would run with rights that they lack.
std::wstring ExecutorToStart();

/// Queues the download of the application's feed; when it ends, the transfer service starts the
/// executor, which decides. The store's changes are saved before, so that the executor sees them.
/// @return the job's id; empty when no job was made: that was logged.
/// Throws _com_error when the service refuses.
std::string CheckUpdate(TAppInfo2& store);

/// Queues the transfer of one block of statistics; when it ends, the service starts the executor,
/// which confirms the block or takes it back.
/// @return whether the job was started; a failure is in the log.
bool LaunchPing(const std::string& appId, const PingBlock& block) noexcept;

/// The same at an application's removal: the executor also removes itself when the block says
/// "uninstall" and no application needs it any more.
bool LaunchLastPing(const std::string& appId, const PingBlock& block) noexcept;

#endif  // KUPDATE_CONTROLLER_EXECUTOR_H_
