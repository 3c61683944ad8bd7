#include "install/silent_install.h"

#include <algorithm>
#include <optional>

#include "install/authenticode.h"
#include "install/crypto.h"
#include "install/download.h"
#include "install/manifest.h"
#include "install/private_file.h"
#include "install/run_installer.h"
#include "install/silent_update.h"
#include "install/update_offer.h"
#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/system.h"
#include "util/text.h"

namespace {

// What the file must be, from the manifest or, without one, from the offer.
struct Expected {
  std::uint64_t size = 0;
  std::string sha256;  // empty: the file's own signature is to be verified instead
};

bool IsSignedByAny(const std::vector<std::string>& keys, const Manifest& manifest) {
  return std::any_of(keys.begin(), keys.end(), [&](const std::string& text) {
    const std::optional<P256Pair> key = PublicKeyFromBase64(text);
    if (!key) LOG_E << "A public key of this build is none.";
    return key && VerifyP256(*key, manifest.signedText, manifest.signature);
  });
}

int Refuse(std::string_view fault) {
  LOG_E << "The manifest is refused:" << fault << ".";
  return kInstallNotTrusted;
}

// 0, or why the manifest does not vouch for the offer.
int ExpectByManifest(const UpdateOffer& offer, const InstallSettings& settings,
                     Expected* expected) {
  std::string bytes;
  const DownloadRules rules{kMaxManifestBytes, true, settings.downloadLimitSeconds};
  const auto take = [&](std::string_view piece) {
    bytes += piece;
    return true;
  };
  switch (Download(offer.url + ".sig", rules, take)) {
    case DownloadOutcome::kDone:
      break;
    case DownloadOutcome::kTooLong:
      return Refuse("it is too long");
    default:
      LOG_E << "The manifest could not be fetched.";
      return kInstallDownloadFailed;
  }
  Manifest manifest;
  if (const auto fault = ParseManifest(bytes, &manifest); !fault.empty()) return Refuse(fault);
  if (!IsSignedByAny(settings.trust.publicKeys, manifest)) {
    return Refuse("no key of this build signed it");
  }
  if (const auto fault = FaultOf(manifest, offer, settings.now); !fault.empty()) {
    return Refuse(fault);
  }
  *expected = {manifest.size, manifest.sha256};
  return 0;
}

// Without a manifest nobody vouches for what the offer says beside the file itself.
int ExpectByOffer(const UpdateOffer& offer, Expected* expected) {
  if (KindOfAddress(offer.url) != AddressKind::kHttps) {
    LOG_E << "Without a publisher's key only https is fetched:" << offer.url;
    return kInstallBadAddress;
  }
  if (offer.starter != Starter::kProgram) {
    LOG_E << "Without a publisher's key only programs are run.";
    return kInstallNotTrusted;
  }
  if (!ArePlainSwitches(offer.args)) {
    LOG_E << "Without a publisher's key only plain switches are passed on:" << offer.args;
    return kInstallNotTrusted;
  }
  if (offer.size == 0 || offer.size > kMaxFileBytes) {
    LOG_E << "Without a publisher's key the feed must declare a size.";
    return kInstallWrongContent;
  }
  *expected = {offer.size, {}};
  return 0;
}

int Expect(const UpdateOffer& offer, const InstallSettings& settings, Expected* expected) {
  if (settings.trust.publicKeys.empty() && settings.trust.publisherName.empty()) {
    LOG_E << Describe(settings.trust);
    return kInstallNotTrusted;
  }
  if (KindOfAddress(offer.url) == AddressKind::kRefused) {
    LOG_E << "The address is refused:" << offer.url;
    return kInstallBadAddress;
  }
  if (offer.starter == Starter::kUnknown) {
    LOG_E << "The starter is neither exe nor msi.";
    return kInstallUnknownStarter;
  }
  return settings.trust.publicKeys.empty() ? ExpectByOffer(offer, expected)
                                           : ExpectByManifest(offer, settings, expected);
}

int Fetch(const UpdateOffer& offer, const Expected& expected, const InstallSettings& settings,
          PrivateFile& file) {
  const DownloadRules rules{expected.size, !settings.trust.publicKeys.empty(),
                            settings.downloadLimitSeconds};
  switch (Download(offer.url, rules, [&](std::string_view piece) { return file.Append(piece); })) {
    case DownloadOutcome::kDone:
      return file.Hold() ? 0 : kInstallDownloadFailed;
    case DownloadOutcome::kTooLong:
      LOG_E << "The file is longer than declared.";
      return kInstallWrongContent;
    default:
      LOG_E << "The file could not be fetched.";
      return kInstallDownloadFailed;
  }
}

// Whether the file's signature vouches for this very version, and not for an older one.
bool IsVouchedByItself(const UpdateOffer& offer, const std::string& publisher,
                       const PrivateFile& file) {
  if (!IsSignedBy(file.Handle(), file.Path(), publisher)) return false;
  const std::string version = FileVersionText(file.Path());
  if (version == FormatVersion(offer.version)) return true;
  LOG_E << "The file's own version is" << version << "and not" << FormatVersion(offer.version);
  return false;
}

int Verify(const UpdateOffer& offer, const Expected& expected, const TrustAnchors& trust,
           const PrivateFile& file) {
  if (file.Size() != expected.size) {
    LOG_E << "The file has" << file.Size() << "bytes, declared are" << expected.size << ".";
    return kInstallWrongContent;
  }
  if (!expected.sha256.empty() && file.Digest(DigestKind::kSha256) != expected.sha256) {
    LOG_E << "The file's SHA-256 is not the declared one.";
    return kInstallWrongContent;
  }
  if (!offer.md5.empty() && !EqualsIgnoreCase(file.Digest(DigestKind::kMd5), offer.md5)) {
    LOG_E << "The file's MD5 is not the declared one.";
    return kInstallWrongContent;
  }
  const bool trusted =
      !expected.sha256.empty() || IsVouchedByItself(offer, trust.publisherName, file);
  return trusted ? 0 : kInstallNotTrusted;
}

}  // namespace

int InstallUpdate(const std::string& appId, const InstallSettings& settings) {
  const std::optional<UpdateOffer> offer = ReadOffer(appId);
  if (!offer) return kInstallNothing;
  Expected expected;
  if (const int code = Expect(*offer, settings, &expected)) return code;
  const std::unique_ptr<PrivateFile> file =
      PrivateFile::Make(offer->starter == Starter::kMsi ? L".msi" : L".exe");
  if (!file) return kInstallDownloadFailed;
  if (const int code = Fetch(*offer, expected, settings, *file)) return code;
  if (const int code = Verify(*offer, expected, settings.trust, *file)) return code;
  const int code =
      RunInstaller({offer->starter, file->Path(), file->Folder(), WidenUtf8(offer->args),
                    offer->mayElevate, settings.installerLimitSeconds});
  if (code == kInstallStillRunning) file->Keep();
  return code;
}
