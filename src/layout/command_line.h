// The command lines of the executor: their writer, for hosts and jobs, and their reader.
#ifndef KUPDATE_LAYOUT_COMMAND_LINE_H_
#define KUPDATE_LAYOUT_COMMAND_LINE_H_

#include <string>
#include <string_view>

/// Whether an id can stand in a command line, where nothing quotes it: one that holds a quote or
/// " --", or begins with "--", would be read as switches of its own.
bool IsPlainId(std::wstring_view appId);

/// A path as an argument: in double quotes, unless it begins with one already.
std::wstring QuotedPath(const std::wstring& path);

// Each of the next three logs an id that is not plain, and throws std::invalid_argument.

/// The executor's arguments after a feed was downloaded.
std::wstring UpdateCheckArguments(const std::wstring& appId, const std::wstring& resultFile);

/// The executor's arguments after a report was sent.
/// @param callbackId  of the block that the report carried
/// @param suicide     whether the executor removes itself when no application needs it any more
std::wstring PingArguments(const std::wstring& appId, int callbackId, bool suicide);

/// The text that is added to the arguments of the program that the transfer service starts for a
/// job.
std::wstring JobOption(const std::wstring& jobId);

/// The whole command line of a silent install.
std::wstring SilentUpdateCommandLine(const std::wstring& executor, const std::wstring& appId);

enum class CommandKind {
  kNone,          ///< no known option, and no job that could be ended
  kHelp,          ///< --help
  kVersion,       ///< --version
  kStatus,        ///< --status [--appid A] [--json]
  kJob,           ///< --job alone, or in an unknown or incomplete command: the job is to be ended
  kUpdateCheck,   ///< --appid A --update-check --file "F" --job {G}
  kStatCallback,  ///< [--suicide] --stat-callback N --appid A --job {G}
  kSilentUpdate,  ///< --appid A --silent-update-check
  kSetChannel,    ///< --set-channel beta|release --appid A
};

struct ExecutorCommand {
  CommandKind kind = CommandKind::kNone;
  bool hasAppId = false;
  std::string appId;  ///< may be empty; blanks in it belong to it
  std::wstring file;  ///< of an update check, without quotes
  std::string jobId;  ///< as it stands; may be empty
  int blockId = 0;    ///< of a statistics callback, 0 to 100
  bool suicide = false;
  bool json = false;
  bool beta = false;  ///< the channel to be set
};

/// Reads a command line as the process got it, not split into arguments: the program that
/// starts the executor quotes neither the program's path nor the application id, and both may hold
/// blanks. Switches count where a token begins outside of quotes; an id runs to the next " --" or
/// to the end. Unknown text is skipped.
/// @param programPath  of this program; a command line that begins with it is read behind it, so
///                     that nothing in the path is taken for a switch. May be empty.
ExecutorCommand ParseExecutorCommand(std::wstring_view commandLine, std::wstring_view programPath);

#endif  // KUPDATE_LAYOUT_COMMAND_LINE_H_
