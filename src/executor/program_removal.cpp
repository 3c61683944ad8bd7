#include "executor/program_removal.h"

#include "util/diag_log.h"
#include "util/folder_content.h"
#include "util/handle.h"
#include "util/log_line.h"
#include "util/process.h"
#include "util/system.h"
#include "util/text.h"
#include "util/win/windows_lean.h"

namespace {

std::wstring SystemProgram(const wchar_t* name) {
  wchar_t folder[MAX_PATH + 1] = {};
  const UINT length = ::GetSystemDirectoryW(folder, MAX_PATH + 1);
  return length > 0 && length <= MAX_PATH ? std::wstring(folder) + L'\\' + name : std::wstring();
}

// The command interpreter waits for this process by trying: ten times, once a second. The line is
// kept to what every interpreter of that name understands.
bool DeleteWhenEnded(const std::wstring& path) {
  const std::wstring shell = SystemProgram(L"cmd.exe");
  const std::wstring pause = SystemProgram(L"ping.exe");
  // It would replace what stands between percent signs, even in quotes.
  if (shell.empty() || pause.empty() || path.find(L'%') != path.npos) return false;
  std::wstring commandLine = L"\"";
  commandLine.append(shell)
      .append(L"\" /d /c for /l %i in (1,1,10) do (\"")
      .append(pause)
      .append(L"\" -n 2 127.0.0.1 & del /f /q \"")
      .append(path)
      .append(L"\")");
  UniqueHandle process;
  return TEnvironment::Execute(shell, commandLine, &process) == 0;
}

}  // namespace

bool RemoveRunningProgram(const std::wstring& path) {
  const std::wstring renamed = path + L"." + WidenUtf8(NewGuidText()) + L".old";
  if (!FileSystem::RenameFile(NarrowUtf8(path), NarrowUtf8(renamed))) return false;
  if (!DeleteWhenEnded(renamed) &&
      !::MoveFileExW(renamed.c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT)) {
    LOG_E << "The program stays as" << renamed << kLastError;
  }
  return true;
}
