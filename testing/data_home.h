// Folders for tests: an empty data folder of the user, and temporary files.
#ifndef KUPDATE_TESTING_DATA_HOME_H_
#define KUPDATE_TESTING_DATA_HOME_H_

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

/// A folder of this process that is removed when it ends.
const std::filesystem::path& ProcessTempFolder();

/// Gives a test empty folders of a user for whom no id was made yet, and removes them afterwards. On Windows these are the
/// user's own, in the private prefix that the tests run in; it refuses to work anywhere else.
class DataHome {
 public:
  DataHome();
  ~DataHome();
  DataHome(const DataHome&) = delete;
  DataHome& operator=(const DataHome&) = delete;

  /// The folder of an application's files, which is made.
  std::filesystem::path AppFolder(const std::string& appId) const;
  /// A file in the maker's folder, and in that of all users; the folders are made.
  std::filesystem::path File(const std::string& name) const;
  std::filesystem::path CommonFile(const std::string& name) const;
};

/// A path with backslashes, in UTF-8, as this system wants it.
std::filesystem::path NativePath(std::string path);

/// Makes `link` a link to a folder. On Windows it takes a system tool of the host that Wine runs on.
void LinkFolder(const std::filesystem::path& link, const std::filesystem::path& target);
/// Removes a link to a folder, not what it leads to.
void UnlinkFolder(const std::filesystem::path& link);

/// A file's bytes; empty when it cannot be read.
std::string ReadBytes(const std::filesystem::path& path);
void WriteBytes(const std::filesystem::path& path, std::string_view bytes);

/// The lines of a text, which end with LF or CR LF, without their ends.
std::vector<std::string> LinesOf(const std::string& text);

#endif  // KUPDATE_TESTING_DATA_HOME_H_
