/* A program that an installer puts on users' machines and that installs its own updates while it runs.
 *
 *   example [--feed URL] [--report URL] [--uninstall] [--updated]
 *
 * Beside it lie dllkupdate.dll and its own kupdate-exec.exe. The uninstaller starts it with
 * --uninstall, and the old version starts the new one with --updated. Exit code: 0, or 1 for a
 * failure.
 */
#include <shlobj.h>
#include <shlwapi.h>
#include <stdio.h>
#include <wchar.h>
#include <windows.h>

#include "dllkupdate.h"

#define ID "example"
#define ID_WIDE L"example"
#define PLATFORM "win64"
#define SETTINGS L"Software\\Example"

enum {
  kPathChars = 1024,
  kCommandLineChars = 32768,
  kTextBytes = 3 * kPathChars,
  kSecondsBetweenReports = 86400,
  kPollMilliseconds = 200,
  kMostPolls = 300,         /* a minute */
  kMostUninstallPolls = 100 /* 20 seconds */
};

typedef struct {
  char feed[kTextBytes];
  char report[kTextBytes];
  bool uninstall;
  bool
      updated; /* just now: an installer that changes nothing must not restart the program for ever */
  wchar_t path[kPathChars]; /* of this program, as it was started: a renamed file changes nothing */
  wchar_t folder[kPathChars]; /* with a backslash at its end */
} Program;

static bool parseArguments(int argc, wchar_t** argv, Program* program) {
  for (int i = 1; i < argc; ++i) {
    char* text = NULL;
    if (wcscmp(argv[i], L"--uninstall") == 0) program->uninstall = true;
    if (wcscmp(argv[i], L"--updated") == 0) program->updated = true;
    if (wcscmp(argv[i], L"--feed") == 0) text = program->feed;
    if (wcscmp(argv[i], L"--report") == 0) text = program->report;
    if (!text) continue;
    if (++i == argc) return false;
    if (!WideCharToMultiByte(CP_UTF8, 0, argv[i], -1, text, kTextBytes, NULL, NULL)) return false;
  }
  return true;
}

static bool findFolder(Program* program) {
  const DWORD length = GetModuleFileNameW(NULL, program->path, kPathChars);
  if (length == 0 || length >= kPathChars - 32) return false;
  wcscpy(program->folder, program->path);
  wcsrchr(program->folder, L'\\')[1] = 0;
  return true;
}

/* The outcome of an update: the version that ran last differs from this one. */
static void noteVersion(void) {
  DWORD last = 0, size = sizeof last;
  const DWORD now = EXAMPLE_VERSION;
  if (SHGetValueW(HKEY_CURRENT_USER, SETTINGS, L"Version", NULL, &last, &size) == 0 &&
      last != now) {
    printf("updated from version %lu to %lu\n", last, now);
  }
  SHSetValueW(HKEY_CURRENT_USER, SETTINGS, L"Version", REG_DWORD, &now, sizeof now);
}

static bool step(const Program* program, const char* operation, int32_t* status) {
  return DLLIsUpdateAvailable(ID, PLATFORM, EXAMPLE_VERSION, 0, 0, 0, true, program->feed,
                              operation, status) == KUPDATE_S_OK;
}

static bool isUpdatePublished(const Program* program) {
  int32_t status = KUPDATE_IN_WORK;
  if (!step(program, "start", &status)) return false;
  for (int poll = 0; poll < kMostPolls; ++poll) {
    if (!step(program, "check", &status)) return false;
    if (status != KUPDATE_IN_WORK) return status == KUPDATE_FOUND;
    Sleep(kPollMilliseconds);
  }
  step(program, "stop", NULL);
  return false;
}

/* A program with windows does this on a thread of its own: the call lasts until the installer has
 * ended. */
static bool isUpdateInstalled(void) {
  int32_t code = -1;
  if (DLLDownloadAndInstallSilentUpdate(&code) != KUPDATE_S_OK) return false;
  printf("the installer ended with %d\n", (int)code);
  /* ERROR_SUCCESS_REBOOT_REQUIRED is a success too, but the files are still those of this version. */
  return code == ERROR_SUCCESS;
}

/* The installer has put the new version in this file's place. A program with documents asks its
 * user first, and goes on as the old version until he agrees. */
static int startNewVersion(const Program* program) {
  wchar_t commandLine[kCommandLineChars];
  STARTUPINFOW startup = {.cb = sizeof startup};
  PROCESS_INFORMATION process;
  swprintf(commandLine, kCommandLineChars, L"%ls --updated", GetCommandLineW());
  if (!CreateProcessW(program->path, commandLine, NULL, NULL, TRUE, 0, NULL, NULL, &startup,
                      &process)) {
    printf("failed: starting the new version, system error %lu\n", GetLastError());
    return 1;
  }
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return 0;
}

static bool hasRun(void) {
  DWORD last = 0, size = sizeof last;
  return SHGetValueW(HKEY_CURRENT_USER, SETTINGS, L"Version", NULL, &last, &size) == 0;
}

static bool isThere(const wchar_t* pattern) {
  WIN32_FIND_DATAW found;
  const HANDLE search = FindFirstFileW(pattern, &found);
  if (search == INVALID_HANDLE_VALUE) return false;
  FindClose(search);
  return true;
}

/* The last report is on its way. When it is delivered the executor removes the program's data and
 * itself, and the uninstaller the rest. Without a network it stays for that, and follows later. */
static int uninstall(const wchar_t* executor) {
  wchar_t pattern[kPathChars], log[kPathChars] = L"";
  /* No report of a program that never ran: no executor would come. */
  if (!hasRun()) return !DeleteFileW(executor);
  if (DLLOnApplicationUninstall(ID) != KUPDATE_S_OK) return 1;
  swprintf(pattern, kPathChars, L"%ls*", executor); /* it is renamed before it is deleted */
  for (int poll = 0; poll < kMostUninstallPolls && isThere(pattern); ++poll) {
    Sleep(kPollMilliseconds);
  }
  SHGetFolderPathW(NULL, CSIDL_APPDATA, NULL, SHGFP_TYPE_CURRENT, log);
  wcscat(log, L"\\Krelix\\Updater\\kupdate-exec-" ID_WIDE L".log");
  DeleteFileW(log);
  SHDeleteKeyW(HKEY_CURRENT_USER, SETTINGS);
  return 0;
}

int wmain(int argc, wchar_t** argv) {
  static Program program = {.feed = "https://example.com/example/version.rss",
                            .report = "https://example.com/example/report"};
  wchar_t executor[kPathChars];
  (void)setvbuf(stdout, NULL, _IONBF, 0);
  if (!parseArguments(argc, argv, &program) || !findFolder(&program)) return 1;
  swprintf(executor, kPathChars, L"%lskupdate-exec.exe", program.folder);
  DLLSetExecutorPath(executor);
  if (program.uninstall) return uninstall(executor);

  printf("version %d runs\n", EXAMPLE_VERSION);
  if (DLLOnApplicationStartup(ID, PLATFORM, program.feed, program.report, kSecondsBetweenReports,
                              EXAMPLE_VERSION, 0, 0, 0, true) != KUPDATE_S_OK) {
    return 1;
  }
  noteVersion();
  if (!isUpdatePublished(&program)) {
    puts("no update");
    return 0;
  }
  puts("an update is published");
  return !program.updated && isUpdateInstalled() ? startNewVersion(&program) : 1;
}
