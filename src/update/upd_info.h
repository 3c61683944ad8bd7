// The update that the last evaluation of a feed found, in the application's updinfo.xml.
#ifndef KUPDATE_UPDATE_UPD_INFO_H_
#define KUPDATE_UPDATE_UPD_INFO_H_

#include <cstdint>
#include <string>

#include "appinfo/app_info2.h"
#include "xml/xml_node.h"

/// The same kind of store as the application's record, in a second file under a lock of its own.
/// An update is written in one step.
class TUpdInfo final : public TAppInfo2 {
 public:
  explicit TUpdInfo(const std::string& appId);

  std::string Path() const override;

  /// Decides from `feed` whether there is an update for `app` and writes it down; without
  /// an update nothing is written. Both outcomes set the application's "LastCheckTime"; a feed that
  /// is refused, be it by an exception or for ambiguous targets, does not. A feed that declares no
  /// code page is read as UTF-8 where it is that, else as windows-1251. In one that declares UTF-8
  /// a byte that belongs to no character stands for the character of that number. A text above
  /// 64 KiB is cut at a character, which is logged.
  /// @param app   the application's record
  /// @param feed  the root of the parsed feed; taken over, not copied
  /// @param now   seconds since 1970-01-01 UTC
  /// @return whether an update was found.
  /// Throws std::invalid_argument for another root element than "rss" and for a bad version, a
  /// const char* for a bad mask.
  bool Evaluate(TAppInfo2& app, XmlNode feed, std::uint64_t now);
};

#endif  // KUPDATE_UPDATE_UPD_INFO_H_
