#include "util/text.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace {

// 0x80 to 0xBF of windows-1251; from 0xC0 on the Cyrillic letters stand in the order of Unicode.
constexpr char16_t kCp1251High[64] = {
    0x0402, 0x0403, 0x201A, 0x0453, 0x201E, 0x2026, 0x2020, 0x2021, 0x20AC, 0x2030, 0x0409,
    0x2039, 0x040A, 0x040C, 0x040B, 0x040F, 0x0452, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x0098, 0x2122, 0x0459, 0x203A, 0x045A, 0x045C, 0x045B, 0x045F, 0x00A0,
    0x040E, 0x045E, 0x0408, 0x00A4, 0x0490, 0x00A6, 0x00A7, 0x0401, 0x00A9, 0x0404, 0x00AB,
    0x00AC, 0x00AD, 0x00AE, 0x0407, 0x00B0, 0x00B1, 0x0406, 0x0456, 0x0491, 0x00B5, 0x00B6,
    0x00B7, 0x0451, 0x2116, 0x0454, 0x00BB, 0x0458, 0x0405, 0x0455, 0x0457};

char LowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

std::string Utf8FromCp1251(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      text += c;
      continue;
    }
    const unsigned code = byte >= 0xC0 ? 0x0410u + (byte - 0xC0u) : kCp1251High[byte - 0x80u];
    if (code >= 0x800) {
      text += static_cast<char>(0xE0 | (code >> 12));
      text += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    } else {
      text += static_cast<char>(0xC0 | (code >> 6));
    }
    text += static_cast<char>(0x80 | (code & 0x3F));
  }
  return text;
}

std::size_t Utf8CharLength(std::string_view bytes) {
  const auto at = [&](std::size_t i) {
    return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0u;
  };
  const auto continues = [&](std::size_t i) { return (at(i) & 0xC0) == 0x80; };
  const unsigned lead = at(0);
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) return continues(1) ? 2 : 0;
  if (lead >= 0xE0 && lead <= 0xEF) {
    // A longer form of a character, or half of a pair, is no character: other readers refuse it.
    const bool overlong = lead == 0xE0 && at(1) < 0xA0;
    const bool surrogate = lead == 0xED && at(1) > 0x9F;
    return continues(1) && continues(2) && !overlong && !surrogate ? 3 : 0;
  }
  if (lead >= 0xF0 && lead <= 0xF4) {
    const bool overlong = lead == 0xF0 && at(1) < 0x90;
    const bool tooHigh = lead == 0xF4 && at(1) > 0x8F;
    return continues(1) && continues(2) && continues(3) && !overlong && !tooHigh ? 4 : 0;
  }
  return 0;
}

bool IsValidUtf8(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t length = Utf8CharLength(bytes);
    if (length == 0) return false;
    bytes.remove_prefix(length);
  }
  return true;
}

bool EqualsIgnoreCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return LowerAscii(x) == LowerAscii(y); });
}

std::int64_t ParseInt64(std::string_view text) {
  // Not by strtoll, whose blanks depend on the host's locale.
  while (!text.empty() && (text[0] == ' ' || (text[0] >= '\t' && text[0] <= '\r')))
    text.remove_prefix(1);
  const bool negative = !text.empty() && text[0] == '-';
  if (!text.empty() && text[0] == '+') text.remove_prefix(1);
  // from_chars would accept the minus of "+-1".
  if (!text.empty() && !negative && text[0] == '-') return 0;
  std::int64_t value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec == std::errc::result_out_of_range) {
    return negative ? std::numeric_limits<std::int64_t>::min()
                    : std::numeric_limits<std::int64_t>::max();
  }
  return result.ec == std::errc() ? value : 0;
}

// Numbers are formatted without printf, which would bring 23 KB into library and executor.
std::string DecimalText(std::int64_t value) {
  char text[24];
  return std::string(text, std::to_chars(text, text + sizeof text, value).ptr);
}

std::string PaddedText(int value, std::size_t width) {
  const std::string digits = DecimalText(value);
  return std::string(width - std::min(width, digits.size()), '0') + digits;
}

std::string HexText(std::uint32_t value) {
  char text[16];
  return "0x" + std::string(text, std::to_chars(text, text + sizeof text, value, 16).ptr);
}

std::string DateText(int day, int month, int year) {
  return PaddedText(day, 2) + "." + PaddedText(month, 2) + "." + PaddedText(year, 4);
}
