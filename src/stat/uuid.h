// The one identifier of a user, shared by all applications of the maker.
#ifndef KUPDATE_STAT_UUID_H_
#define KUPDATE_STAT_UUID_H_

#include <string>

/// A GUID with braces in the file "ui" of the maker's folder. It is made at most once per user: the
/// protect value in the registry records that it was, and then no other one is made, even when the
/// file is gone. Takes no lock: of two processes that make it at the same time the last one's
/// stays. Nothing throws for a fault of file or registry.
struct TUuid {
  /// The id in the maker's folder; see EnsureUniqUserIdExists.
  static std::string ReadUniqUserId();
  /// The id, made when the user never had one. "{none}" when the user has no id and the library may
  /// not make one: it was made before, the process is a browser's in protected mode, or the file is
  /// there and cannot be read. "N/A" when making it failed.
  /// @param path  of the file, UTF-8; content of exactly 38 characters is an id
  static std::string EnsureUniqUserIdExists(const std::string& path);

  /// "UICreated_" and the user's logon name.
  static std::wstring ProtectValueName();
  /// Looks in both keys where it may be. A key that cannot be read counts as one that holds it.
  static bool ProtectValueAlreadyExist();
  /// Writes it under the current user; a failure is logged.
  static void WriteProtectValue();
  /// A new GUID, 38 characters, or "N/A".
  static std::string NewGuid();
};

#endif  // KUPDATE_STAT_UUID_H_
