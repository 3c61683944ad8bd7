// Versions as one integer each, and the masks of the feed.
#ifndef KUPDATE_APPINFO_VERSION_NUMBER_H_
#define KUPDATE_APPINFO_VERSION_NUMBER_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Four 16-bit parts, major in the highest bits, so that order of versions is order of numbers.
using VersionNumber = std::uint64_t;

/// Reads "1.2.3.4"; blanks before a number are skipped and what follows the fourth is ignored.
/// Parts are not cut to 16 bits: a part above 65535 spills into the next higher one, a negative one
/// sets all higher bits. A number that does not fit 32 bits counts as the nearest one that does.
/// Throws std::invalid_argument, with the start of the text, when there are fewer than four
/// numbers.
VersionNumber ParseVersion(std::string_view text);

/// The four parts in decimal, joined by dots.
std::string FormatVersion(VersionNumber version);

/// The version of the four 16-bit parts.
VersionNumber MakeVersion(std::uint16_t major, std::uint16_t minor, std::uint16_t subver,
                          std::uint16_t build);

/// Splits a mask such as "3.2" into its parts; a trailing dot is dropped.
/// @param maxParts  later parts are checked and dropped
/// Throws the text "Bad version mask." (a const char*) on an empty part and on any other character.
void ParseVersionMask(std::string_view mask, std::vector<std::string>* parts,
                      std::size_t maxParts = std::string::npos);

/// The version of a mask's first four parts; missing and empty ones become `fill`. Parts are read
/// and combined as ParseVersion does it.
VersionNumber MaskToVersion(const std::vector<std::string>& parts, std::uint16_t fill);

#endif  // KUPDATE_APPINFO_VERSION_NUMBER_H_
