#include "install/trust.h"

#include <algorithm>
#include <optional>

#include "install/base64.h"
#include "install/crypto.h"
#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/win/windows_lean.h"

namespace {

// People compare them with the digest that openssl prints of their key.
constexpr std::size_t kFingerprintDigits = 16;

bool IsSignedBy(const PublisherKey& publisher, const Manifest& manifest) {
  const std::optional<P256Pair> key = PublicKeyFromBase64(publisher.key);
  if (!key) LOG_E << "A public key of this executor cannot be read.";
  return key && VerifyP256(*key, manifest.signedText, manifest.signature);
}

bool MaySignFor(const PublisherKey& publisher, const std::string& app) {
  const std::vector<std::string>& apps = publisher.apps;
  return apps.empty() || std::find(apps.begin(), apps.end(), app) != apps.end();
}

std::string Fingerprint(const PublisherKey& publisher) {
  Hasher hasher(DigestKind::kSha256);
  hasher.Update(DecodeBase64(publisher.key).value_or(std::string()));
  return HexText(hasher.Finish()).substr(0, kFingerprintDigits);
}

std::string_view OwnResource() {
  const HRSRC found = ::FindResourceW(nullptr, kTrustResource, RT_RCDATA);
  const HGLOBAL loaded = found ? ::LoadResource(nullptr, found) : nullptr;
  if (!loaded) return {};
  return {static_cast<const char*>(::LockResource(loaded)), ::SizeofResource(nullptr, found)};
}

TrustAnchors ReadOwnTrust() {
  const std::string_view text = OwnResource();
  if (text.empty()) return {};
  std::optional<TrustAnchors> trust = ParseTrust(text);
  if (!trust) LOG_E << "The trust in this program is damaged.";
  return trust.value_or(TrustAnchors());
}

std::string Describe(const PublisherKey& publisher) {
  std::string text = Fingerprint(publisher);
  for (const std::string& app : publisher.apps) {
    text.append(&app == publisher.apps.data() ? " (" : ", ").append(app);
  }
  return publisher.apps.empty() ? text : text + ")";
}

}  // namespace

const TrustAnchors& OwnTrust() {
  static const TrustAnchors* const trust = new TrustAnchors(ReadOwnTrust());
  return *trust;
}

std::string_view FaultOfSigner(const TrustAnchors& trust, const Manifest& manifest) {
  std::string_view fault = "no key of this executor signed it";
  for (const PublisherKey& publisher : trust.publicKeys) {
    if (!IsSignedBy(publisher, manifest)) continue;
    if (MaySignFor(publisher, manifest.app)) return {};
    fault = "the key that signed it is bound to other applications";
  }
  return fault;
}

std::string Describe(const TrustAnchors& trust) {
  if (trust.publicKeys.empty()) {
    return "No update is ever run: this executor trusts no publisher yet.";
  }
  std::string text = trust.publisher.empty() ? "" : trust.publisher + ". ";
  text += "Updates need a manifest signed with one of these keys: ";
  for (const PublisherKey& publisher : trust.publicKeys) {
    text.append(&publisher == trust.publicKeys.data() ? "" : ", ").append(Describe(publisher));
  }
  return text + ".";
}
