// What decides about an application, where processes of low integrity cannot write.
#ifndef KUPDATE_APPINFO_LOCAL_RECORD_H_
#define KUPDATE_APPINFO_LOCAL_RECORD_H_

#include <cstdint>
#include <optional>
#include <string>

/// An application as its last run told it, from "Krelix\Updater\<id>\local.xml" in the local
/// per-user folder. The stores in LocalLow hold the same and more, but any process of the user can
/// write there: what they say is a hint, this decides.
struct LocalRecord {
  std::uint64_t version = 0;  ///< that ran or was installed last, as VersionNumber packs it
  std::string platform;
  bool release = false;  ///< false: the beta channel
  bool removed = false;
  bool operator==(const LocalRecord&) const = default;
};

/// Nothing when the application has no record here, or one that cannot be read.
std::optional<LocalRecord> ReadLocalRecord(const std::string& appId);

#endif  // KUPDATE_APPINFO_LOCAL_RECORD_H_
