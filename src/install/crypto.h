// Digests, signatures and random numbers, by the system's own code. All of it throws
// std::runtime_error where the system lacks that code.
#ifndef KUPDATE_INSTALL_CRYPTO_H_
#define KUPDATE_INSTALL_CRYPTO_H_

#include <cstddef>
#include <string>
#include <string_view>

#include "install/p256.h"

enum class DigestKind { kMd5, kSha256 };

/// The digest of bytes that come in pieces. A failure of the system is logged and shows at the end.
class Hasher {
 public:
  explicit Hasher(DigestKind kind);
  ~Hasher();
  Hasher(const Hasher&) = delete;
  Hasher& operator=(const Hasher&) = delete;

  void Update(std::string_view bytes);
  /// The digest as bytes, empty after a failure. To be called once.
  std::string Finish();

 private:
  void* algorithm_ = nullptr;
  void* hash_ = nullptr;
  bool failed_ = false;
};

/// Bytes as hexadecimal digits in lower case.
std::string HexText(std::string_view bytes);

/// Whether `signature` is that of `text` (its SHA-256) under `key`. A key that the system does not
/// take verifies nothing; that is logged.
bool VerifyP256(const P256Pair& key, std::string_view text, const P256Pair& signature);

/// Random bytes of the system, in hexadecimal; empty when it gives none.
std::string RandomHex(std::size_t byteCount);

#endif  // KUPDATE_INSTALL_CRYPTO_H_
