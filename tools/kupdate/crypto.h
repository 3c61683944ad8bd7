// Cryptography of the publisher's tool: OpenSSL's natively, the system's own on Windows.
#ifndef KUPDATE_TOOLS_KUPDATE_CRYPTO_H_
#define KUPDATE_TOOLS_KUPDATE_CRYPTO_H_

#include <string>
#include <string_view>

#include "install/p256.h"

/// SHA-256 as 64 hexadecimal digits in lower case.
std::string Sha256Hex(std::string_view bytes);

/// Whether the key is a point of the curve P-256.
bool IsOnCurve(const P256Pair& key);

#endif  // KUPDATE_TOOLS_KUPDATE_CRYPTO_H_
