/* The header as a C host includes it, and the functions by name and by ordinal. */
#include "dllkupdate.h"

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

/* Returns how many functions were found under their name and, the same, under their ordinal. */
int CountFunctionsFromC(void* module) {
  static const char* const kNames[] = {"DLLForceUpdateCheck",
                                       "DLLGetApplicationState",
                                       "DLLGetOptionalParam",
                                       "DLLIsUpgradeAvailable",
                                       "DLLOnApplicationStartup",
                                       "DLLOnApplicationUninstall",
                                       "DLLSetApplicationState",
                                       "DLLSetExecutorPath",
                                       "DLLSetOptionalParam",
                                       "DLLUsageReport",
                                       "DLLDownloadAndInstallSilentUpdate",
                                       "DLLGetLocale",
                                       "DLLGetUniqUserId",
                                       "DLLGetUniqueParam",
                                       "DLLIsUpdateAvailable",
                                       "DLLSetLocale",
                                       "DLLSetUniqueParam"};
  int found = 0;
  for (int i = 0; i < (int)(sizeof kNames / sizeof kNames[0]); ++i) {
    const FARPROC by_name = GetProcAddress((HMODULE)module, kNames[i]);
    const FARPROC by_ordinal = GetProcAddress((HMODULE)module, (LPCSTR)(ULONG_PTR)(i + 1));
    found += by_name != NULL && by_name == by_ordinal;
  }
  return found;
}

/* Sets and reads a locale as a C host does; returns whether it came back. */
int LocaleRoundTripFromC(void* module) {
  kupdate_status (*set_locale)(const char*, const char*) = (kupdate_status(*)(
      const char*, const char*))(void (*)(void))GetProcAddress((HMODULE)module, "DLLSetLocale");
  kupdate_status (*get_locale)(const char*, char*, int32_t*) = (kupdate_status(*)(
      const char*, char*, int32_t*))(void (*)(void))GetProcAddress((HMODULE)module, (LPCSTR)12);
  char buffer[8] = "";
  int32_t size = sizeof buffer;
  return set_locale("c-host", "en") == KUPDATE_S_OK &&
         get_locale("c-host", buffer, &size) == KUPDATE_S_OK && lstrcmpA(buffer, "en") == 0;
}
