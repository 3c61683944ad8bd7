// The file of an update while it is fetched, verified and run.
#ifndef KUPDATE_INSTALL_PRIVATE_FILE_H_
#define KUPDATE_INSTALL_PRIVATE_FILE_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "install/crypto.h"
#include "util/handle.h"

/// A file alone in a fresh folder, both with names that no program can foresee. As soon as the file
/// is there, and before anything is written to it, the folder is sealed: the user may read, run and
/// delete its content, but neither add to it nor change these rights; the system and administrators
/// may read and run it. File and folder are removed with the object. Used by one thread at a time.
class PrivateFile {
 public:
  /// Makes the folder and the empty file, open for writing, and seals the folder.
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

  /// Ends the writing; from now until the object ends no program can write, replace, rename or
  /// delete the file, and what is read through it is what will be run. False was logged.
  bool Hold();
  /// 0 on failure. Both are for a held file.
  std::uint64_t Size() const;
  /// The whole file's digest in hexadecimal; empty on failure.
  std::string Digest(DigestKind kind) const;
  /// Whether nothing else is in the folder: no program was fast enough to put something there
  /// before it was sealed.
  bool IsAlone() const;

  /// Leaves file and folder behind, since they are still in use. RemoveInstallLeftovers takes them
  /// away when the program that runs in the folder has ended.
  void Keep() { keep_ = true; }

 private:
  PrivateFile() = default;

  std::wstring folder_;
  std::wstring path_;
  UniqueHandle openFolder_;  // keeps others from removing or renaming it
  UniqueHandle file_;
  bool keep_ = false;
};

/// Removes the folders that earlier runs left behind, with all that is in them. A folder that a
/// process works in stays, as its current folder or as a PrivateFile. Follows no link: a link is
/// removed itself. Best effort; waits for others at most a second, and 0.1 s for a file that a
/// scanner holds.
void RemoveInstallLeftovers() noexcept;

/// Removes the folder that holds these folders, when it is empty.
void RemoveInstallFolder();

#endif  // KUPDATE_INSTALL_PRIVATE_FILE_H_
