// The manifest beside an update's file, in which its publisher vouches for it.
#ifndef KUPDATE_INSTALL_MANIFEST_H_
#define KUPDATE_INSTALL_MANIFEST_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "appinfo/local_record.h"
#include "install/p256.h"
#include "install/update_offer.h"

/// Longer ones are refused.
inline constexpr std::size_t kMaxManifestBytes = 8192;
/// No larger file is fetched.
inline constexpr std::uint64_t kMaxFileBytes = std::uint64_t{4} << 30;

struct Manifest {
  std::string app;
  VersionNumber version = 0;
  std::uint64_t size = 0;
  std::string sha256;           ///< 64 hexadecimal digits in lower case
  std::uint64_t expiresAt = 0;  ///< the first second at which it is void, since 1970-01-01 UTC
  Starter starter = Starter::kProgram;
  std::string args;
  bool mayElevate = false;
  std::string platform;    ///< empty: any
  bool isBeta = false;     ///< only for applications on the beta channel
  std::string signedText;  ///< the bytes that the signature is over
  P256Pair signature = {};
};

/// Reads a manifest. Its signature is not verified; nothing in it counts before it is.
///
/// UTF-8, each line ended by LF and nothing else. The first line is "kupdate-manifest 1"; then
/// come lines of "name: value", in any order, each at most once, the value neither empty nor with
/// control characters: app, version, size, sha256, expires (the last day, UTC, as 2027-01-31), and,
/// where they are not the defaults, starter (exe), args (none), elevate (0), platform (any) and
/// channel (release). The last line is "signature: " with the base64 of a DER signature over all
/// lines before it.
/// @param manifest  not null; to be used only when there was no fault
/// @return the fault, for the log; empty without one.
std::string_view ParseManifest(std::string_view bytes, Manifest* manifest);

/// Whether a manifest whose signature was verified vouches for an offer.
/// @param record  of the application
/// @param now  seconds since 1970-01-01 UTC
/// @return why not, for the log; empty when it does.
std::string_view FaultOf(const Manifest& manifest, const UpdateOffer& offer,
                         const LocalRecord& record, std::uint64_t now);

#endif  // KUPDATE_INSTALL_MANIFEST_H_
