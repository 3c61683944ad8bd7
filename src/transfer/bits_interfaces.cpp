#include "transfer/bits_interfaces.h"

IBackgroundCopyManagerPtr ConnectToService() {
  IBackgroundCopyManagerPtr manager;
  hrcheck() = manager.CreateInstance(__uuidof(BackgroundCopyManager), nullptr, CLSCTX_ALL);
  return manager;
}

std::wstring GuidText(const GUID& id) {
  LPOLESTR text = nullptr;
  hrcheck() = ::StringFromCLSID(id, &text);
  const std::wstring result = text;
  ::CoTaskMemFree(text);
  return result;
}
