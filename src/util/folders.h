// The folders of the system. All results end with a backslash. Nothing throws; a folder that the
// system cannot name is empty, and files in it cannot be opened.
#ifndef KUPDATE_UTIL_FOLDERS_H_
#define KUPDATE_UTIL_FOLDERS_H_

#include <string>
#include <string_view>

enum class CreateFolder { kNo, kYes };

/// Makes a folder with its parents. An existing one is fine, a failure is ignored, and an empty
/// path does nothing.
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

/// The per-user folder that low-integrity processes can write. Not made.
std::wstring GetLocalAppDataLowFolder(const std::wstring& subPath);

/// The folder for temporary files, made when absent.
std::wstring GetTempFolder();

#endif  // KUPDATE_UTIL_FOLDERS_H_
