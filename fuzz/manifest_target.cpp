#include "fuzz/fuzz.h"
#include "install/manifest.h"

void FuzzManifest(std::string_view input) {
  Manifest m;
  if (!ParseManifest(input, &m).empty()) return;
  Check(input.starts_with(m.signedText + "signature: "), "all but the signature is signed");
  Check(input.find('\n', m.signedText.size()) + 1 == input.size(), "nothing is behind it");
  Check(input.size() <= kMaxManifestBytes, "it is bounded");
  Check(m.size > 0 && m.size <= kMaxFileBytes, "a file has a size");
  UpdateOffer offer{m.app, m.version, {}, {}, m.size, m.starter, m.args, m.mayElevate};
  Check(FaultOf(m, offer, m.expiresAt - 1).empty(), "it vouches for its own offer");
  Check(!FaultOf(m, offer, m.expiresAt).empty(), "and not for ever");
  ++offer.version;
  Check(!FaultOf(m, offer, 0).empty(), "and for no other");
}
