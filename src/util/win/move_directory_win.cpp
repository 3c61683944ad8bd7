#include "util/files.h"
#include "util/win/windows_lean.h"

#include <shellapi.h>

#include "util/diag_log.h"
#include "util/log_line.h"

bool JustUtil::MoveDirectory(const std::wstring& source, const std::wstring& destination) {
  wchar_t from[kMaxShellPathChars + 1];
  wchar_t to[kMaxShellPathChars + 1];
  if (!PrepareString(source, from) || !PrepareString(destination, to)) return false;
  LOG_D << "Try to move" << source;
  LOG_D << "         to" << destination;
  SHFILEOPSTRUCTW operation = {};
  operation.wFunc = FO_MOVE;
  operation.pFrom = from;
  operation.pTo = to;
  operation.fFlags = FOF_SILENT | FOF_NOCONFIRMATION | FOF_NOERRORUI;
  const int code = ::SHFileOperationW(&operation);
  // After a success too: the result says nothing, so callers learn of a failure from this line.
  LOG_E << "SHFileOperation." << kLastError << kOtherCode << code;
  if (operation.fAnyOperationsAborted) LOG_E << "Error in SHFileOperation. OperationsAborted.";
  return true;
}
