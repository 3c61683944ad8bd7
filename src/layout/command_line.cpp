#include "layout/command_line.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "layout/file_names.h"
#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/text.h"

namespace {

namespace option {

constexpr wchar_t kHelp[] = L"--help";
constexpr wchar_t kVersion[] = L"--version";
constexpr wchar_t kStatus[] = L"--status";
constexpr wchar_t kSetChannel[] = L"--set-channel";
constexpr wchar_t kUpdateCheck[] = L"--update-check";
constexpr wchar_t kSilentUpdate[] = L"--silent-update-check";
constexpr wchar_t kStatCallback[] = L"--stat-callback";
constexpr wchar_t kSuicide[] = L"--suicide";
constexpr wchar_t kJson[] = L"--json";
constexpr wchar_t kAppId[] = L"--appid";
constexpr wchar_t kFile[] = L"--file";
constexpr wchar_t kJob[] = L"--job";

}  // namespace option

// Every writer of a command line passes here, so no id can smuggle a switch into one.
std::wstring Checked(const std::wstring& appId) {
  if (IsPlainId(appId)) return appId;
  LOG_E << "The application id cannot stand in a command line:" << appId;
  throw std::invalid_argument("bad application id");
}

// An option as it stands behind other text; " " and its value follow.
std::wstring Behind(const wchar_t* name) { return std::wstring(L" ") + name; }

std::wstring AppIdOption(const std::wstring& appId) {
  return Behind(option::kAppId) + L" " + Checked(appId);
}

bool IsBlank(wchar_t c) { return c == L' ' || c == L'\t'; }

// The command line behind the program's path. The path itself may hold blanks and switches and be
// unquoted, so it is compared as a whole with the known one.
std::wstring_view BehindProgram(std::wstring_view line, std::wstring_view program) {
  const bool quoted = line.starts_with(L'"');
  const std::wstring_view path = line.substr(quoted ? 1 : 0);
  if (!program.empty() && EqualsIgnoreCase(path.substr(0, program.size()), program)) {
    const std::size_t end = program.size() + (quoted ? 2 : 0);
    if (end >= line.size()) return {};
    if (IsBlank(line[end])) return line.substr(end);
  }
  if (!quoted) return line;
  const std::size_t end = path.find(L'"');
  return end == path.npos ? std::wstring_view() : path.substr(end + 1);
}

// The text up to the next " --" or the end, without the one blank behind its switch.
std::wstring_view UpToNextSwitch(std::wstring_view text) {
  text = text.substr(0, text.find(L" --"));
  if (!text.empty() && IsBlank(text[0])) text.remove_prefix(1);
  return text;
}

// People quote an id with blanks. No id can hold a quote, since it names a folder.
std::wstring_view Unquoted(std::wstring_view text) {
  const bool quoted = text.size() >= 2 && text.starts_with(L'"') && text.ends_with(L'"');
  return quoted ? text.substr(1, text.size() - 2) : text;
}

std::wstring_view WithoutLeadingBlanks(std::wstring_view text) {
  text.remove_prefix(
      static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), IsBlank) - text.begin()));
  return text;
}

std::wstring_view FirstToken(std::wstring_view text) {
  return text.substr(
      0, static_cast<std::size_t>(std::find_if(text.begin(), text.end(), IsBlank) - text.begin()));
}

std::optional<int> BlockId(std::wstring_view token) {
  int id = 0;
  for (const wchar_t c : token) {
    if (c < L'0' || c > L'9') return {};
    id = id * 10 + static_cast<int>(c - L'0');
    if (id > kLastBlockId) return {};
  }
  return token.empty() ? std::nullopt : std::optional<int>(id);
}

// Walks over the tokens once and collects their meaning.
class CommandReader {
 public:
  explicit CommandReader(std::wstring_view text) : rest_(text) {}

  ExecutorCommand Read() {
    while (Next()) Take();
    command_.kind = Kind();
    return command_;
  }

 private:
  // Moves to the next token; one that begins with a quote ends with one.
  bool Next() {
    rest_ = WithoutLeadingBlanks(rest_);
    if (rest_.empty()) return false;
    std::size_t end = FirstToken(rest_).size();
    if (rest_[0] == L'"') end = std::min(rest_.find(L'"', 1), rest_.size() - 1) + 1;
    token_ = rest_.substr(0, end);
    rest_.remove_prefix(end);
    return true;
  }

  void Take() {
    if (token_ == option::kHelp) Note(CommandKind::kHelp);
    if (token_ == option::kVersion) Note(CommandKind::kVersion);
    if (token_ == option::kStatus) Note(CommandKind::kStatus);
    if (token_ == option::kUpdateCheck) Note(CommandKind::kUpdateCheck);
    if (token_ == option::kSilentUpdate) Note(CommandKind::kSilentUpdate);
    if (token_ == option::kSetChannel) TakeChannel();
    if (token_ == option::kStatCallback) TakeBlock();
    if (token_ == option::kSuicide) command_.suicide = true;
    if (token_ == option::kJson) command_.json = true;
    if (token_ == option::kAppId) TakeAppId();
    if (token_ == option::kFile) TakeFile();
    // The service puts the job last: whatever an id holds, the last one is the true one.
    if (token_ == option::kJob && Next()) command_.jobId = NarrowUtf8(token_);
  }

  void Note(CommandKind kind) {
    // Two kinds in one line: neither is done, and the job is ended.
    isAmbiguous_ = isAmbiguous_ || (asked_ != CommandKind::kNone && asked_ != kind);
    asked_ = kind;
  }

  void TakeBlock() {
    Note(CommandKind::kStatCallback);
    if (!Next()) return;
    const std::optional<int> id = BlockId(token_);
    hasBlock_ = id.has_value();
    command_.blockId = id.value_or(0);
  }

  void TakeChannel() {
    Note(CommandKind::kSetChannel);
    if (!Next()) return;
    command_.beta = token_ == L"beta";
    hasChannel_ = command_.beta || token_ == L"release";
  }

  void TakeAppId() {
    command_.hasAppId = true;
    command_.appId = NarrowUtf8(Unquoted(UpToNextSwitch(rest_)));
    rest_.remove_prefix(std::min(rest_.find(L" --"), rest_.size()));
  }

  void TakeFile() {
    const std::wstring_view text = WithoutLeadingBlanks(rest_);
    hasFile_ = true;
    if (!text.starts_with(L'"')) {
      command_.file = UpToNextSwitch(rest_);
      rest_.remove_prefix(std::min(rest_.find(L" --"), rest_.size()));
      return;
    }
    Next();
    command_.file = token_.substr(1, token_.size() - 1);
    if (command_.file.ends_with(L'"')) command_.file.pop_back();
  }

  CommandKind Kind() const {
    const bool hasJob = !command_.jobId.empty();
    // A command that is incomplete still ends its job, or the job would stay in the service.
    const CommandKind otherwise = hasJob ? CommandKind::kJob : CommandKind::kNone;
    if (isAmbiguous_) return otherwise;
    switch (asked_) {
      case CommandKind::kUpdateCheck:
        return hasJob && command_.hasAppId && hasFile_ ? asked_ : otherwise;
      case CommandKind::kStatCallback:
        return hasJob && command_.hasAppId && hasBlock_ ? asked_ : otherwise;
      case CommandKind::kSilentUpdate:
        return command_.hasAppId ? asked_ : otherwise;
      case CommandKind::kSetChannel:
        return command_.hasAppId && hasChannel_ ? asked_ : otherwise;
      case CommandKind::kNone:
        return otherwise;
      default:
        return asked_;
    }
  }

  std::wstring_view rest_;
  std::wstring_view token_;
  ExecutorCommand command_;
  CommandKind asked_ = CommandKind::kNone;
  bool isAmbiguous_ = false;
  bool hasBlock_ = false;
  bool hasChannel_ = false;
  bool hasFile_ = false;
};

}  // namespace

bool IsPlainId(std::wstring_view appId) {
  return appId.find(L'"') == appId.npos && appId.find(L" --") == appId.npos &&
         !appId.starts_with(L"--");
}

std::wstring QuotedPath(const std::wstring& path) {
  if (!path.empty() && path[0] == L'"') return path;
  return L'"' + path + L'"';
}

std::wstring UpdateCheckArguments(const std::wstring& appId, const std::wstring& resultFile) {
  return AppIdOption(appId) + Behind(option::kUpdateCheck) + Behind(option::kFile) + L" " +
         QuotedPath(resultFile);
}

std::wstring PingArguments(const std::wstring& appId, int callbackId, bool suicide) {
  return (suicide ? Behind(option::kSuicide) : std::wstring()) + Behind(option::kStatCallback) +
         L" " + WidenUtf8(DecimalText(callbackId)) + AppIdOption(appId);
}

// Without quotes, as the transfer service writes it. The system gets the program's path apart, so a
// path with blanks starts no other program.
std::wstring SilentUpdateCommandLine(const std::wstring& executor, const std::wstring& appId) {
  return executor + AppIdOption(appId) + Behind(option::kSilentUpdate);
}

std::wstring JobOption(const std::wstring& jobId) { return Behind(option::kJob) + L" " + jobId; }

ExecutorCommand ParseExecutorCommand(std::wstring_view commandLine, std::wstring_view programPath) {
  return CommandReader(BehindProgram(commandLine, programPath)).Read();
}
