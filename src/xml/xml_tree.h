// Shared by the nodes of one tree. Private to the XML sources.
#ifndef KUPDATE_XML_XML_TREE_H_
#define KUPDATE_XML_XML_TREE_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "xml/xml_node.h"

/// The longest text that a node can hold, and so the longest input.
inline constexpr std::size_t kMaxTextBytes = 0x7FFFFFFF;

struct XmlAttribute {
  const char* nameBegin;
  const char* valueBegin;
  std::uint32_t nameSize;
  std::uint32_t valueSize;

  XmlAttribute(std::string_view name, std::string_view value)
      : nameBegin(name.data()),
        valueBegin(value.data()),
        nameSize(static_cast<std::uint32_t>(name.size())),
        valueSize(static_cast<std::uint32_t>(value.size())) {}
  std::string_view Name() const { return {nameBegin, nameSize}; }
  std::string_view Value() const { return {valueBegin, valueSize}; }
};

/// A node's attributes, by name in byte order, no name twice. They follow this head.
struct XmlAttributes {
  std::uint32_t count;
  std::uint32_t capacity;

  XmlAttribute* begin() { return reinterpret_cast<XmlAttribute*>(this + 1); }
  XmlAttribute* end() { return begin() + count; }
};

/// The memory of one tree: the parsed input and a few growing blocks. It is freed as a whole only.
struct XmlTree {
  std::string input;
  int codePage = kCodePage1251;
  bool codePageDeclared = false;

  /// From now on blocks take at most six times the input and 512 KB, and of a large input three
  /// times and 4 MB. An honest feed takes as much as its input, statistics take three times as
  /// much. A hostile feed of 8 MiB takes 29 MB, so that in a host of 60 MB there is room for its
  /// text and its reader.
  void BoundByInput() {
    mostBytes_ = std::min(6 * input.size() + (1 << 19), 3 * input.size() + (1 << 22));
  }
  void Unbound() { mostBytes_ = kNoBound; }

  /// Memory aligned for nodes and attributes. Throws std::bad_alloc.
  void* Allocate(std::size_t sizeBytes) {
    sizeBytes = (sizeBytes + kAlignment - 1) / kAlignment * kAlignment;
    if (sizeBytes > freeBytes_) AddBlock(sizeBytes);
    std::byte* memory = free_;
    free_ += sizeBytes;
    freeBytes_ -= sizeBytes;
    return memory;
  }

  /// Room for attributes, none of them there yet.
  XmlAttributes* AllocateAttributes(std::size_t capacity) {
    void* memory = Allocate(sizeof(XmlAttributes) + capacity * sizeof(XmlAttribute));
    return new (memory) XmlAttributes{0, static_cast<std::uint32_t>(capacity)};
  }

  /// A copy of `text` that lives as long as the tree.
  std::string_view Keep(std::string_view text) {
    if (text.empty()) return {};
    if (text.size() > kMaxTextBytes) throw std::bad_alloc();
    void* memory = Allocate(text.size());
    std::memcpy(memory, text.data(), text.size());
    return {static_cast<const char*>(memory), text.size()};
  }

 private:
  static constexpr std::size_t kAlignment = alignof(XmlNode);
  static_assert(alignof(XmlAttribute) == kAlignment && sizeof(XmlAttributes) % kAlignment == 0);
  static constexpr std::size_t kFirstBlockBytes = 2048;
  static constexpr std::size_t kLastBlockBytes = 1 << 20;

  static constexpr std::size_t kNoBound = SIZE_MAX;

  void AddBlock(std::size_t leastBytes);

  std::vector<std::unique_ptr<std::byte[]>> blocks_;
  std::byte* free_ = nullptr;
  std::size_t freeBytes_ = 0;
  std::size_t nextBlockBytes_ = kFirstBlockBytes;
  std::size_t heldBytes_ = 0;
  std::size_t mostBytes_ = kNoBound;
};

// The steps of the parser for each node, inline for speed.

inline void XmlNode::HoldName(std::string_view text) {
  name_ = text.data();
  nameSize_ = text.size() & kMaxTextBytes;
}

inline void XmlNode::HoldValue(std::string_view text) {
  value_ = text.data();
  valueSize_ = text.size() & kMaxTextBytes;
}

inline XmlNode& XmlNode::LastSpecial() {
  XmlNode* last = this;
  while (XmlNode* special = last->isLast_ ? nullptr : last->next_) {
    if (!special->isSpecial_) break;
    last = special;
  }
  return *last;
}

inline void XmlNode::Append(XmlNode& child) {
  XmlNode& last = child.LastSpecial();
  if (lastChild_) {
    last.next_ = std::exchange(lastChild_->next_, &child);
    lastChild_->isLast_ = false;
  } else {
    last.next_ = &child;
  }
  lastChild_ = &last;
}

/// The two code pages that a declaration can name, and their names.
struct XmlCodePage {
  int number;
  std::string_view name;
};
inline constexpr XmlCodePage kXmlCodePages[] = {{kCodePage1251, "windows-1251"},
                                                {kCodePageUtf8, "utf-8"}};
inline constexpr std::string_view kXmlDeclaration = "?xml";

#endif  // KUPDATE_XML_XML_TREE_H_
