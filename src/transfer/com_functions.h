// The functions of COM that this folder calls. For its sources only.
#ifndef KUPDATE_TRANSFER_COM_FUNCTIONS_H_
#define KUPDATE_TRANSFER_COM_FUNCTIONS_H_

#include "util/win/system_library.h"

#include <objbase.h>
#include <ole2.h>

/// Named as the system names them. Each throws std::runtime_error where it is missing.
namespace com {

SYSTEM_FUNCTION("ole32.dll", CLSIDFromString);
SYSTEM_FUNCTION("ole32.dll", CoCreateInstance);
SYSTEM_FUNCTION("ole32.dll", CoInitializeEx);
SYSTEM_FUNCTION("ole32.dll", CoTaskMemFree);
SYSTEM_FUNCTION("ole32.dll", CoUninitialize);
SYSTEM_FUNCTION("ole32.dll", OleRun);
SYSTEM_FUNCTION("ole32.dll", StringFromGUID2);
SYSTEM_FUNCTION("oleaut32.dll", SysFreeString);

}  // namespace com

#endif  // KUPDATE_TRANSFER_COM_FUNCTIONS_H_
