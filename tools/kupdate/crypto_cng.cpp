#include "util/win/windows_lean.h"

#include <bcrypt.h>

#include <stdexcept>

#include "install/crypto.h"
#include "kupdate/crypto.h"

namespace {

// Owns a handle of the system's cryptography.
template <class Handle, auto Close>
struct Owner {
  ~Owner() {
    if (handle) Close(handle);
  }
  Handle handle = nullptr;
};

NTSTATUS CloseAlgorithm(BCRYPT_ALG_HANDLE handle) {
  return ::BCryptCloseAlgorithmProvider(handle, 0);
}
using Algorithm = Owner<BCRYPT_ALG_HANDLE, &CloseAlgorithm>;

void Open(Algorithm* algorithm, const wchar_t* name) {
  if (::BCryptOpenAlgorithmProvider(&algorithm->handle, name, nullptr, 0) < 0) {
    throw std::runtime_error("the system lacks its cryptography");
  }
}

}  // namespace

std::string Sha256Hex(std::string_view bytes) {
  Hasher hasher(DigestKind::kSha256);
  hasher.Update(bytes);
  return HexText(hasher.Finish());
}

bool IsOnCurve(const P256Pair& key) {
  Algorithm algorithm;
  Open(&algorithm, BCRYPT_ECDSA_P256_ALGORITHM);
  struct {
    BCRYPT_ECCKEY_BLOB header = {BCRYPT_ECDSA_PUBLIC_P256_MAGIC, 32};
    P256Pair point;
  } blob;
  blob.point = key;
  Owner<BCRYPT_KEY_HANDLE, &::BCryptDestroyKey> read;
  return ::BCryptImportKeyPair(algorithm.handle, nullptr, BCRYPT_ECCPUBLIC_BLOB, &read.handle,
                               reinterpret_cast<PUCHAR>(&blob), ULONG{sizeof blob}, 0) >= 0;
}
