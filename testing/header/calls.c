/* Calls every function of the header, in the part of C that all versions of C and C++ share. Never
 * run: scripts/check-header compiles it, and the build links it with the import library. */
#include "dllkupdate.h"

kupdate_status KUPDATE_CALL callAll(const char* text, char* buffer, wchar_t* wide, int32_t* size) {
  static const char version[] = KUPDATE_VERSION_TEXT;
  kupdate_bool result = 0;
  kupdate_status status = KUPDATE_S_OK;
  status |= DLLForceUpdateCheck(text, 1);
  status |= DLLGetApplicationState(text, buffer, size);
  status |= DLLGetOptionalParam(text, buffer, size);
  status |= DLLIsUpgradeAvailable(text, 1, &result);
  status |= DLLOnApplicationStartup(text, text, text, text, 1, 2, 3, 4, 5, result);
  status |= DLLOnApplicationUninstall(text);
  status |= DLLSetApplicationState(text, text);
  status |= DLLSetExecutorPath(wide);
  status |= DLLSetOptionalParam(text, text);
  status |= DLLUsageReport(text, version);
  status |= DLLDownloadAndInstallSilentUpdate(size);
  status |= DLLGetLocale(text, buffer, size);
  status |= DLLSetLocale(text, DLLGetUniqUserId());
  status |= DLLGetUniqueParam(text, text, wide, size);
  status |= DLLIsUpdateAvailable(text, text, 1, 2, 3, 4, result, text, text, size);
  status |= DLLSetUniqueParam(text, text, wide);
  return size && *size == KUPDATE_FOUND ? status : KUPDATE_E_FAIL;
}
