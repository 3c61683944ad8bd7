// Public keys of publishers, as OpenSSL writes them.
#ifndef KUPDATE_TOOLS_KUPDATE_KEY_FILE_H_
#define KUPDATE_TOOLS_KUPDATE_KEY_FILE_H_

#include <string>
#include <string_view>

/// The base64 of the public key in a PEM text, without line ends.
/// @throws std::runtime_error, whose text says what the file holds instead
std::string PublicKeyFromPem(std::string_view pem);

/// The first 16 hexadecimal digits of the SHA-256 of a key's DER form, by which people compare keys.
/// @param key  base64
std::string Fingerprint(const std::string& key);

#endif  // KUPDATE_TOOLS_KUPDATE_KEY_FILE_H_
