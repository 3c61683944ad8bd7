#include "executor/program_removal.h"

#include "util/diag_log.h"
#include "util/files.h"
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

// The end of the wait: the folder goes with the file when it is empty. A link stays.
std::wstring AfterDeletion(const std::wstring& path) {
  const std::wstring folder = path.substr(0, path.find_last_of(L'\\'));
  const std::wstring removal =
      FileSystem::IsLink(NarrowUtf8(folder)) ? std::wstring() : L"rd \"" + folder + L"\" & ";
  return L" & if not exist \"" + path + L"\" (" + removal + L"exit)";
}

// The command interpreter tries to delete the file ten times, once a second, until this process has
// ended. The line uses only what every interpreter of that name understands.
bool DeleteWhenEnded(const std::wstring& path) {
  const std::wstring shell = SystemProgram(L"cmd.exe");
  const std::wstring pause = SystemProgram(L"ping.exe");
  // The interpreter would replace a text between percent signs, even in quotes.
  if (shell.empty() || pause.empty() || path.find(L'%') != path.npos) return false;
  std::wstring commandLine = L"\"";
  commandLine.append(shell)
      .append(L"\" /d /c for /l %i in (1,1,10) do (\"")
      .append(pause)
      .append(L"\" -n 2 127.0.0.1 & del /f /q \"")
      .append(path)
      .append(L"\"")
      .append(AfterDeletion(path))
      .append(L")");
  UniqueHandle process;
  return TEnvironment::Execute(shell, commandLine, &process) == 0;
}

}  // namespace

bool RemoveRunningProgram(const std::wstring& path) {
  // A name of its own: an earlier file may still wait to be deleted.
  const std::wstring renamed = path + L"." + WidenUtf8(NewGuidText()) + L".old";
  if (!FileSystem::RenameFile(NarrowUtf8(path), NarrowUtf8(renamed))) return false;
  // The second way needs an administrator, so it is only the last resort.
  if (!DeleteWhenEnded(renamed) &&
      !::MoveFileExW(renamed.c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT)) {
    LOG_E << "The program stays as" << renamed << kLastError;
  }
  return true;
}
