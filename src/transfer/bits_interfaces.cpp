#include "transfer/bits_interfaces.h"

#include "transfer/com_functions.h"

_COM_SMARTPTR_TYPEDEF(IUnknown, __uuidof(IUnknown));

IBackgroundCopyManagerPtr ConnectToService() {
  // The steps of the smart pointer's own CreateInstance, which would import ole32.dll.
  IUnknownPtr server;
  hrcheck() = com::CoCreateInstance(__uuidof(BackgroundCopyManager), nullptr, CLSCTX_LOCAL_SERVER,
                                    __uuidof(IUnknown), reinterpret_cast<void**>(&server));
  hrcheck() = com::OleRun(server.GetInterfacePtr());
  IBackgroundCopyManagerPtr manager;
  hrcheck() = server.QueryInterface(__uuidof(IBackgroundCopyManager), &manager);
  return manager;
}

std::wstring GuidText(const GUID& id) {
  constexpr int kGuidChars = 39;  // its ending zero included
  wchar_t text[kGuidChars] = {};
  com::StringFromGUID2(id, text, kGuidChars);
  return text;
}
