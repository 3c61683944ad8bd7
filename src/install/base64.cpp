#include "install/base64.h"

#include <cstdint>

namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

std::optional<std::string> DecodeBase64(std::string_view text) {
  if (text.size() % 4 != 0) return {};
  for (int padding = 0; padding < 2 && text.ends_with('='); ++padding) text.remove_suffix(1);
  std::string bytes;
  std::uint32_t bits = 0;
  int bitCount = 0;
  for (const char c : text) {
    const std::size_t digit = kDigits.find(c);
    if (digit == std::string_view::npos) return {};
    bits = bits << 6 | static_cast<std::uint32_t>(digit);
    bitCount += 6;
    if (bitCount < 8) continue;
    bitCount -= 8;
    bytes += static_cast<char>(bits >> bitCount & 0xFF);
    bits &= (1U << bitCount) - 1;
  }
  // Bits that belong to no byte: the same bytes would have several spellings.
  if (bits != 0) return {};
  return bytes;
}
