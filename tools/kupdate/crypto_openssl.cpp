#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <stdexcept>

#include "kupdate/crypto.h"

namespace {

// The DER form of a key is this header and the point.
constexpr std::string_view kKeyHeader(
    "\x30\x59\x30\x13\x06\x07\x2A\x86\x48\xCE\x3D\x02\x01\x06\x08\x2A\x86\x48\xCE\x3D\x03\x01\x07"
    "\x03\x42\x00\x04",
    27);

}  // namespace

std::string Sha256Hex(std::string_view bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("OpenSSL offers no SHA-256");
  }
  std::string text;
  for (unsigned i = 0; i < size; ++i) {
    text += "0123456789abcdef"[digest[i] >> 4];
    text += "0123456789abcdef"[digest[i] & 0xF];
  }
  return text;
}

bool IsOnCurve(const P256Pair& key) {
  std::string der(kKeyHeader);
  der.append(key.begin(), key.end());
  const auto* at = reinterpret_cast<const unsigned char*>(der.data());
  const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> read(
      d2i_PUBKEY(nullptr, &at, static_cast<long>(der.size())), &EVP_PKEY_free);
  return read != nullptr;
}
