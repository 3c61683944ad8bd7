// What the executor was started for, read from its command line.
#ifndef KUPDATE_EXECUTOR_EXECUTOR_COMMAND_H_
#define KUPDATE_EXECUTOR_EXECUTOR_COMMAND_H_

#include <string>
#include <string_view>

enum class CommandKind {
  kNone,          ///< nothing that is understood, and no job that could be ended
  kHelp,          ///< --help
  kVersion,       ///< --version
  kStatus,        ///< --status [--appid A] [--json]
  kJob,           ///< --job alone, or with something that is not understood: the job is to be ended
  kUpdateCheck,   ///< --appid A --update-check --file "F" --job {G}
  kStatCallback,  ///< [--suicide] --stat-callback N --appid A --job {G}
  kSilentUpdate,  ///< --appid A --silent-update-check
};

struct ExecutorCommand {
  CommandKind kind = CommandKind::kNone;
  bool hasAppId = false;
  std::string appId;  ///< may be empty; blanks in it belong to it
  std::wstring file;  ///< of an update check, without quotes
  std::string jobId;  ///< as it stands; empty when there is none
  int blockId = 0;    ///< of a statistics callback, 0 to 100
  bool suicide = false;
  bool json = false;
};

/// Reads a command line as it was handed to the process, not split into arguments: whoever starts
/// the executor quotes neither the program's path nor the application id, and both may hold blanks.
/// Switches count where a token begins outside of quotes; an id runs to the next " --" or to the
/// end. What is not understood is passed over.
/// @param programPath  of this program; a command line that begins with it is read behind it, so
///                     that nothing in the path is taken for a switch. May be empty.
ExecutorCommand ParseExecutorCommand(std::wstring_view commandLine, std::wstring_view programPath);

#endif  // KUPDATE_EXECUTOR_EXECUTOR_COMMAND_H_
