#include "standin/guid_text.h"

#include <stdexcept>

#include "util/text.h"
#include "util/win/windows_lean.h"
// After the system's header, which it needs.
#include <objbase.h>

namespace standin {

std::string GuidText(const GUID& guid) {
  // 38 characters and the zero.
  wchar_t text[40] = L"";
  ::StringFromGUID2(guid, text, 40);
  return NarrowUtf8(text);
}

std::string NewGuidText() {
  GUID guid;
  if (FAILED(::CoCreateGuid(&guid))) throw std::runtime_error("the system gives no new id");
  return GuidText(guid);
}

GUID GuidFromText(const std::string& text) {
  // All zero if the text is not an id, which only an edited file of jobs can have.
  GUID guid = {};
  ::CLSIDFromString(WidenUtf8(text).c_str(), &guid);
  return guid;
}

}  // namespace standin
