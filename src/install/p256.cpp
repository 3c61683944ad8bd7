#include "install/p256.h"

#include <algorithm>
#include <string>

#include "install/base64.h"

namespace {

using namespace std::string_view_literals;

constexpr std::size_t kNumberBytes = 32;

// The bytes before the point, the same in each such key: the algorithm, the curve, "uncompressed".
constexpr std::string_view kKeyHeader =
    "\x30\x59\x30\x13\x06\x07\x2A\x86\x48\xCE\x3D\x02\x01\x06\x08\x2A\x86\x48\xCE\x3D\x03\x01\x07"
    "\x03\x42\x00\x04"sv;

constexpr char kSequence = 0x30;
constexpr char kInteger = 0x02;

// Cuts one element off the front of `der`. Lengths of 128 and more, which no signature of this
// curve has, are refused.
std::optional<std::string_view> TakeElement(std::string_view& der, char tag) {
  if (der.size() < 2 || der[0] != tag) return {};
  const std::size_t length = static_cast<unsigned char>(der[1]);
  if (length > 127 || length > der.size() - 2) return {};
  const std::string_view content = der.substr(2, length);
  der.remove_prefix(2 + length);
  return content;
}

bool IsHigh(char byte) { return (static_cast<unsigned char>(byte) & 0x80) != 0; }

// Writes a positive integer to the 32 bytes at `number`.
bool TakeNumber(std::string_view& der, std::uint8_t* number) {
  std::optional<std::string_view> content = TakeElement(der, kInteger);
  if (!content || content->empty() || IsHigh(content->front())) return false;
  if (content->front() == 0) {
    // A leading zero may only keep a number with a high bit positive.
    content->remove_prefix(1);
    if (content->empty() || !IsHigh(content->front())) return false;
  }
  if (content->size() > kNumberBytes) return false;
  std::transform(content->begin(), content->end(), number + kNumberBytes - content->size(),
                 [](char byte) { return static_cast<std::uint8_t>(byte); });
  return true;
}

}  // namespace

std::optional<P256Pair> PublicKeyFromBase64(std::string_view text) {
  const std::optional<std::string> der = DecodeBase64(text);
  P256Pair key;
  if (!der || !der->starts_with(kKeyHeader) || der->size() != kKeyHeader.size() + key.size()) {
    return {};
  }
  std::transform(der->begin() + kKeyHeader.size(), der->end(), key.begin(),
                 [](char byte) { return static_cast<std::uint8_t>(byte); });
  return key;
}

std::optional<P256Pair> SignatureFromDer(std::string_view der) {
  P256Pair signature = {};
  std::optional<std::string_view> numbers = TakeElement(der, kSequence);
  if (!numbers || !der.empty() || !TakeNumber(*numbers, signature.data()) ||
      !TakeNumber(*numbers, signature.data() + kNumberBytes) || !numbers->empty()) {
    return {};
  }
  return signature;
}
