#include "transfer/bits_interfaces.h"

#include <memory>

IBackgroundCopyManagerPtr ConnectToService() {
  IBackgroundCopyManagerPtr manager;
  hrcheck() = manager.CreateInstance(__uuidof(BackgroundCopyManager), nullptr, CLSCTX_ALL);
  return manager;
}

std::wstring GuidText(const GUID& id) {
  LPOLESTR text = nullptr;
  hrcheck() = ::StringFromCLSID(id, &text);
  const std::unique_ptr<OLECHAR, decltype(&::CoTaskMemFree)> owner(text, &::CoTaskMemFree);
  return text;
}
