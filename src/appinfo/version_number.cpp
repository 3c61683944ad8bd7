#include "appinfo/version_number.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <utility>

#include "util/text.h"

namespace {

constexpr int kParts = 4;
constexpr int kPartBits = 16;
// The part of a feed's text that an error shows; the text may have megabytes.
constexpr std::size_t kMaxShownChars = 256;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Takes blanks, a sign and digits from the front of `text`. False when there are no digits.
bool TakeInt(std::string_view* text, std::int64_t* number) {
  constexpr std::int64_t kMax = std::numeric_limits<std::int32_t>::max();
  const char* at = text->data();
  const char* const end = at + text->size();
  while (at != end && IsBlank(*at)) ++at;
  const bool isNegative = at != end && *at == '-';
  if (at != end && (*at == '-' || *at == '+')) ++at;
  const char* const digits = at;
  std::int64_t value = 0;
  for (; at != end && IsDigit(*at); ++at) {
    value = std::min(value * 10 + (*at - '0'), isNegative ? kMax + 1 : kMax);
  }
  *number = isNegative ? -value : value;
  *text = std::string_view(at, static_cast<std::size_t>(end - at));
  return at != digits;
}

// Puts one more part behind those in `version`. A part is not cut to its bits on purpose: the
// feed's comparisons rely on how oversized and negative ones spread upwards.
VersionNumber AddPart(VersionNumber version, std::int64_t part) {
  return version << kPartBits | static_cast<VersionNumber>(part);
}

}  // namespace

VersionNumber ParseVersion(std::string_view text) {
  std::string_view rest = text;
  VersionNumber version = 0;
  for (int i = 0; i < kParts; ++i) {
    const bool isJoined = i == 0 || rest.starts_with('.');
    if (i > 0 && isJoined) rest.remove_prefix(1);
    std::int64_t part = 0;
    if (!isJoined || !TakeInt(&rest, &part)) {
      throw std::invalid_argument("sscanf failed on input string; '" +
                                  std::string(text.substr(0, kMaxShownChars)) + "'");
    }
    version = AddPart(version, part);
  }
  return version;
}

std::string FormatVersion(VersionNumber version) {
  std::string text;
  for (int shift = (kParts - 1) * kPartBits; shift >= 0; shift -= kPartBits) {
    text += DecimalText(static_cast<std::uint16_t>(version >> shift));
    if (shift > 0) text += '.';
  }
  return text;
}

VersionNumber MakeVersion(std::uint16_t major, std::uint16_t minor, std::uint16_t subver,
                          std::uint16_t build) {
  return AddPart(AddPart(AddPart(major, minor), subver), build);
}

void ParseVersionMask(std::string_view mask, std::vector<std::string>* parts,
                      std::size_t maxParts) {
  static constexpr const char* kBadMask = "Bad version mask.";
  parts->clear();
  std::string part;
  const auto endPart = [&] {
    if (parts->size() < maxParts) parts->push_back(std::move(part));
    part.clear();
  };
  for (const char c : mask) {
    if (IsDigit(c)) {
      part += c;
    } else if (c == '.' && !part.empty()) {
      endPart();
    } else {
      throw kBadMask;  // NOLINT(misc-throw-by-value-catch-by-reference): callers catch this type
    }
  }
  // A dot at the end ends no part, so "3.2." is "3.2".
  if (!part.empty()) endPart();
}

VersionNumber MaskToVersion(const std::vector<std::string>& parts, std::uint16_t fill) {
  VersionNumber version = 0;
  for (std::size_t i = 0; i < kParts; ++i) {
    std::int64_t part = fill;
    if (i < parts.size() && !parts[i].empty()) {
      std::string_view digits = parts[i];
      TakeInt(&digits, &part);
    }
    version = AddPart(version, part);
  }
  return version;
}
