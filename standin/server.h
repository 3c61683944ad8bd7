// The running server: from its activation to its end.
#ifndef KUPDATE_STANDIN_SERVER_H_
#define KUPDATE_STANDIN_SERVER_H_

#include <string>

namespace standin {

/// Serves clients until --stop, or until nobody has needed the server for the lingering time.
/// Where another server runs it waits 5 seconds for the end of that one, then returns.
/// @param folder  with a trailing "\"
/// @return the process's exit code: 0 when all went well
int RunServer(const std::wstring& folder);

/// Asks the running server to end and waits for that. Without one there is nothing to do.
/// @return 0, or ERROR_TIMEOUT when it did not end within 15 seconds
unsigned long StopServer();

/// Forgets the jobs that an earlier registration of the folder has left. Not while a server runs.
/// @param folder  with a trailing "\"
void ForgetJobs(const std::wstring& folder);

}  // namespace standin

#endif  // KUPDATE_STANDIN_SERVER_H_
