// Base64 as keys and signatures are written.
#ifndef KUPDATE_INSTALL_BASE64_H_
#define KUPDATE_INSTALL_BASE64_H_

#include <optional>
#include <string>
#include <string_view>

/// The bytes that `text` stands for. Nothing when it is not their one spelling: another character
/// (blanks and line ends too), wrong padding, or bits set that belong to no byte.
std::optional<std::string> DecodeBase64(std::string_view text);

#endif  // KUPDATE_INSTALL_BASE64_H_
