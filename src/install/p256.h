// Public keys and signatures of ECDSA P-256, from the forms in which OpenSSL writes them.
#ifndef KUPDATE_INSTALL_P256_H_
#define KUPDATE_INSTALL_P256_H_

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

/// A public key, x then y, or a signature, r then s: big-endian, 32 bytes each.
using P256Pair = std::array<std::uint8_t, 64>;

/// The key in a PEM file's text between its first and last line, line ends left out; nothing when
/// it is no uncompressed P-256 public key. Does not check whether the point is on the curve.
std::optional<P256Pair> PublicKeyFromBase64(std::string_view text);

/// A signature from its DER form. Nothing for anything but the one DER form of two numbers from 1
/// to 2^256 - 1.
std::optional<P256Pair> SignatureFromDer(std::string_view der);

#endif  // KUPDATE_INSTALL_P256_H_
