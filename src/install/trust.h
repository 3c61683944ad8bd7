// What a build takes as a publisher's word.
#ifndef KUPDATE_INSTALL_TRUST_H_
#define KUPDATE_INSTALL_TRUST_H_

#include <string>
#include <vector>

struct TrustAnchors {
  /// Public keys, any of which may sign a manifest: base64 as between the first and the last line
  /// of a PEM file, without line ends.
  std::vector<std::string> publicKeys;
  /// Counts only without a key: the name in the Authenticode certificate of an update's file,
  /// UTF-8.
  std::string publisherName;
};

/// What the build options KUPDATE_PUBLIC_KEYS and KUPDATE_PUBLISHER_NAME gave.
const TrustAnchors& BuiltInTrust();

/// One line for people.
std::string Describe(const TrustAnchors& trust);

#endif  // KUPDATE_INSTALL_TRUST_H_
