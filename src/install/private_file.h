// The file of an update while it is fetched, verified and run.
#ifndef KUPDATE_INSTALL_PRIVATE_FILE_H_
#define KUPDATE_INSTALL_PRIVATE_FILE_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "install/crypto.h"

/// A file alone in a fresh folder, both with names that nobody can foresee. Only the user may write
/// there, at medium integrity and above; the system and administrators may read, which installers
/// need. File and folder are removed with the object. Used by one thread at a time.
class PrivateFile {
 public:
  /// Makes the folder and the empty file, open for writing. Folders that earlier runs left behind
  /// more than a day ago are removed, where nobody uses them.
  /// @param extension  with its dot
  /// @return null when the system refuses; that was logged.
  static std::unique_ptr<PrivateFile> Make(std::wstring_view extension);
  ~PrivateFile();
  PrivateFile(const PrivateFile&) = delete;
  PrivateFile& operator=(const PrivateFile&) = delete;

  const std::wstring& Folder() const { return folder_; }  ///< ends with a backslash
  const std::wstring& Path() const { return path_; }

  /// False, and a line in the log, when not everything was written (the disk is full).
  bool Append(std::string_view bytes);

  /// Ends the writing; from now until the object ends nobody can write, replace, rename or delete
  /// the file, and what is read through it is what will be run. False was logged.
  bool Hold();
  /// 0 on failure. Both are for a held file.
  std::uint64_t Size() const;
  /// The whole file's digest in hexadecimal; empty on failure.
  std::string Digest(DigestKind kind) const;
  /// The held file's handle, for the system's own checks. Stays owned by the object.
  void* Handle() const { return file_; }

  /// Leaves file and folder behind, since they are still in use.
  void Keep() { keep_ = true; }

 private:
  PrivateFile() = default;
  void Close();

  std::wstring folder_;
  std::wstring path_;
  void* file_ = nullptr;  // null: not open
  bool keep_ = false;
};

#endif  // KUPDATE_INSTALL_PRIVATE_FILE_H_
