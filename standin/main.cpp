// The command line of the stand-in transfer service.
#include <cstdio>
#include <string>
#include <string_view>

#include "standin/registration.h"
#include "standin/server.h"
#include "util/text.h"
#include "util/win/windows_lean.h"

namespace {

constexpr int kUsageError = 2;

int Usage() {
  std::fputs(
      "kupdate-standin --register FOLDER   become the server of the transfer class; FOLDER holds\n"
      "                                    the journal, the control file and the jobs\n"
      "kupdate-standin --unregister        restore the former server\n"
      "kupdate-standin --stop              end the running server\n"
      "kupdate-standin -Embedding          serve clients; the system starts the server with this\n",
      stderr);
  return kUsageError;
}

int Report(const char* what, unsigned long error) {
  if (error == ERROR_SUCCESS) return 0;
  std::fprintf(stderr, "kupdate-standin: %s, system error %lu\n", what, error);
  return 1;
}

std::wstring ProgramPath() {
  wchar_t path[MAX_PATH] = L"";
  ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  return path;
}

int RegisterFolder(const wchar_t* name) {
  // The full path, for the system starts the server in another current folder.
  wchar_t folder[MAX_PATH] = L"";
  const DWORD length = ::GetFullPathNameW(name, MAX_PATH, folder, nullptr);
  if (length == 0 || length >= MAX_PATH)
    return Report("the folder has no full path", ::GetLastError());
  if (!::CreateDirectoryW(folder, nullptr) && ::GetLastError() != ERROR_ALREADY_EXISTS) {
    return Report("the folder cannot be created", ::GetLastError());
  }
  std::wstring ended = folder;
  if (ended.back() != L'\\') ended += L'\\';
  // A second registration, of a new build for example, keeps the jobs of the first.
  if (standin::RegisteredFolder().empty()) standin::ForgetJobs(ended);
  return Report("the registry cannot be written", standin::Register(ProgramPath(), ended));
}

int Serve() {
  const std::wstring folder = standin::RegisteredFolder();
  if (folder.empty()) return Report("there is no registered folder", ERROR_FILE_NOT_FOUND);
  return standin::RunServer(folder);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  const std::wstring_view command = argc > 1 ? argv[1] : L"";
  if (command == L"--register" && argc == 3) return RegisterFolder(argv[2]);
  if (command == L"--unregister") {
    return Report("the registry cannot be restored", standin::Unregister());
  }
  if (command == L"--stop") return Report("the server does not end", standin::StopServer());
  // The system adds this to the registered command line when a client asks for the class.
  if (EqualsIgnoreCase(command, L"-Embedding") || EqualsIgnoreCase(command, L"/Embedding")) {
    return Serve();
  }
  return Usage();
}
