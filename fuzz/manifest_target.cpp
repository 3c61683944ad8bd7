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
  LocalRecord record{0, m.platform, {}, !m.isBeta};
  Check(FaultOf(m, offer, record, m.expiresAt - 1).empty(), "it vouches for its own offer");
  Check(!FaultOf(m, offer, record, m.expiresAt).empty(), "and not for ever");
  record.platform += 'x';
  Check(FaultOf(m, offer, record, 0).empty() == m.platform.empty(), "and for no other platform");
  ++offer.version;
  record.platform = m.platform;
  Check(!FaultOf(m, offer, record, 0).empty(), "and for no other version");
}
