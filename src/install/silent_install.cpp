#include "install/silent_install.h"

#include <algorithm>
#include <optional>

#include "appinfo/local_record.h"
#include "install/crypto.h"
#include "install/download.h"
#include "install/manifest.h"
#include "install/private_file.h"
#include "install/run_installer.h"
#include "install/silent_update.h"
#include "install/update_offer.h"
#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/text.h"

namespace {

int Refuse(std::string_view fault) {
  LOG_E << "The manifest is refused:" << fault << ".";
  return kInstallNotTrusted;
}

int FetchManifest(const std::string& url, const InstallSettings& settings, std::string* bytes) {
  const DownloadRules rules{kMaxManifestBytes, settings.manifestLimitSeconds};
  const auto take = [&](std::string_view piece) {
    *bytes += piece;
    return true;
  };
  switch (Download(url, rules, take)) {
    case DownloadOutcome::kDone:
      return 0;
    case DownloadOutcome::kTooLong:
      return Refuse("it is too long");
    default:
      LOG_E << "The manifest could not be fetched.";
      return kInstallDownloadFailed;
  }
}

// 0, or the fault of the offer that shows before anything is fetched.
int CodeOf(const UpdateOffer& offer, const TrustAnchors& trust) {
  if (trust.publicKeys.empty()) {
    LOG_E << Describe(trust);
    return kInstallNotTrusted;
  }
  if (!IsFetched(offer.url)) {
    LOG_E << "The address is refused:" << offer.url;
    return kInstallBadAddress;
  }
  if (offer.starter == Starter::kUnknown) {
    LOG_E << "The starter is neither exe nor msi.";
    return kInstallUnknownStarter;
  }
  return 0;
}

// Fetches the manifest: 0, or why it does not vouch for the offer.
int Expect(const UpdateOffer& offer, const LocalRecord& record, const InstallSettings& settings,
           Manifest* manifest) {
  std::string bytes;
  if (const int code = FetchManifest(offer.url + ".sig", settings, &bytes)) return code;
  // The signature comes before the values: nothing in an unsigned manifest counts.
  std::string_view fault = ParseManifest(bytes, manifest);
  if (fault.empty()) fault = FaultOfSigner(settings.trust, *manifest);
  if (fault.empty()) fault = FaultOf(*manifest, offer, record, settings.now);
  return fault.empty() ? 0 : Refuse(fault);
}

int Fetch(const UpdateOffer& offer, std::uint64_t size, const InstallSettings& settings,
          PrivateFile& file) {
  const DownloadRules rules{size, settings.downloadLimitSeconds};
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

int Verify(const UpdateOffer& offer, const Manifest& manifest, const PrivateFile& file) {
  if (file.Size() != manifest.size) {
    LOG_E << "The file has" << file.Size() << "bytes, declared are" << manifest.size << ".";
    return kInstallWrongContent;
  }
  if (file.Digest(DigestKind::kSha256) != manifest.sha256) {
    LOG_E << "The file's SHA-256 is not the declared one.";
    return kInstallWrongContent;
  }
  // The SHA-256 is signed and decides. A feed may omit the MD5 but not declare a wrong one.
  if (!offer.md5.empty() && !EqualsIgnoreCase(file.Digest(DigestKind::kMd5), offer.md5)) {
    LOG_E << "The file's MD5 is not the declared one.";
    return kInstallWrongContent;
  }
  // An installer loads DLLs from its own folder.
  if (!file.IsAlone()) {
    LOG_E << "The file is not alone in its folder.";
    return kInstallNotTrusted;
  }
  return 0;
}

int Run(const UpdateOffer& offer, const InstallSettings& settings, PrivateFile& file) {
  const int code = RunInstaller({offer.starter, file.Path(), file.Folder(), WidenUtf8(offer.args),
                                 offer.mayElevate, settings.installerLimitSeconds});
  // The installer goes on and needs its file: it is never killed half-way.
  if (code == kInstallStillRunning) file.Keep();
  return code;
}

}  // namespace

int InstallUpdate(const std::string& appId, const InstallSettings& settings) {
  // Read once. Another process may change the store at any time, and all steps must see one offer.
  const std::optional<UpdateOffer> offer = ReadOffer(appId);
  if (!offer) return kInstallNothing;
  const std::optional<LocalRecord> record = ReadLocalRecord(appId);
  if (!MayUpdate(record, offer->version)) return kInstallNothing;
  if (const int code = CodeOf(*offer, settings.trust)) return code;
  Manifest manifest;
  if (const int code = Expect(*offer, *record, settings, &manifest)) return code;
  const std::unique_ptr<PrivateFile> file =
      PrivateFile::Make(offer->starter == Starter::kMsi ? L".msi" : L".exe");
  if (!file) return kInstallDownloadFailed;
  if (const int code = Fetch(*offer, manifest.size, settings, *file)) return code;
  if (const int code = Verify(*offer, manifest, *file)) return code;
  // The user may have removed the application, or updated it, while the file was fetched.
  if (!MayUpdate(ReadLocalRecord(appId), offer->version)) return kInstallNothing;
  const int code = Run(*offer, settings, *file);
  // A record that was removed during the installation must not come back. The version never goes
  // down here: the new program may have run already and be newer.
  if (IsInstalled(code) && ReadLocalRecord(appId)) {
    ChangeLocalRecord(
        appId, [&](LocalRecord& now) { now.version = std::max(now.version, offer->version); });
  }
  return code;
}
