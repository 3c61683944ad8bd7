// A program file of Windows, in memory: its resources and its checksum.
#ifndef KUPDATE_TOOLS_KUPDATE_PE_FILE_H_
#define KUPDATE_TOOLS_KUPDATE_PE_FILE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Looks at each offset before it is used, so that a truncated or forged file ends with
/// std::runtime_error, whose text names the fault for people.
class PeFile {
 public:
  /// @throws std::runtime_error for a file that is no program of 32 or 64 bits
  explicit PeFile(std::string bytes);

  /// Whether the file holds a certificate. A change would make its signature void.
  bool IsSigned() const;
  /// The bytes of a resource of type RCDATA.
  /// @throws std::runtime_error without that resource
  std::string_view Resource(std::u16string_view name) const;
  /// Writes other bytes of the same length, and the checksum of the file.
  void ReplaceResource(std::u16string_view name, std::string_view content);

  const std::string& Bytes() const { return bytes_; }

 private:
  struct Range {
    std::size_t offset, size;
  };

  template <class Number>
  Number Read(std::size_t offset) const;
  Range Directory(std::size_t index) const;
  std::size_t OffsetOf(std::uint32_t address, std::size_t size) const;
  std::size_t FindEntry(std::size_t table, std::size_t base, std::u16string_view name,
                        std::uint32_t id) const;
  Range FindResource(std::u16string_view name) const;
  std::uint32_t Checksum() const;

  std::string bytes_;
  std::size_t header_ = 0;       // of the file header, behind the signature
  std::size_t optional_ = 0;     // of the optional header
  std::size_t directories_ = 0;  // of the table of directories
};

#endif  // KUPDATE_TOOLS_KUPDATE_PE_FILE_H_
