/* A program that keeps itself up to date: it registers, checks for an update and installs it.
 *
 *   kupdate-host --id ID --version A.B.C.D --platform PLATFORM --feed URL
 *                [--report URL] [--locale LOCALE] [--executor PATH] [--unique NAME=VALUE]
 *                [--use PARAMETER] [--wait SECONDS] [--check] [--install] [--uninstall]
 *
 * The samples in other languages have the same command line without --locale, --unique and --use,
 * and print the same lines. The program looks for dllkupdate.dll in its own folder and prints one
 * line for each step. --install checks first. Exit code: 0 for success, 1 for a failure, 2 for no
 * update, 3 for wrong usage.
 */
#include <process.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>
#include <windows.h>

/* The library is loaded by hand. */
#define KUPDATE_NO_IMPORT
#include "dllkupdate.h"

enum { kDone = 0, kFailed = 1, kNoUpdate = 2, kUsage = 3 };

enum {
  kPathChars = 1024,
  kTextBytes = 3 * kPathChars,    /* as UTF-8 */
  kSecondsBetweenReports = 86400, /* a day */
  kPollMilliseconds = 200
};

/* The functions of the library that this program uses. */
typedef kupdate_status(KUPDATE_CALL* SetExecutorPathFunction)(const wchar_t*);
typedef kupdate_status(KUPDATE_CALL* StartupFunction)(const char*, const char*, const char*,
                                                      const char*, int32_t, int32_t, int32_t,
                                                      int32_t, int32_t, kupdate_bool);
typedef kupdate_status(KUPDATE_CALL* SetLocaleFunction)(const char*, const char*);
typedef kupdate_status(KUPDATE_CALL* GetLocaleFunction)(const char*, char*, int32_t*);
typedef kupdate_status(KUPDATE_CALL* IsUpdateAvailableFunction)(const char*, const char*, int32_t,
                                                                int32_t, int32_t, int32_t,
                                                                kupdate_bool, const char*,
                                                                const char*, int32_t*);
typedef kupdate_status(KUPDATE_CALL* InstallFunction)(int32_t*);
typedef kupdate_status(KUPDATE_CALL* SetUniqueParamFunction)(const char*, const char*,
                                                             const wchar_t*);
typedef kupdate_status(KUPDATE_CALL* UsageReportFunction)(const char*, const char*);
typedef kupdate_status(KUPDATE_CALL* UninstallFunction)(const char*);

typedef struct {
  SetExecutorPathFunction setExecutorPath;
  StartupFunction startup;
  SetLocaleFunction setLocale;
  GetLocaleFunction getLocale;
  IsUpdateAvailableFunction isUpdateAvailable;
  InstallFunction install;
  SetUniqueParamFunction setUniqueParam;
  UsageReportFunction usageReport;
  UninstallFunction uninstall;
} Library;

/* The options of this program. Texts are UTF-8, as the library takes them. */
typedef struct {
  char id[kTextBytes];
  char platform[kTextBytes];
  char feed[kTextBytes];
  char report[kTextBytes];
  char locale[kTextBytes];
  const wchar_t* executor; /* null: the updater's default */
  char uniqueName[kTextBytes];
  const wchar_t* uniqueValue; /* null: no parameter */
  char use[kTextBytes];
  int32_t version[4];
  ULONGLONG waitMilliseconds; /* for the feed */
  bool check;
  bool install;
  bool uninstall;
} Program;

static bool toUtf8(const wchar_t* text, char* utf8) {
  return WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8, kTextBytes, NULL, NULL) > 0;
}

/* Converts the first characters of a text. The buffer is zero already, so the text ends. */
static bool toUtf8Part(const wchar_t* text, int chars, char* utf8) {
  return WideCharToMultiByte(CP_UTF8, 0, text, chars, utf8, kTextBytes - 1, NULL, NULL) > 0;
}

/* The library's log has the reason of a failure. */
static int failed(const Program* program, const char* what) {
  printf("failed: %s\n  see %%APPDATA%%\\Krelix\\Updater\\kupdate-exec-%s.log\n", what,
         program->id);
  return kFailed;
}

typedef void (*AnyFunction)(void);

static AnyFunction find(HMODULE module, const char* name) {
  const AnyFunction function = (AnyFunction)GetProcAddress(module, name);
  if (function) return function;
  printf("failed: dllkupdate.dll has no %s\n", name);
  ExitProcess(kFailed);
}

/* By its full path: the system would search for a bare name, and could load a foreign file. The
 * library stays loaded as long as the program runs. */
static Library loadLibrary(void) {
  wchar_t path[kPathChars + 16] = L"";
  const DWORD length = GetModuleFileNameW(NULL, path, kPathChars);
  wchar_t* slash = length < kPathChars ? wcsrchr(path, L'\\') : NULL;
  if (slash) wcscpy(slash + 1, L"dllkupdate.dll");
  const HMODULE module = slash ? LoadLibraryW(path) : NULL;
  if (!module) {
    printf("failed: loading dllkupdate.dll, system error %lu\n", GetLastError());
    ExitProcess(kFailed);
  }
  return (Library){
      .setExecutorPath = (SetExecutorPathFunction)find(module, "DLLSetExecutorPath"),
      .startup = (StartupFunction)find(module, "DLLOnApplicationStartup"),
      .setLocale = (SetLocaleFunction)find(module, "DLLSetLocale"),
      .getLocale = (GetLocaleFunction)find(module, "DLLGetLocale"),
      .isUpdateAvailable = (IsUpdateAvailableFunction)find(module, "DLLIsUpdateAvailable"),
      .install = (InstallFunction)find(module, "DLLDownloadAndInstallSilentUpdate"),
      .setUniqueParam = (SetUniqueParamFunction)find(module, "DLLSetUniqueParam"),
      .usageReport = (UsageReportFunction)find(module, "DLLUsageReport"),
      .uninstall = (UninstallFunction)find(module, "DLLOnApplicationUninstall"),
  };
}

static int registerProgram(const Library* library, const Program* program) {
  const int32_t* v = program->version;
  if (library->startup(program->id, program->platform, program->feed, program->report,
                       kSecondsBetweenReports, v[0], v[1], v[2], v[3], true) != KUPDATE_S_OK) {
    return failed(program, "registering");
  }
  printf("registered as %s, version %d.%d.%d.%d\n", program->id, v[0], v[1], v[2], v[3]);
  return kDone;
}

static int setLocale(const Library* library, const Program* program) {
  char text[64];
  int32_t size = sizeof text;
  if (library->setLocale(program->id, program->locale) != KUPDATE_S_OK ||
      library->getLocale(program->id, text, &size) != KUPDATE_S_OK) {
    return failed(program, "setting the locale");
  }
  /* The library does not copy a text that does not fit, and makes the size larger. */
  if (size > (int32_t)sizeof text || strcmp(text, program->locale) != 0) {
    return failed(program, "reading the locale back");
  }
  printf("locale set to %s and read back\n", text);
  return kDone;
}

/* Call it before the report that must contain the parameter. */
static int setUniqueParam(const Library* library, const Program* program) {
  if (library->setUniqueParam(program->id, program->uniqueName, program->uniqueValue) !=
      KUPDATE_S_OK) {
    return failed(program, "setting a unique parameter");
  }
  printf("unique parameter %s set\n", program->uniqueName);
  return kDone;
}

static int reportUse(const Library* library, const Program* program) {
  if (library->usageReport(program->id, program->use) != KUPDATE_S_OK) {
    return failed(program, "reporting the use");
  }
  printf("use reported with %s\n", program->use);
  return kDone;
}

static int uninstall(const Library* library, const Program* program) {
  if (library->uninstall(program->id) != KUPDATE_S_OK) {
    return failed(program, "reporting the removal");
  }
  puts("removal reported");
  return kDone;
}

static kupdate_status step(const Library* library, const Program* program, const char* operation,
                           int32_t* status) {
  const int32_t* v = program->version;
  return library->isUpdateAvailable(program->id, program->platform, v[0], v[1], v[2], v[3], true,
                                    program->feed, operation, status);
}

static int checkForUpdate(const Library* library, const Program* program) {
  int32_t status = KUPDATE_IN_WORK;
  if (step(library, program, "start", &status) != KUPDATE_S_OK) {
    return failed(program, "starting the check");
  }
  puts("check started");
  /* While the server is away, the job waits for it: the loop must end by itself. */
  const ULONGLONG begin = GetTickCount64();
  do {
    if (step(library, program, "check", &status) != KUPDATE_S_OK) {
      return failed(program, "reading the feed");
    }
    switch (status) {
      case KUPDATE_IN_WORK:
        puts("poll: in work");
        break;
      case KUPDATE_FOUND:
        puts("poll: update found");
        return kDone;
      case KUPDATE_NO_UPDATE:
        puts("poll: no update");
        return kNoUpdate;
      default:
        puts("poll: job failed");
        return failed(program, "downloading the feed");
    }
    Sleep(kPollMilliseconds);
  } while (GetTickCount64() - begin < program->waitMilliseconds);
  step(library, program, "stop", NULL);
  return failed(program, "waiting for the feed: it took too long");
}

typedef struct {
  const Library* library;
  kupdate_status result;
  int32_t exitCode;
} Installation;

static unsigned __stdcall runInstallation(void* argument) {
  Installation* installation = argument;
  installation->result = installation->library->install(&installation->exitCode);
  return 0;
}

/* The call returns when the installer has ended, so it runs on a thread of its own. A program with
 * windows would handle messages meanwhile. */
static int installUpdate(const Library* library, const Program* program) {
  Installation installation = {library, KUPDATE_E_FAIL, 0};
  HANDLE thread = (HANDLE)_beginthreadex(NULL, 0, runInstallation, &installation, 0, NULL);
  if (!thread) return failed(program, "starting a thread");
  puts("silent installation started");
  WaitForSingleObject(thread, INFINITE);
  CloseHandle(thread);
  if (installation.result != KUPDATE_S_OK) return failed(program, "the silent installation");
  printf("installer exit code %d\n", installation.exitCode);
  return kDone;
}

static bool parseVersion(const wchar_t* text, int32_t* version) {
  int32_t* v = version;
  int end = 0;
  if (swscanf(text, L"%d.%d.%d.%d%n", &v[0], &v[1], &v[2], &v[3], &end) != 4) return false;
  for (int i = 0; i < 4; ++i) {
    if (v[i] < 0 || v[i] > 0xFFFF) return false;
  }
  return text[end] == 0;
}

static bool parseUnique(const wchar_t* text, Program* program) {
  const wchar_t* equals = wcschr(text, L'=');
  if (!equals) return false;
  program->uniqueValue = equals + 1;
  return toUtf8Part(text, (int)(equals - text), program->uniqueName);
}

static bool parseSeconds(const wchar_t* text, Program* program) {
  wchar_t* end;
  program->waitMilliseconds = 1000 * (ULONGLONG)wcstoul(text, &end, 10);
  return *text && !*end;
}

static bool parseOption(const wchar_t* name, const wchar_t* value, Program* program) {
  if (wcscmp(name, L"--id") == 0) return toUtf8(value, program->id);
  if (wcscmp(name, L"--version") == 0) return parseVersion(value, program->version);
  if (wcscmp(name, L"--platform") == 0) return toUtf8(value, program->platform);
  if (wcscmp(name, L"--feed") == 0) return toUtf8(value, program->feed);
  if (wcscmp(name, L"--report") == 0) return toUtf8(value, program->report);
  if (wcscmp(name, L"--locale") == 0) return toUtf8(value, program->locale);
  if (wcscmp(name, L"--unique") == 0) return parseUnique(value, program);
  if (wcscmp(name, L"--use") == 0) return toUtf8(value, program->use);
  if (wcscmp(name, L"--wait") == 0) return parseSeconds(value, program);
  program->executor = value;
  return wcscmp(name, L"--executor") == 0;
}

static bool parseArguments(int argc, wchar_t** argv, Program* program) {
  program->version[0] = -1;
  program->waitMilliseconds = 60000;
  for (int i = 1; i < argc; ++i) {
    if (wcscmp(argv[i], L"--check") == 0) {
      program->check = true;
    } else if (wcscmp(argv[i], L"--install") == 0) {
      program->check = program->install = true;
    } else if (wcscmp(argv[i], L"--uninstall") == 0) {
      program->uninstall = true;
    } else if (i + 1 == argc || !parseOption(argv[i], argv[i + 1], program)) {
      return false;
    } else {
      ++i;
    }
  }
  return program->id[0] && program->platform[0] && program->feed[0] && program->version[0] >= 0;
}

int wmain(int argc, wchar_t** argv) {
  static Program program;
  (void)setvbuf(stdout, NULL, _IONBF, 0); /* show each line at once, also in a file */
  if (!parseArguments(argc, argv, &program)) {
    puts(
        "usage: kupdate-host --id ID --version A.B.C.D --platform PLATFORM --feed URL\n"
        "       [--report URL] [--locale LOCALE] [--executor PATH] [--unique NAME=VALUE]\n"
        "       [--use PARAMETER] [--wait SECONDS] [--check] [--install]\n"
        "       [--uninstall]");
    return kUsage;
  }
  const Library library = loadLibrary();
  if (program.executor) library.setExecutorPath(program.executor);
  int result = registerProgram(&library, &program);
  if (result == kDone && program.locale[0]) result = setLocale(&library, &program);
  if (result == kDone && program.uniqueValue) result = setUniqueParam(&library, &program);
  if (result == kDone && program.use[0]) result = reportUse(&library, &program);
  if (result == kDone && program.check) result = checkForUpdate(&library, &program);
  if (result == kDone && program.install) result = installUpdate(&library, &program);
  if (result == kDone && program.uninstall) result = uninstall(&library, &program);
  return result;
}
