#include "install/manifest.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <optional>
#include <stdexcept>

#include "install/base64.h"
#include "util/text.h"

namespace {

constexpr std::string_view kFirstLine = "kupdate-manifest 1";
constexpr std::string_view kSignature = "signature: ";

// The fields before kStarter are required: kRequiredCount counts them.
enum Field {
  kApp,
  kVersion,
  kSize,
  kSha256,
  kExpires,
  kStarter,
  kArgs,
  kElevate,
  kPlatform,
  kChannel,
  kFieldCount
};
constexpr std::array<std::string_view, kFieldCount> kNames = {
    "app",     "version", "size",    "sha256",   "expires",
    "starter", "args",    "elevate", "platform", "channel"};
constexpr int kRequiredCount = kStarter;

using Values = std::array<std::string_view, kFieldCount>;

// Cuts the next line off `text`; nothing when no line feed ends it.
std::optional<std::string_view> TakeLine(std::string_view& text) {
  const std::size_t end = text.find('\n');
  if (end == std::string_view::npos) return {};
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(end + 1);
  return line;
}

bool HasControls(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

std::string_view TakeField(std::string_view line, Values& values) {
  const std::size_t colon = line.find(": ");
  if (colon == std::string_view::npos) return "a line is no field";
  const auto name = std::find(kNames.begin(), kNames.end(), line.substr(0, colon));
  if (name == kNames.end()) return "a field is unknown";
  std::string_view& value = values[static_cast<std::size_t>(name - kNames.begin())];
  if (!value.empty()) return "a field stands twice";
  value = line.substr(colon + 2);
  return value.empty() ? "a field is empty" : std::string_view();
}

// Digits alone; no zero in front, so that there is one way to write each number.
std::optional<std::uint64_t> ParseDigits(std::string_view text) {
  std::uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end || (text.size() > 1 && text[0] == '0')) return {};
  return number;
}

bool TakeVersion(std::string_view text, VersionNumber* version) {
  try {
    // The feed's reader also takes blanks, signs and parts above 65535. Here each version has one
    // spelling, so that the signed text has one meaning.
    *version = ParseVersion(text);
    return FormatVersion(*version) == text;
  } catch (const std::invalid_argument&) {
    return false;
  }
}

bool IsSha256(std::string_view text) {
  return text.size() == 64 && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

int DigitsAt(std::string_view text, std::size_t from, std::size_t count) {
  int number = 0;
  for (const char c : text.substr(from, count)) number = number * 10 + (c - '0');
  return number;
}

// The second after the day "2027-01-31".
std::optional<std::uint64_t> EndOfDay(std::string_view text) {
  constexpr std::string_view kForm = "0000-00-00";
  const auto fits = [](char c, char form) { return form == '-' ? c == '-' : c >= '0' && c <= '9'; };
  if (!std::equal(text.begin(), text.end(), kForm.begin(), kForm.end(), fits)) return {};
  using namespace std::chrono;
  const year_month_day day(year(DigitsAt(text, 0, 4)),
                           month(static_cast<unsigned>(DigitsAt(text, 5, 2))),
                           std::chrono::day(static_cast<unsigned>(DigitsAt(text, 8, 2))));
  // The calendar refuses days such as February 30.
  if (!day.ok() || day.year() < year(1970)) return {};
  return static_cast<std::uint64_t>(seconds((sys_days(day) + days(1)).time_since_epoch()).count());
}

std::string_view TakeValues(const Values& values, Manifest* manifest) {
  const auto required = values.begin() + kRequiredCount;
  if (std::find(values.begin(), required, std::string_view()) != required) {
    return "a field is missing";
  }
  manifest->app = values[kApp];
  if (!TakeVersion(values[kVersion], &manifest->version)) return "the version is no version";
  const auto size = ParseDigits(values[kSize]);
  if (!size || *size == 0 || *size > kMaxFileBytes) return "the size is no size";
  manifest->size = *size;
  if (!IsSha256(values[kSha256])) return "the digest is no SHA-256";
  manifest->sha256 = values[kSha256];
  const auto expiresAt = EndOfDay(values[kExpires]);
  if (!expiresAt) return "the expiry is no date";
  manifest->expiresAt = *expiresAt;
  manifest->starter = ParseStarter(values[kStarter]);
  if (manifest->starter == Starter::kUnknown) return "the starter is unknown";
  if (values[kArgs].size() > kMaxArgsBytes) return "the arguments are too long";
  manifest->args = values[kArgs];
  const std::string_view elevate = values[kElevate];
  if (!elevate.empty() && elevate != "0" && elevate != "1") return "elevate is neither 0 nor 1";
  manifest->mayElevate = elevate == "1";
  manifest->platform = values[kPlatform];
  const std::string_view channel = values[kChannel];
  manifest->isBeta = channel == "beta";
  if (!channel.empty() && channel != "release" && !manifest->isBeta) {
    return "the channel is neither release nor beta";
  }
  return {};
}

}  // namespace

std::string_view ParseManifest(std::string_view bytes, Manifest* manifest) {
  if (bytes.size() > kMaxManifestBytes) return "it is too long";
  if (!IsValidUtf8(bytes)) return "it is not UTF-8";
  std::string_view rest = bytes;
  if (TakeLine(rest) != kFirstLine) return "it is no manifest";
  Values values;
  for (;;) {
    const std::size_t signedBytes = bytes.size() - rest.size();
    const std::optional<std::string_view> line = TakeLine(rest);
    if (!line) return "its end is missing";
    if (HasControls(*line)) return "a line holds control characters";
    if (line->starts_with(kSignature)) {
      // The signature covers only the lines before it.
      if (!rest.empty()) return "something follows the signature";
      const auto der = DecodeBase64(line->substr(kSignature.size()));
      const auto signature = der ? SignatureFromDer(*der) : std::nullopt;
      if (!signature) return "the signature has no valid form";
      manifest->signedText = bytes.substr(0, signedBytes);
      manifest->signature = *signature;
      return TakeValues(values, manifest);
    }
    if (const std::string_view fault = TakeField(*line, values); !fault.empty()) return fault;
  }
}

std::string_view FaultOf(const Manifest& manifest, const UpdateOffer& offer,
                         const LocalRecord& record, std::uint64_t now) {
  // Any process of the user may have written the offer, so each value that an installation takes
  // from it must be the signed one.
  if (manifest.app != offer.appId) return "it is for another application";
  if (manifest.version != offer.version) return "it is for another version";
  if (now >= manifest.expiresAt) return "it has expired";
  if (!manifest.platform.empty() && manifest.platform != record.platform) {
    return "it is for another platform";
  }
  if (manifest.isBeta && !record.TakesBetas()) return "it is for the beta channel";
  if (offer.size != 0 && manifest.size != offer.size) return "it declares another size";
  if (manifest.starter != offer.starter) return "it declares another starter";
  if (manifest.args != offer.args) return "it declares other arguments";
  // The offer may ask for less than the publisher allows, but not for more.
  if (offer.mayElevate && !manifest.mayElevate) return "it does not allow elevation";
  return {};
}
