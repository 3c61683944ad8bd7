#include "kupdate/pe_file.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace {

// Offsets and values of the file format.
constexpr std::size_t kHeaderOffsetAt = 0x3C;
constexpr std::size_t kFileHeaderBytes = 20;
constexpr std::size_t kSectionBytes = 40;
constexpr std::size_t kChecksumAt = 64;  // in the optional header
constexpr std::uint16_t kMagic32 = 0x10B;
constexpr std::uint16_t kMagic64 = 0x20B;
constexpr std::size_t kResourceDirectory = 2;
constexpr std::size_t kCertificateDirectory = 4;
constexpr std::uint32_t kRcData = 10;
constexpr std::uint32_t kHighBit = 0x80000000;
constexpr std::size_t kTableHeaderBytes = 16;
constexpr std::size_t kEntryBytes = 8;

[[noreturn]] void Refuse(const char* fault) { throw std::runtime_error(fault); }

}  // namespace

template <class Number>
Number PeFile::Read(std::size_t offset) const {
  if (offset > bytes_.size() || bytes_.size() - offset < sizeof(Number)) {
    Refuse("it is truncated");
  }
  Number number;
  std::memcpy(&number, bytes_.data() + offset, sizeof number);
  return number;
}

PeFile::PeFile(std::string bytes) : bytes_(std::move(bytes)) {
  if (!bytes_.starts_with("MZ")) Refuse("it is no program for Windows");
  const std::size_t signature = Read<std::uint32_t>(kHeaderOffsetAt);
  if (Read<std::uint32_t>(signature) != 0x4550) Refuse("it is no program for Windows");
  header_ = signature + 4;
  optional_ = header_ + kFileHeaderBytes;
  const std::uint16_t magic = Read<std::uint16_t>(optional_);
  if (magic != kMagic32 && magic != kMagic64) Refuse("it is no program of 32 or 64 bits");
  directories_ = optional_ + (magic == kMagic32 ? 96 : 112);
}

PeFile::Range PeFile::Directory(std::size_t index) const {
  if (index >= Read<std::uint32_t>(directories_ - 4)) return {0, 0};
  const std::size_t at = directories_ + index * 8;
  return {Read<std::uint32_t>(at), Read<std::uint32_t>(at + 4)};
}

bool PeFile::IsSigned() const { return Directory(kCertificateDirectory).size != 0; }

// The place in the file of what is loaded at `address`.
std::size_t PeFile::OffsetOf(std::uint32_t address, std::size_t size) const {
  const std::size_t sections = optional_ + Read<std::uint16_t>(header_ + 16);
  const std::size_t count = Read<std::uint16_t>(header_ + 2);
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t section = sections + i * kSectionBytes;
    const std::uint32_t start = Read<std::uint32_t>(section + 12);
    const std::uint32_t length = Read<std::uint32_t>(section + 16);
    if (address < start || address - start >= length) continue;
    const std::size_t offset = std::size_t{Read<std::uint32_t>(section + 20)} + (address - start);
    if (size > length - (address - start)) break;
    if (offset > bytes_.size() || size > bytes_.size() - offset) Refuse("it is truncated");
    return offset;
  }
  Refuse("its resources are damaged");
}

// The value of the entry with that name, or with that number where the name is empty; the first
// entry where both are. `table` and names are counted from `base`.
std::size_t PeFile::FindEntry(std::size_t table, std::size_t base, std::u16string_view name,
                              std::uint32_t id) const {
  const std::size_t named = Read<std::uint16_t>(base + table + 12);
  const std::size_t count = named + Read<std::uint16_t>(base + table + 14);
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t entry = base + table + kTableHeaderBytes + i * kEntryBytes;
    const std::uint32_t key = Read<std::uint32_t>(entry);
    bool isFound = name.empty() && (id == 0 || key == id);
    if (!name.empty() && (key & kHighBit) != 0) {
      const std::size_t text = base + (key & ~kHighBit);
      isFound = Read<std::uint16_t>(text) == name.size();
      for (std::size_t c = 0; isFound && c < name.size(); ++c) {
        isFound = Read<char16_t>(text + 2 + c * 2) == name[c];
      }
    }
    if (isFound) return Read<std::uint32_t>(entry + 4) & ~kHighBit;
  }
  Refuse("it has no room for trust, so it is no kupdate-exec.exe");
}

// Resources are a tree of three levels: type, name, language.
PeFile::Range PeFile::FindResource(std::u16string_view name) const {
  const Range directory = Directory(kResourceDirectory);
  if (directory.size == 0) Refuse("it has no room for trust, so it is no kupdate-exec.exe");
  const std::size_t base =
      OffsetOf(static_cast<std::uint32_t>(directory.offset), kTableHeaderBytes);
  const std::size_t names = FindEntry(0, base, {}, kRcData);
  const std::size_t languages = FindEntry(names, base, name, 0);
  const std::size_t data = base + FindEntry(languages, base, {}, 0);
  const std::size_t size = Read<std::uint32_t>(data + 4);
  return {OffsetOf(Read<std::uint32_t>(data), size), size};
}

std::string_view PeFile::Resource(std::u16string_view name) const {
  const Range found = FindResource(name);
  return std::string_view(bytes_).substr(found.offset, found.size);
}

void PeFile::ReplaceResource(std::u16string_view name, std::string_view content) {
  const Range found = FindResource(name);
  if (content.size() != found.size) Refuse("its room for trust has another size");
  bytes_.replace(found.offset, found.size, content);
  const std::uint32_t checksum = Checksum();
  std::memcpy(bytes_.data() + optional_ + kChecksumAt, &checksum, sizeof checksum);
}

// The sum of all 16-bit words, carries added in, and the length; the checksum itself counts as 0.
std::uint32_t PeFile::Checksum() const {
  const std::size_t at = optional_ + kChecksumAt;
  Read<std::uint32_t>(at);
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < bytes_.size(); ++i) {
    const bool isChecksum = i >= at && i < at + 4;
    if (!isChecksum) sum += std::uint64_t{static_cast<unsigned char>(bytes_[i])} << (i % 2 * 8);
  }
  while (sum > 0xFFFF) sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<std::uint32_t>(sum + bytes_.size());
}
