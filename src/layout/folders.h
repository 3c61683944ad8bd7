// The updater's own folders. All results end with a backslash. Nothing throws; a folder that the
// system cannot name is empty, and files in it cannot be opened.
#ifndef KUPDATE_LAYOUT_FOLDERS_H_
#define KUPDATE_LAYOUT_FOLDERS_H_

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "util/folders.h"

/// "Krelix" in the roaming folder, UTF-8, made: the user id and the identifier files.
std::string GetMakerFolder();
/// "Krelix" in the folder of all users, UTF-8; never made.
std::string GetCommonMakerFolder();

/// "Krelix\Updater" in the roaming folder, made: the log, and the executor at its default place.
std::wstring GetUpdaterRoamingFolder();
/// Full path of the executor at its default place; empty when the system does not name that folder.
std::wstring DefaultExecutorPath();

/// "Krelix\Updater" in the local folder. Empty, and logged, when one of these folders is a link.
/// @param subPath  ANSI text
std::wstring GetUpdaterLocalFolder(const std::string& subPath, CreateFolder create);

/// "Krelix\Updater" in the low-integrity folder. Not made.
/// @param subPath  ANSI text
std::wstring GetUpdaterLowFolder(const std::string& subPath);

/// The folder of the stores' files, UTF-8: "Krelix\Updater\" in the low-integrity folder, which is
/// made, then `subPath` (an application id), which is not. Empty, and logged, when one of these
/// folders is a link: any process of the user may have put it there.
std::string GetUpdaterDataPath(const std::string& subPath);

/// The application ids that have a folder below `folder`, as the text from which such a folder's
/// name is made.
/// @param folder  ends with a backslash
/// @param ids  empty when the folder is missing
/// @return false when there may be more: the folder cannot be listed, or a name stands for no id.
bool ListAppIds(const std::wstring& folder, std::vector<std::string>* ids);

/// The folder of one application's files below GetUpdaterDataPath.
class DataFolder {
 public:
  /// @param name  UTF-8
  explicit DataFolder(std::string name) : name_(std::move(name)) {}

  /// Full path of a file in the folder, UTF-8; empty when the system names no folder. It is asked
  /// once, and makes the folder's parents then. Used by one thread at a time.
  std::string PathOf(std::string_view fileName) const;

 private:
  std::string name_;
  mutable std::optional<std::string> path_;
};

#endif  // KUPDATE_LAYOUT_FOLDERS_H_
