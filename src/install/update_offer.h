// What the state files say of the update to install: a hint, which any process of the user may have
// written, and nothing more.
#ifndef KUPDATE_INSTALL_UPDATE_OFFER_H_
#define KUPDATE_INSTALL_UPDATE_OFFER_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "update/version_number.h"

/// How an update is started.
enum class Starter {
  kProgram,  ///< the file is the installer: "exe", and also the empty text
  kMsi,      ///< the system's own installer opens it: "msi"
  kUnknown,
};
Starter ParseStarter(std::string_view text);

struct UpdateOffer {
  std::string appId;
  VersionNumber version = 0;
  std::string url;
  std::string md5;         ///< hexadecimal; empty when not declared
  std::uint64_t size = 0;  ///< 0 when not declared
  Starter starter = Starter::kProgram;
  std::string args;  ///< "DistroArgs" or "MSIArgs", as the starter has it
  bool mayElevate = false;
};

/// Reads the recorded update of an application, each file in one go under its store's lock.
/// @return nothing when there is none, or none above the installed version, or the application is
///         not installed (any more); which of these is logged. Files that cannot be read count as
///         empty ones.
std::optional<UpdateOffer> ReadOffer(const std::string& appId);

/// Longer addresses and arguments are refused.
inline constexpr std::size_t kMaxAddressBytes = 2048;
inline constexpr std::size_t kMaxArgsBytes = 1024;

/// What an address may be fetched with.
enum class AddressKind { kRefused, kHttp, kHttps };
/// Only "http://" and "https://" (any case) with a host are not refused: no other scheme, no path
/// of a file, no user name, no fragment, nothing that an address would have to encode.
AddressKind KindOfAddress(std::string_view url);

/// The address to which an answer from `url` redirects.
/// @param location  as the server sent it: a whole address, or one that begins with "/"
/// @return empty for any other location.
std::string RedirectedAddress(std::string_view url, std::string_view location);

/// Whether arguments can do no more than set switches: words that begin with "/" or "-" and hold
/// letters, digits and "=_,.-", so that none names a file, a folder or an address.
bool ArePlainSwitches(std::string_view args);

#endif  // KUPDATE_INSTALL_UPDATE_OFFER_H_
