#include "kupdate/key_file.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "install/base64.h"
#include "install/p256.h"
#include "kupdate/crypto.h"

namespace {

constexpr std::size_t kFingerprintDigits = 16;

}  // namespace

std::string PublicKeyFromPem(std::string_view pem) {
  constexpr std::string_view kBegin = "-----BEGIN PUBLIC KEY-----";
  constexpr std::string_view kEnd = "-----END PUBLIC KEY-----";
  // A private key must never get near a file that is shipped, so it is refused by name.
  if (pem.find("PRIVATE KEY-----") != pem.npos) {
    throw std::runtime_error(
        "it holds a private key; name the public one "
        "(openssl pkey -in KEY.pem -pubout -out KEY.pub.pem)");
  }
  const std::size_t begin = pem.find(kBegin);
  const std::size_t end = pem.find(kEnd);
  if (begin == pem.npos || end == pem.npos || end < begin) {
    throw std::runtime_error("it holds no public key in PEM form");
  }
  std::string key(pem.substr(begin + kBegin.size(), end - begin - kBegin.size()));
  std::erase_if(key, [](char c) { return c == '\r' || c == '\n' || c == ' '; });
  const std::optional<P256Pair> point = PublicKeyFromBase64(key);
  if (!point) throw std::runtime_error("its key is not of the curve P-256 (prime256v1)");
  if (!IsOnCurve(*point)) throw std::runtime_error("its key is no point of the curve P-256");
  return key;
}

std::string Fingerprint(const std::string& key) {
  return Sha256Hex(DecodeBase64(key).value_or(std::string())).substr(0, kFingerprintDigits);
}
