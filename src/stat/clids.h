// The channel through which an application was distributed, and its part of the reports.
#ifndef KUPDATE_STAT_CLIDS_H_
#define KUPDATE_STAT_CLIDS_H_

#include <array>
#include <map>
#include <string>
#include <string_view>
#include <vector>

/// Reads the identifier files that installers left in the maker's folder or in the common one.
/// Texts are bytes as they stand in the files. No fault of a file throws: it is logged, and the
/// file counts as one without identifiers. So does one that does not parse to its end. Used by one
/// thread at a time.
class TClids {
 public:
  struct Clid {
    std::string text;
    std::string vid;  ///< a sub-identifier; may be empty
  };

  explicit TClids(std::string appId) : appId_(std::move(appId)) {}

  /// Fills the tables from the first file that has a "clid1" text.
  /// @return the distribution identifier, "text-vid" or "text"; empty when no file has one. From
  ///         the folder of all users it comes percent-encoded.
  std::string ReadClids();
  /// Empties the tables and fills them from one file.
  void ParseFile(const std::string& path);

  /// The elements "clid1" to "clid8", at 0 to 7.
  const std::array<Clid, 8>& Slots() const { return slots_; }
  /// All elements "clid" + number, by number.
  const std::map<int, Clid>& Numbered() const { return numbered_; }

  /// The data about the application in reports, as query text that begins with "krsoft=". Reads the
  /// identifier files, the user id (made when it may be) and the vendor parameter. No value of
  /// the user's own is encoded.
  std::string AppInfoForUrl(std::string_view version, std::string_view platform);

  /// The text that a distributor wants passed along: the application's vendor file without one
  /// leading "?" or "&" and without line breaks at its end. Empty when file or folder are missing,
  /// and when the text is empty or longer than 254 characters; "vendor-url-retr-failed=yes" when it
  /// is there and cannot be read.
  std::string VendorParam() const;

 private:
  struct Candidate {
    std::string path;
    bool isOfAllUsers;
  };

  /// The files to look into, in that order.
  std::vector<Candidate> Candidates() const;

  std::string appId_;
  std::array<Clid, 8> slots_;
  std::map<int, Clid> numbered_;
};

#endif  // KUPDATE_STAT_CLIDS_H_
