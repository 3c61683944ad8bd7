// The update to install, as the state files describe it. That is only a hint: any process of the
// user may have written it.
#ifndef KUPDATE_INSTALL_UPDATE_OFFER_H_
#define KUPDATE_INSTALL_UPDATE_OFFER_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "appinfo/local_record.h"
#include "appinfo/version_number.h"

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

/// Reads the recorded update of an application in one go, under its store's lock.
/// @return nothing when no update is recorded; that is logged. A file that cannot be read counts as
///         empty.
std::optional<UpdateOffer> ReadOffer(const std::string& appId);

/// Whether an application as it is now may be updated to `version`: it is registered, not removed,
/// and below that version. False was logged with its cause.
/// @param record  of the application, if it has one
bool MayUpdate(const std::optional<LocalRecord>& record, VersionNumber version);

/// Longer addresses and arguments are refused.
inline constexpr std::size_t kMaxAddressBytes = 2048;
inline constexpr std::size_t kMaxArgsBytes = 1024;

/// Whether an address may be fetched: "http://" or "https://" (any case) with a host; no other
/// scheme, no path of a file, no user name, no fragment, nothing that an address would have to
/// encode.
bool IsFetched(std::string_view url);

/// The address to which an answer from `url` redirects.
/// @param location  as the server sent it: a whole address, or one that begins with "/"
/// @return empty for any other location.
std::string RedirectedAddress(std::string_view url, std::string_view location);

#endif  // KUPDATE_INSTALL_UPDATE_OFFER_H_
