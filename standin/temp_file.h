// The hidden file that a download grows in.
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
  /// One that is there already; empty for none.
  explicit TempFile(std::wstring path) : path_(std::move(path)) {}

  /// Empty when there is none.
  const std::wstring& path() const { return path_; }
  bool Exists() const;

  /// Makes the file beside `target`, or empties the one made before, and keeps it open for writing.
  HResult Start(const std::wstring& target);
  HResult Append(const char* data, std::size_t sizeBytes);
  void Close() { file_ = UniqueHandle(); }
  /// Closes it and renames it onto `target`, over what stands there.
  HResult MoveOnto(const std::wstring& target);
  /// Closes and deletes it. Returns whether nothing is left.
  bool Discard();

 private:
  std::wstring path_;  // empty: there is no file
  UniqueHandle file_;
};

}  // namespace standin

#endif  // KUPDATE_STANDIN_TEMP_FILE_H_
