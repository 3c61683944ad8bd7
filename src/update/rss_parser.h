// Decides from an update feed whether there is a newer version of an application.
#ifndef KUPDATE_UPDATE_RSS_PARSER_H_
#define KUPDATE_UPDATE_RSS_PARSER_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "appinfo/app_info2.h"
#include "appinfo/version_number.h"
#include "xml/xml_node.h"

/// A version that an item of the feed offers. Without an item it stands for no update. The texts
/// and the item live in the feed.
struct UpdateInfo {
  std::string_view version;
  std::string_view status;  ///< "release", "beta" or "critical"
  /// Made for certain installed versions, from the item's "update:" elements.
  bool isTarget = false;
  const XmlNode* item = nullptr;

  /// Logs what was found.
  void LogI() const;
};

/// An address from the feed and its date; both may be empty.
struct DatedUrl {
  std::string_view url;
  std::string_view date;
};

/// An item that may become the update, with the version it offers.
struct Candidate {
  VersionNumber version;
  std::size_t position;  ///< among the candidates: of two with one version the later one counts
  const XmlNode* item;

  bool operator<(const Candidate& other) const {
    return version != other.version ? version < other.version : position < other.position;
  }
};

/// Which lines are written about the items of one feed, which can have a million of them: of each
/// kind the first of an item, and of all of them no more than kMaxLines.
class ItemLog {
 public:
  enum Line : unsigned {
    kMask = 1,
    kRange = 2,
    kTried = 4,
    kEmpty = 8,
    kVersion = 16,
    kDialogs = 32
  };

  void BeginItem() { written_ = 0; }
  bool Takes(Line line);

 private:
  static constexpr int kMaxLines = 1000;

  unsigned written_ = 0;  // lines of the current item
  int left_ = kMaxLines;
};

/// The update that was chosen, by key of the update's store. Bytes as they stand in the feed.
using UpdateResult = std::map<std::string_view, std::string_view>;

/// Evaluates one feed in one pass over its items. An element's text is its value or, when that is
/// empty, its first CDATA section; a missing element counts as empty text.
class RssParser {
 public:
  /// @param app   the application's record; its "LastCheckTime" is set when there is no update
  /// @param feed  the root of the parsed feed; taken over, not copied
  /// @param now   seconds since 1970-01-01 UTC
  /// @return whether there is an update, which Result() then gives.
  /// Throws std::invalid_argument for another root element than "rss" and for a bad version, a
  /// const char* for a bad mask.
  bool IsUpgradeAvailable(TAppInfo2& app, XmlNode feed, std::uint64_t now);

  /// Views into the feed, valid while this object lives.
  const UpdateResult& Result() const { return result_; }
  const XmlNode& Feed() const { return feed_; }

 private:
  /// Gathers the candidates among the items for this application and platform. False when the feed
  /// is rejected.
  bool FillUpdateList(std::string_view appId, std::string_view platform);
  /// The highest candidate above the current version: a release, or any when `wantUnstable`. Uses
  /// the candidates up.
  /// @param isCurrentListed  set to true when the walk ended at the current version
  UpdateInfo FindUpdate(bool wantUnstable, bool* isCurrentListed);
  /// Whether `target` or a later sibling of that name covers the current version.
  bool AreWeTarget(const XmlNode* target);
  void FillResult(const UpdateInfo& update, std::string_view locale);
  void FillDialogs(const UpdateInfo& update, std::string_view locale);
  void FillTexts(const UpdateInfo& update);

  bool IsCompatibleVersion(std::string_view ver);
  /// The dialogs in the language `locale` or, when there are none, the last ones without a
  /// language.
  DatedUrl GetLocalDlgUrl(const XmlNode& item, std::string_view prefix, std::string_view locale);
  /// The archive of that name; both empty when it is made for other dialogs than ours.
  DatedUrl GetArchiveUrl(const XmlNode& item, std::string_view prefix, const std::string& name);

  XmlNode feed_;
  ItemLog log_;
  VersionNumber current_ = 0;
  std::vector<Candidate> common_;
  std::vector<Candidate> target_;
  UpdateResult result_;
};

#endif  // KUPDATE_UPDATE_RSS_PARSER_H_
