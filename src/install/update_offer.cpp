#include "install/update_offer.h"

#include "appinfo/app_info.h"
#include "update/upd_info.h"
#include "util/diag_log.h"
#include "util/files.h"
#include "util/log_line.h"
#include "util/mutex.h"
#include "util/text.h"
#include "xml/xml_node.h"

namespace {

// All values of a store as they stood at one moment.
class Snapshot {
 public:
  Snapshot(const TAppInfo& store, std::string_view mutexName) {
    Mutex mutex(WidenUtf8(std::string(mutexName) + store.AppId()));
    LockScope lock(&mutex);
    if (!lock) return;
    std::string bytes;
    FileSystem::ReadFile(store.Path(), &bytes);
    lock.Release();
    LoadXml(std::move(bytes), &root_);
  }

  bool Has(std::string_view key) const { return root_.FindChild(key) != nullptr; }
  std::string Text(std::string_view key) const { return std::string(TextOf(root_.FindChild(key))); }
  std::int64_t Number(std::string_view key) const { return ParseInt64(Text(key)); }
  VersionNumber Version() const {
    return MakeVersion(Part("VerMajor"), Part("VerMinor"), Part("VerSubver"), Part("VerBuild"));
  }

 private:
  std::uint16_t Part(std::string_view key) const { return static_cast<std::uint16_t>(Number(key)); }

  XmlNode root_;
};

UpdateOffer OfferOf(const Snapshot& update, const std::string& appId) {
  UpdateOffer offer;
  offer.appId = appId;
  offer.version = update.Version();
  offer.url = update.Text("DistroUrl");
  offer.md5 = update.Text("DistroMD5");
  const std::int64_t size = update.Number("DistroSize");
  offer.size = size > 0 ? static_cast<std::uint64_t>(size) : 0;
  offer.starter = ParseStarter(update.Text("DistroStarter"));
  offer.args = update.Text(offer.starter == Starter::kMsi ? "MSIArgs" : "DistroArgs");
  offer.mayElevate = update.Number("UACDlg") == 1;
  return offer;
}

bool IsAlphanumeric(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// Printable ASCII that stands for itself in an address.
bool IsAddressCharacter(char c) {
  return c > ' ' && c <= '~' && std::string_view("\"#<>@\\^`{|}").find(c) == std::string_view::npos;
}

bool AllAre(std::string_view text, bool (*is)(char)) {
  for (const char c : text) {
    if (!is(c)) return false;
  }
  return true;
}

bool BeginsWith(std::string_view text, std::string_view lowerCase) {
  return EqualsIgnoreCase(text.substr(0, lowerCase.size()), lowerCase);
}

}  // namespace

Starter ParseStarter(std::string_view text) {
  if (text.empty() || EqualsIgnoreCase(text, "exe")) return Starter::kProgram;
  return EqualsIgnoreCase(text, "msi") ? Starter::kMsi : Starter::kUnknown;
}

std::optional<UpdateOffer> ReadOffer(const std::string& appId) {
  const Snapshot app(TAppInfo(appId), "APPINFO{65438470-A93E-4c32-83C0-33BFC5DDD428}-");
  if (appId.empty() || !app.Has("VerMajor") || app.Number("Remove") == 1) {
    LOG_E << "The application is not installed.";
    return {};
  }
  const Snapshot update(TUpdInfo(appId), "UPDINFO{2E443525-B2F5-4833-893E-B4550BA6AF01}-");
  UpdateOffer offer = OfferOf(update, appId);
  if (offer.url.empty()) {
    LOG_E << "No update is recorded.";
    return {};
  }
  if (offer.version <= app.Version()) {
    LOG_E << "The update's version" << FormatVersion(offer.version)
          << "is not above the installed one," << FormatVersion(app.Version());
    return {};
  }
  return offer;
}

AddressKind KindOfAddress(std::string_view url) {
  const bool secure = BeginsWith(url, "https://");
  if (!secure && !BeginsWith(url, "http://")) return AddressKind::kRefused;
  if (url.size() > kMaxAddressBytes || !AllAre(url, IsAddressCharacter)) {
    return AddressKind::kRefused;
  }
  const std::string_view rest = url.substr(secure ? 8 : 7);
  if (rest.empty() || !(IsAlphanumeric(rest[0]) || rest[0] == '[')) return AddressKind::kRefused;
  return secure ? AddressKind::kHttps : AddressKind::kHttp;
}

std::string RedirectedAddress(std::string_view url, std::string_view location) {
  if (KindOfAddress(location) != AddressKind::kRefused) return std::string(location);
  if (!location.starts_with('/')) return {};
  const std::size_t host = url.find("://") + 3;
  const std::size_t end = location.starts_with("//") ? host - 2 : url.find_first_of("/?", host);
  const std::string address = std::string(url.substr(0, end)) + std::string(location);
  return KindOfAddress(address) == AddressKind::kRefused ? std::string() : address;
}

bool ArePlainSwitches(std::string_view args) {
  if (args.size() > kMaxArgsBytes) return false;
  bool inWord = false;
  for (const char c : args) {
    const bool begins = !inWord && (c == '/' || c == '-');
    const bool goesOn = inWord && (IsAlphanumeric(c) ||
                                   std::string_view("=_,.-").find(c) != std::string_view::npos);
    if (c != ' ' && !begins && !goesOn) return false;
    inWord = c != ' ';
  }
  return true;
}
