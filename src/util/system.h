// The system and its user: their names for the log's banner, rights, error texts, the last error,
// new GUIDs.
#ifndef KUPDATE_UTIL_SYSTEM_H_
#define KUPDATE_UTIL_SYSTEM_H_

#include <cstdint>
#include <string>

/// A readable name with version and build: "Microsoft Windows 10 (10.0.18362)".
std::string OsDisplayName();
/// By the true version, whatever the host's manifest says.
bool IsVistaOrLater();
/// Whether the process token is elevated. False before Vista.
bool IsElevated();
/// Whether user account control is on.
bool IsUacEnabled();
/// Whether this process has rights that other programs of its user lack: elevated, with user
/// account control on.
bool IsElevatedUnderUac();
/// Whether programs without this process's elevation could change the file at `path` or put another
/// one in its place: they may write to the file, to its folder or to one above, or one of these is
/// a link. In doubt they can.
/// @param path  full path of a file
bool CanOthersReplace(const std::wstring& path);
/// The file version from the version resource, "1.2.3.4"; empty when it has none.
std::string FileVersionText(const std::wstring& path);

/// The system's message for a Win32 or HRESULT code, else "unknown error 0x...". Narrow text in the
/// system's ANSI code page.
std::string ErrorCodeText(std::uint32_t code);

std::uint32_t LastErrorCode();
void SetLastErrorCode(std::uint32_t code);

/// Keeps the thread's last error over a scope, whatever the scope's own calls do to it.
class LastErrorKeeper {
 public:
  LastErrorKeeper() : code_(LastErrorCode()) {}
  ~LastErrorKeeper() { SetLastErrorCode(code_); }
  LastErrorKeeper(const LastErrorKeeper&) = delete;
  LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

 private:
  std::uint32_t code_;
};

/// A new GUID in registry form with braces, 38 characters; empty when the system gives none.
std::string NewGuidText();

/// The user's logon name, up to 1023 characters; empty when the system does not give it.
std::wstring LogonName();

namespace JustUtil {

/// Whether this process is a browser's in protected mode. Only a system that says so counts:
/// without the browser's library or its function, or when the call fails, it is not.
bool CheckPMIE8();

}  // namespace JustUtil

#endif  // KUPDATE_UTIL_SYSTEM_H_
