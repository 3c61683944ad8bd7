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

/// Queues the download of the application's feed; when it ends, the transfer service starts the
/// executor, which decides. Records that a check has started.
/// @param now  seconds since 1970-01-01 UTC
/// Throws _com_error when the service refuses.
void CheckUpdate(TAppInfo2& store, std::uint64_t now);

/// Queues the transfer of one block of statistics; when it ends, the service starts the executor,
/// which confirms the block or takes it back.
/// @return whether the job was started; a failure is in the log.
bool LaunchPing(const std::string& appId, const PingBlock& block) noexcept;

#endif  // KUPDATE_CONTROLLER_EXECUTOR_H_
