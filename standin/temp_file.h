// The hidden file of a download that is not complete yet.
#ifndef KUPDATE_STANDIN_TEMP_FILE_H_
#define KUPDATE_STANDIN_TEMP_FILE_H_

#include <cstddef>
#include <string>
#include <utility>

#include "standin/codes.h"
#include "util/handle.h"

namespace standin {

/// One temporary file beside its target, named like BIT1A2B.tmp. Stays on disk until it is handed
/// over or discarded. Used under its job's lock.
class TempFile {
 public:
  TempFile() = default;
  /// Takes over the file of that path; an empty path means no file.
  explicit TempFile(std::wstring path) : path_(std::move(path)) {}

  /// Empty without a file.
  const std::wstring& path() const { return path_; }
  bool Exists() const;

  /// Makes the file beside `target`, or empties an earlier one, and keeps it open for writing.
  HResult Start(const std::wstring& target);
  HResult Append(const char* data, std::size_t sizeBytes);
  void Close() { file_ = UniqueHandle(); }
  /// Closes it and renames it onto `target`, which it replaces.
  HResult MoveOnto(const std::wstring& target);
  /// Closes and deletes it. Returns whether the file is gone.
  bool Discard();

 private:
  std::wstring path_;  // empty: there is no file
  UniqueHandle file_;
};

}  // namespace standin

#endif  // KUPDATE_STANDIN_TEMP_FILE_H_
