#include "install/crypto.h"
#include "util/win/system_library.h"

#include <bcrypt.h>

#include "util/diag_log.h"
#include "util/log_line.h"

namespace {

namespace crypt {
SYSTEM_FUNCTION("bcrypt.dll", BCryptCloseAlgorithmProvider);
SYSTEM_FUNCTION("bcrypt.dll", BCryptCreateHash);
SYSTEM_FUNCTION("bcrypt.dll", BCryptDestroyHash);
SYSTEM_FUNCTION("bcrypt.dll", BCryptDestroyKey);
SYSTEM_FUNCTION("bcrypt.dll", BCryptFinishHash);
SYSTEM_FUNCTION("bcrypt.dll", BCryptGenRandom);
SYSTEM_FUNCTION("bcrypt.dll", BCryptGetProperty);
SYSTEM_FUNCTION("bcrypt.dll", BCryptHashData);
SYSTEM_FUNCTION("bcrypt.dll", BCryptImportKeyPair);
SYSTEM_FUNCTION("bcrypt.dll", BCryptOpenAlgorithmProvider);
SYSTEM_FUNCTION("bcrypt.dll", BCryptVerifySignature);
}  // namespace crypt

// Find() gives the function wherever there is something to close: another function of the same DLL
// has opened it.
void CloseAlgorithm(BCRYPT_ALG_HANDLE algorithm) {
  const auto close = crypt::BCryptCloseAlgorithmProvider.Find();
  if (algorithm && close) close(algorithm, 0);
}

// The system's functions declare even their input as not constant.
PUCHAR BytesOf(std::string_view text) {
  return reinterpret_cast<PUCHAR>(const_cast<char*>(text.data()));
}

class UniqueAlgorithm {
 public:
  explicit UniqueAlgorithm(const wchar_t* name) {
    // Negative results are failures, here and below.
    if (crypt::BCryptOpenAlgorithmProvider(&handle_, name, nullptr, 0) < 0) handle_ = nullptr;
  }
  ~UniqueAlgorithm() { CloseAlgorithm(handle_); }
  UniqueAlgorithm(const UniqueAlgorithm&) = delete;
  UniqueAlgorithm& operator=(const UniqueAlgorithm&) = delete;
  BCRYPT_ALG_HANDLE get() const { return handle_; }

 private:
  BCRYPT_ALG_HANDLE handle_ = nullptr;
};

// Empty when the system does not take the key.
class UniquePublicKey {
 public:
  UniquePublicKey(const UniqueAlgorithm& algorithm, const P256Pair& key) {
    struct Blob {
      BCRYPT_ECCKEY_BLOB header = {BCRYPT_ECDSA_PUBLIC_P256_MAGIC, 32};
      P256Pair point;
    } blob;
    blob.point = key;
    if (crypt::BCryptImportKeyPair(algorithm.get(), nullptr, BCRYPT_ECCPUBLIC_BLOB, &handle_,
                                   reinterpret_cast<PUCHAR>(&blob), ULONG{sizeof blob}, 0) < 0) {
      handle_ = nullptr;
    }
  }
  ~UniquePublicKey() {
    const auto destroy = crypt::BCryptDestroyKey.Find();
    if (handle_ && destroy) destroy(handle_);
  }
  UniquePublicKey(const UniquePublicKey&) = delete;
  UniquePublicKey& operator=(const UniquePublicKey&) = delete;
  BCRYPT_KEY_HANDLE get() const { return handle_; }

 private:
  BCRYPT_KEY_HANDLE handle_ = nullptr;
};

}  // namespace

Hasher::Hasher(DigestKind kind) {
  const wchar_t* const name =
      kind == DigestKind::kMd5 ? BCRYPT_MD5_ALGORITHM : BCRYPT_SHA256_ALGORITHM;
  failed_ = crypt::BCryptOpenAlgorithmProvider(&algorithm_, name, nullptr, 0) < 0 ||
            crypt::BCryptCreateHash(algorithm_, &hash_, nullptr, 0, nullptr, 0, 0) < 0;
  if (failed_) LOG_E << "The system offers no digest of this kind.";
}

Hasher::~Hasher() {
  // The hash object uses the algorithm, so it goes first.
  const auto destroy = crypt::BCryptDestroyHash.Find();
  if (hash_ && destroy) destroy(hash_);
  CloseAlgorithm(algorithm_);
}

void Hasher::Update(std::string_view bytes) {
  if (failed_) return;
  failed_ = crypt::BCryptHashData(hash_, BytesOf(bytes), static_cast<ULONG>(bytes.size()), 0) < 0;
  if (failed_) LOG_E << "The digest failed.";
}

std::string Hasher::Finish() {
  DWORD size = 0;
  DWORD unused = 0;
  if (failed_ ||
      crypt::BCryptGetProperty(hash_, BCRYPT_HASH_LENGTH, reinterpret_cast<PUCHAR>(&size),
                               ULONG{sizeof size}, &unused, 0) < 0) {
    return {};
  }
  std::string digest(size, '\0');
  if (crypt::BCryptFinishHash(hash_, BytesOf(digest), size, 0) < 0) return {};
  return digest;
}

std::string HexText(std::string_view bytes) {
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += "0123456789abcdef"[byte >> 4];
    text += "0123456789abcdef"[byte & 0xF];
  }
  return text;
}

bool VerifyP256(const P256Pair& key, std::string_view text, const P256Pair& signature) {
  Hasher hasher(DigestKind::kSha256);
  hasher.Update(text);
  std::string digest = hasher.Finish();
  const UniqueAlgorithm algorithm(BCRYPT_ECDSA_P256_ALGORITHM);
  const UniquePublicKey publicKey(algorithm, key);
  if (digest.empty() || !publicKey.get()) {
    LOG_E << "The system does not take the public key.";
    return false;
  }
  P256Pair bytes = signature;
  return crypt::BCryptVerifySignature(publicKey.get(), nullptr, BytesOf(digest),
                                      static_cast<ULONG>(digest.size()), bytes.data(),
                                      static_cast<ULONG>(bytes.size()), 0) >= 0;
}

std::string RandomHex(std::size_t byteCount) {
  std::string bytes(byteCount, '\0');
  if (crypt::BCryptGenRandom(nullptr, BytesOf(bytes), static_cast<ULONG>(byteCount),
                             BCRYPT_USE_SYSTEM_PREFERRED_RNG) < 0) {
    LOG_E << "The system gives no random numbers.";
    return {};
  }
  return HexText(bytes);
}
