// The publishers that a build trusts.
#ifndef KUPDATE_INSTALL_TRUST_H_
#define KUPDATE_INSTALL_TRUST_H_

#include <string>
#include <string_view>
#include <vector>

#include "install/manifest.h"

/// A public key that may sign manifests.
struct PublisherKey {
  std::string key;                ///< base64 as between the first and the last line of a PEM file,
                                  ///< without line ends
  std::vector<std::string> apps;  ///< the applications that it may sign for; empty: all
};

struct TrustAnchors {
  std::vector<PublisherKey> publicKeys;
};

/// The keys that the build option KUPDATE_PUBLIC_KEYS named.
const TrustAnchors& BuiltInTrust();

/// Whether one of the keys signed the manifest and may sign for its application.
/// @return why not, for the log; empty when it did.
std::string_view FaultOfSigner(const TrustAnchors& trust, const Manifest& manifest);

/// One line for people: which keys count, by fingerprint, and for which applications. The
/// fingerprint is the first 16 digits of the SHA-256 of the key's DER form.
std::string Describe(const TrustAnchors& trust);

#endif  // KUPDATE_INSTALL_TRUST_H_
