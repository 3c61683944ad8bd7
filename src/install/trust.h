// Which manifests an executor believes.
#ifndef KUPDATE_INSTALL_TRUST_H_
#define KUPDATE_INSTALL_TRUST_H_

#include <string>
#include <string_view>

#include "install/manifest.h"
#include "install/trust_text.h"

/// The trust in the resource of the running program, read once. A damaged one, which is logged, and
/// a missing one trust no publisher.
const TrustAnchors& OwnTrust();

/// Whether one of the keys signed the manifest and may sign for its application.
/// @return why not, for the log; empty when it did.
std::string_view FaultOfSigner(const TrustAnchors& trust, const Manifest& manifest);

/// One line for people: which keys count, by fingerprint, and for which applications. The
/// fingerprint is the first 16 digits of the SHA-256 of the key's DER form.
std::string Describe(const TrustAnchors& trust);

#endif  // KUPDATE_INSTALL_TRUST_H_
