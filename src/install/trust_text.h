// The publishers that an executor trusts, as the text in its resource.
#ifndef KUPDATE_INSTALL_TRUST_TEXT_H_
#define KUPDATE_INSTALL_TRUST_TEXT_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// A public key that may sign manifests.
struct PublisherKey {
  std::string key;                ///< base64 as between the first and the last line of a PEM file,
                                  ///< without line ends
  std::vector<std::string> apps;  ///< the applications that it may sign for; empty: all
};

struct TrustAnchors {
  std::string publisher;  ///< a name for people, UTF-8; may be empty
  std::vector<PublisherKey> publicKeys;
};

/// The resource (of type RCDATA) that holds the text.
inline constexpr wchar_t kTrustResource[] = L"KUPDATE_TRUST";
/// The size of that resource. Line feeds fill it up behind the text.
inline constexpr std::size_t kTrustBytes = 4096;

/// Reads the text: UTF-8, each line ended by LF. The first line is "kupdate-trust 1". Then come, in
/// any order, "publisher: NAME", at most once, and for each key "key: BASE64", followed by one
/// "for: ID" for each application that it is bound to. Empty lines count for nothing.
/// @return nothing when the text is damaged: it then trusts no publisher.
std::optional<TrustAnchors> ParseTrust(std::string_view text);

/// Writes the text, filled up to kTrustBytes.
/// @return nothing when it does not fit, or a name or id is empty or holds control characters.
std::optional<std::string> FormatTrust(const TrustAnchors& trust);

#endif  // KUPDATE_INSTALL_TRUST_TEXT_H_
