// The running server: from its activation to its end.
#ifndef KUPDATE_STANDIN_SERVER_H_
#define KUPDATE_STANDIN_SERVER_H_

#include <string>

namespace standin {

/// Serves clients until --stop, or until the server has been unused for the lingering time. While
/// another server runs, waits 5 seconds for its end, then returns.
/// @param folder  with a trailing "\"
/// @return the process's exit code: 0 for success
int RunServer(const std::wstring& folder);

/// Asks the running server to end and waits for that. Does nothing without a server.
/// @return 0, or ERROR_TIMEOUT when it did not end within 15 seconds
unsigned long StopServer();

/// Forgets the jobs of an earlier registration of the folder. Not while a server runs.
/// @param folder  with a trailing "\"
void ForgetJobs(const std::wstring& folder);

}  // namespace standin

#endif  // KUPDATE_STANDIN_SERVER_H_
