// The folders of the system. All results end with a backslash. Nothing throws; a folder that the
// system cannot name is empty, and files in it cannot be opened.
#ifndef KUPDATE_UTIL_FOLDERS_H_
#define KUPDATE_UTIL_FOLDERS_H_

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

enum class CreateFolder { kNo, kYes };

/// Makes a folder with its parents; one that is there is fine, failure is ignored, empty is
/// nothing.
void MakeFolder(const std::wstring& path);

/// Whether a path has a component that leads out of the folder it is appended to: "..", also where
/// the system would read it as that ("..." or a trailing blank).
bool HasParentComponent(std::wstring_view path);

/// `folder` with `subPath` below it, normalised; empty when `folder` is, or when the sub-path is
/// refused.
std::wstring FolderBelow(std::wstring folder, const std::wstring& subPath);

/// A folder of the shell with a sub-path below it. A sub-path with a ".." component is refused:
/// logged, and the result is empty.
/// @param csidl   the shell's number of the folder
/// @param create  whether the whole path is made (failure is ignored)
std::wstring GetSpecialFolder(int csidl, const std::wstring& subPath, CreateFolder create);

/// The roaming per-user folder; the path is made.
std::wstring GetAppDataFolder(const std::wstring& subPath);
/// The local per-user folder.
std::wstring GetLocalAppDataFolder(const std::wstring& subPath, CreateFolder create);
/// The folder of all users; never made.
std::wstring GetCommonAppDataFolder(const std::wstring& subPath);

/// "Krelix" in the roaming folder, UTF-8, made: the user id and the identifier files.
std::string GetMakerFolder();

/// "Krelix\Updater" in the local folder. Empty, and logged, when one of these folders is a link.
/// @param subPath  ANSI text
std::wstring GetUpdaterLocalFolder(const std::string& subPath, CreateFolder create);

/// The application ids that have a folder below `folder`, as the text from which such a folder's
/// name is made.
/// @param folder  ends with a backslash
/// @param ids  empty when the folder is missing
/// @return false when there may be more: the folder cannot be listed, or a name stands for no id.
bool ListAppIds(const std::wstring& folder, std::vector<std::string>* ids);

/// The per-user folder that low-integrity processes can write. Not made.
std::wstring GetLocalAppDataLowFolder(const std::wstring& subPath);
/// "Krelix\Updater" in it. Not made.
/// @param subPath  ANSI text
std::wstring GetUpdaterLowFolder(const std::string& subPath);

/// The folder of the stores' files, UTF-8: "Krelix\Updater\" in the low-integrity folder, which is
/// made, then `subPath` (an application id), which is not. Empty, and logged, when one of these
/// folders is a link: any process of the user may have put it there.
std::string GetUpdaterDataPath(const std::string& subPath);

/// The folder of one application's files below that.
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

/// The folder for temporary files, made when absent.
std::wstring GetTempFolder();

#endif  // KUPDATE_UTIL_FOLDERS_H_
