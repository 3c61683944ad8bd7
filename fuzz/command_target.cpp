#include "fuzz/fuzz.h"
#include "layout/command_line.h"
#include "util/text.h"

namespace {

constexpr wchar_t kProgram[] = L"C:\\x --help --job {0}\\kupdate-exec.exe";
constexpr wchar_t kJob[] = L" --job {1}";

ExecutorCommand Read(const std::wstring& line) { return ParseExecutorCommand(line, kProgram); }

void CheckAnyLine(const std::wstring& line) {
  const ExecutorCommand c = Read(line);
  const bool needsApp = c.kind == CommandKind::kUpdateCheck ||
                        c.kind == CommandKind::kStatCallback ||
                        c.kind == CommandKind::kSilentUpdate;
  const bool endsJob = c.kind == CommandKind::kJob || c.kind == CommandKind::kUpdateCheck ||
                       c.kind == CommandKind::kStatCallback;
  Check(!needsApp || c.hasAppId, "an operation has its application");
  Check(!endsJob || !c.jobId.empty(), "who ends a job knows it");
  Check(c.kind != CommandKind::kNone || c.jobId.empty(), "no job is forgotten");
  Check(c.hasAppId || c.appId.empty(), "no id without its switch");
  Check(c.appId.find(" --") == std::string::npos, "an id holds no switch");
  Check(c.blockId >= 0 && c.blockId <= 100, "a block has an in-work file");
}

// What the library writes is read back.
void CheckWrittenLines(const std::wstring& id, const std::wstring& file, int block) {
  const ExecutorCommand check = Read(kProgram + UpdateCheckArguments(id, file) + kJob);
  Check(check.kind == CommandKind::kUpdateCheck && check.file == file, "a check comes back");
  const ExecutorCommand ping = Read(kProgram + PingArguments(id, block, true) + kJob);
  Check(ping.kind == CommandKind::kStatCallback && ping.suicide, "a ping comes back");
  Check(ping.blockId == block, "its block comes back");
  const ExecutorCommand install = Read(SilentUpdateCommandLine(kProgram, id));
  Check(install.kind == CommandKind::kSilentUpdate, "an install comes back");
  for (const ExecutorCommand& c : {check, ping, install}) {
    Check(c.appId == NarrowUtf8(id), "the id comes back");
    Check(c.kind == CommandKind::kSilentUpdate || c.jobId == "{1}", "the job comes back");
  }
}

}  // namespace

// The first line is an id, the second a file; as a whole it is a command line.
void FuzzCommand(std::string_view input) {
  const std::wstring line = WidenUtf8(input);
  CheckAnyLine(line);
  CheckAnyLine(kProgram + (L' ' + line));
  const int block = static_cast<int>(input.size() % 101);
  const std::wstring id = WidenUtf8(TakeLine(&input));
  const std::wstring file = WidenUtf8(TakeLine(&input));
  if ((id + file).find(L'"') != line.npos || (L' ' + id).find(L" --") != line.npos) return;
  CheckWrittenLines(id, file, block);
}
