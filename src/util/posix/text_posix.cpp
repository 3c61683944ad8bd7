// Conversions where wide characters have 32 bits.
#include <algorithm>
#include <cwctype>

#include "util/text.h"

namespace {

constexpr wchar_t kReplacement = 0xFFFD;

// Decodes one sequence at the start of `bytes` and drops it. Of a broken one each byte becomes a
// replacement of its own.
wchar_t DecodeOne(std::string_view& bytes) {
  const auto lead = static_cast<unsigned char>(bytes[0]);
  const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  const std::string_view sequence = bytes.substr(0, length);
  if (sequence.size() != length || !IsValidUtf8(sequence)) {
    bytes.remove_prefix(1);
    return kReplacement;
  }
  bytes.remove_prefix(length);
  unsigned code = length == 1 ? lead : lead & (0xFFu >> (length + 1));
  for (const char c : sequence.substr(1))
    code = code << 6 | (static_cast<unsigned char>(c) & 0x3Fu);
  return static_cast<wchar_t>(code);
}

void Encode(std::uint32_t code, std::string* text) {
  if (code < 0x80) {
    *text += static_cast<char>(code);
    return;
  }
  // Half of a pair is no character, as on Windows.
  if (code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) code = kReplacement;
  const int continuations = code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
  const std::uint32_t marks[] = {0, 0xC0, 0xE0, 0xF0};
  *text += static_cast<char>(marks[continuations] | code >> (6 * continuations));
  for (int i = continuations - 1; i >= 0; --i) {
    *text += static_cast<char>(0x80 | ((code >> (6 * i)) & 0x3F));
  }
}

}  // namespace

std::wstring WidenUtf8(std::string_view text) {
  // Most texts are ASCII: they are widened at once.
  const auto plainEnd =
      std::find_if(text.begin(), text.end(), [](char c) { return (c & 0x80) != 0; });
  std::wstring wide(text.begin(), plainEnd);
  text.remove_prefix(wide.size());
  wide.reserve(wide.size() + text.size());
  while (!text.empty()) wide += DecodeOne(text);
  return wide;
}

std::wstring WidenAnsi(std::string_view text) { return WidenUtf8(text); }

std::string NarrowUtf8(std::wstring_view text) {
  std::string narrow;
  narrow.reserve(text.size());
  for (const wchar_t c : text) Encode(static_cast<std::uint32_t>(c), &narrow);
  return narrow;
}

std::optional<std::string> NarrowAnsi(std::wstring_view text) {
  std::string narrow = NarrowUtf8(text);
  if (WidenUtf8(narrow) != text) return {};
  return narrow;
}

bool EqualsIgnoreCase(std::wstring_view a, std::wstring_view b) {
  const auto lower = [](wchar_t c) { return std::towlower(static_cast<std::wint_t>(c)); };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [&](wchar_t x, wchar_t y) { return lower(x) == lower(y); });
}
