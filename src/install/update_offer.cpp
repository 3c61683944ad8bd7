#include "install/update_offer.h"

#include "layout/keys.h"
#include "update/upd_info.h"
#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/text.h"

namespace {

UpdateOffer OfferOf(const TUpdInfo& update) {
  UpdateOffer offer;
  offer.appId = update.AppId();
  offer.version =
      MakeVersion(update.VerMajor(), update.VerMinor(), update.VerSubver(), update.VerBuild());
  offer.url = update.Read(key::kDistroUrl);
  offer.md5 = update.Read(key::kDistroMd5);
  const std::int64_t size = update.ReadNumber(key::kDistroSize);
  offer.size = size > 0 ? static_cast<std::uint64_t>(size) : 0;
  offer.starter = ParseStarter(update.Read(key::kDistroStarter));
  offer.args = update.Read(offer.starter == Starter::kMsi ? key::kMsiArgs : key::kDistroArgs);
  offer.mayElevate = update.ReadFlag(key::kUacDialog);
  return offer;
}

bool IsAlphanumeric(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// Printable ASCII characters that an address need not encode. "@" is no such one, so no user name
// passes.
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
  TUpdInfo update(appId);
  // One load for all values: a check may write another update in between.
  const StoreChanges inOneGo(update);
  UpdateOffer offer = OfferOf(update);
  if (!offer.url.empty()) return offer;
  LOG_E << "No update is recorded.";
  return {};
}

bool MayUpdate(const std::optional<LocalRecord>& record, VersionNumber version) {
  if (!record) {
    LOG_E << "The application is not registered.";
  } else if (record->removed) {
    LOG_E << "The application is removed.";
  } else if (version <= record->version) {
    LOG_E << "The update's version" << FormatVersion(version) << "is not above the application's,"
          << FormatVersion(record->version);
  } else {
    return true;
  }
  return false;
}

bool IsFetched(std::string_view url) {
  const bool secure = BeginsWith(url, "https://");
  if (!secure && !BeginsWith(url, "http://")) return false;
  if (url.size() > kMaxAddressBytes || !AllAre(url, IsAddressCharacter)) return false;
  const std::string_view rest = url.substr(secure ? 8 : 7);
  // "[" begins the number of an IPv6 host.
  return !rest.empty() && (IsAlphanumeric(rest[0]) || rest[0] == '[');
}

std::string RedirectedAddress(std::string_view url, std::string_view location) {
  if (IsFetched(location)) return std::string(location);
  if (!location.starts_with('/')) return {};
  const std::size_t host = url.find("://") + 3;
  // "//host/path" takes over the scheme alone, "/path" scheme and host.
  const std::size_t end = location.starts_with("//") ? host - 2 : url.find_first_of("/?", host);
  const std::string address = std::string(url.substr(0, end)) + std::string(location);
  return IsFetched(address) ? address : std::string();
}
