#include "standin/com_text.h"

#include <cstring>

#include "util/win/windows_lean.h"
// After the system's header, which it needs.
#include <objbase.h>

namespace standin {

// Clients free texts with CoTaskMemFree, so only COM's own allocator will do.
HResult CopyOut(const std::wstring& text, wchar_t** copy) {
  const std::size_t bytes = (text.size() + 1) * sizeof(wchar_t);
  *copy = static_cast<wchar_t*>(::CoTaskMemAlloc(bytes));
  if (!*copy) return E_OUTOFMEMORY;
  std::memcpy(*copy, text.c_str(), bytes);
  return S_OK;
}

}  // namespace standin
