#include <algorithm>

#include "fuzz/fuzz.h"
#include "install/manifest.h"

namespace {

// One of the two numbers, in DER.
std::string Integer(const std::uint8_t* number) {
  const std::uint8_t* const end = number + 32;
  const std::uint8_t* const first = std::find_if(number, end, [](auto byte) { return byte != 0; });
  std::string bytes(first, end);
  if (first != end && *first >= 0x80) bytes.insert(0, 1, '\0');
  return std::string{2, static_cast<char>(bytes.size())} + bytes;
}

std::string Base64(std::string_view bytes) {
  constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  unsigned held = 0;
  int bits = 0;
  for (const char c : bytes) {
    held = held << 8 | static_cast<unsigned char>(c);
    for (bits += 8; bits >= 6; bits -= 6) text += kDigits[held >> (bits - 6) & 63];
  }
  if (bits > 0) text += kDigits[held << (6 - bits) & 63];
  return text.append((4 - text.size() % 4) % 4, '=');
}

}  // namespace

// Of one content and one signature there is one text only: no byte of a signed manifest can be
// changed without changing what is verified.
void FuzzManifest(std::string_view input) {
  Manifest m;
  if (!ParseManifest(input, &m).empty()) return;
  const std::string numbers = Integer(m.signature.data()) + Integer(m.signature.data() + 32);
  const std::string der = std::string{0x30, static_cast<char>(numbers.size())} + numbers;
  Check(m.signedText + "signature: " + Base64(der) + "\n" == input, "a manifest has one form");
  Check(input.size() <= kMaxManifestBytes, "it is bounded");
  Check(m.size > 0 && m.size <= kMaxFileBytes, "a file has a size");
  UpdateOffer offer{m.app, m.version, {}, {}, m.size, m.starter, m.args, m.mayElevate};
  Check(FaultOf(m, offer, m.expiresAt - 1).empty(), "it vouches for its own offer");
  Check(!FaultOf(m, offer, m.expiresAt).empty(), "and not for ever");
  ++offer.version;
  Check(!FaultOf(m, offer, 0).empty(), "and for no other");
}
