// Conversions by the system's own code.
#include "util/text.h"
#include "util/win/windows_lean.h"

namespace {

std::wstring Widen(UINT codePage, std::string_view text) {
  const int bytes = static_cast<int>(text.size());
  const int chars = ::MultiByteToWideChar(codePage, 0, text.data(), bytes, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(chars), L'\0');
  ::MultiByteToWideChar(codePage, 0, text.data(), bytes, wide.data(), chars);
  return wide;
}

std::string Narrow(UINT codePage, std::wstring_view text) {
  const int chars = static_cast<int>(text.size());
  const int bytes =
      ::WideCharToMultiByte(codePage, 0, text.data(), chars, nullptr, 0, nullptr, nullptr);
  std::string narrow(static_cast<std::size_t>(bytes), '\0');
  ::WideCharToMultiByte(codePage, 0, text.data(), chars, narrow.data(), bytes, nullptr, nullptr);
  return narrow;
}

}  // namespace

std::wstring WidenUtf8(std::string_view text) { return Widen(CP_UTF8, text); }
std::wstring WidenAnsi(std::string_view text) { return Widen(CP_ACP, text); }

std::string NarrowUtf8(std::wstring_view text) { return Narrow(CP_UTF8, text); }

// Compares instead of using the flags that refuse a text without an exact form: a system whose code
// page is UTF-8 does not take them.
std::optional<std::string> NarrowAnsi(std::wstring_view text) {
  std::string narrow = Narrow(CP_ACP, text);
  if (WidenAnsi(narrow) != text) return {};
  return narrow;
}

bool EqualsIgnoreCase(std::wstring_view a, std::wstring_view b) {
  return ::CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(),
                                static_cast<int>(b.size()), TRUE) == CSTR_EQUAL;
}
