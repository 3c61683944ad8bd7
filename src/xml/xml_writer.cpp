#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "xml/xml_node.h"
#include "xml/xml_scan.h"
#include "xml/xml_tree.h"

namespace {

// A declaration must begin with its version; the other attributes follow by name.
constexpr std::string_view kFirstAttribute = "version";

// The bytes that are escaped, and their form. The number sign is one of them on purpose: files in
// the field hold it so.
constexpr struct {
  char byte;
  std::string_view text;
} kEscapes[] = {{'\r', "&#xD;"},  {'"', "&quot;"}, {'#', "&#x23;"}, {'&', "&amp;"},
                {'\'', "&apos;"}, {'<', "&lt;"},   {'>', "&gt;"}};

// For each byte the number of its escape, counted from 1; 0 for one that stays.
constexpr std::array<unsigned char, 256> MakeEscapeNumbers() {
  std::array<unsigned char, 256> numbers{};
  unsigned char number = 0;
  for (const auto& escape : kEscapes) numbers[static_cast<unsigned char>(escape.byte)] = ++number;
  return numbers;
}

constexpr std::array<unsigned char, 256> kEscapeNumbers = MakeEscapeNumbers();

// Whether the byte has an escape. " # & and ' differ in two bits only, < and > in one, so that
// three comparisons find all.
constexpr auto kHasEscape = [](auto c) {
  return ((c & '\xFA') == '"') | ((c & '\xFD') == '<') | (c == '\r');
};

}  // namespace

/// Writes one tree into a string, one node after the other.
class XmlWriter {
 public:
  std::string Write(const XmlNode& root);

 private:
  void WriteSpecial(const XmlNode& special);
  /// The node up to its children, or all of a node without children.
  void WriteStart(const XmlNode& node);
  /// The text and the closing tag behind the children.
  void WriteEnd(const XmlNode& node);
  void WriteAttributes(const XmlNode& node);
  void WriteAttribute(const XmlAttribute& attribute);
  void Add(std::string_view text) { Put(MakeRoom(text.size()), text); }
  void AddEscaped(std::string_view text);

  /// Where the next `size` bytes of the output go.
  char* MakeRoom(std::size_t size) {
    if (size > room_.size() - used_) Flush(size);
    used_ += size;
    return room_.data() + used_ - size;
  }
  void Flush(std::size_t size);
  /// Where the next byte goes.
  static char* Put(char* at, std::string_view text) {
    return std::copy_n(text.data(), text.size(), at);
  }
  static char* PutBlanks(char* at, std::size_t count) { return std::fill_n(at, count, ' '); }

  std::string out_;
  // The next pieces are gathered here: appending each short one to a string would cost more.
  std::vector<char> room_ = std::vector<char>(4096);
  std::size_t used_ = 0;
  std::size_t indent_ = 0;
};

std::string XmlWriter::Write(const XmlNode& root) {
  // A parsed tree is written as a text of about the same size.
  if (root.tree_) out_.reserve(root.tree_->input.size());
  // A list instead of recursion: no tree is too deep to be written.
  std::vector<const XmlNode*> parents;
  const XmlNode* node = &root;
  for (;;) {
    WriteStart(*node);
    if (node->HasChildren()) {
      parents.push_back(node);
      node = node->FirstChild();
      indent_ += 2;
      continue;
    }
    const XmlNode* next = nullptr;
    while (!parents.empty() && !(next = node->Next())) {
      node = parents.back();
      parents.pop_back();
      indent_ -= 2;
      WriteEnd(*node);
    }
    if (!next) break;
    node = next;
  }
  Flush(0);
  return std::move(out_);
}

void XmlWriter::Flush(std::size_t size) {
  out_.append(room_.data(), used_);
  used_ = 0;
  if (size > room_.size()) room_.resize(size);
}

void XmlWriter::WriteSpecial(const XmlNode& special) {
  Add("<");
  Add(special.Name());
  Add(" ");
  if (special.Name().starts_with('?')) {
    WriteAttributes(special);
    Add("?>\n");
  } else {
    Add(special.Value());
    Add(">\n");
  }
}

void XmlWriter::WriteStart(const XmlNode& node) {
  for (const XmlNode* special = node.FirstSpecial(); special; special = special->Next()) {
    WriteSpecial(*special);
  }
  char* at = PutBlanks(MakeRoom(indent_ + 1 + node.Name().size()), indent_);
  Put(Put(at, "<"), node.Name());
  if (node.Name() == kCdataNode) {
    Add(node.Value());
    Add("]]>\n");
    return;
  }
  WriteAttributes(node);
  if (node.HasChildren()) {
    Add(">\n");
  } else if (node.Value().empty()) {
    Add("/>\n");
  } else {
    Add(">");
    WriteEnd(node);
  }
}

void XmlWriter::WriteEnd(const XmlNode& node) {
  AddEscaped(node.Value());
  const std::size_t indent = node.HasChildren() ? indent_ : 0;
  char* at = PutBlanks(MakeRoom(indent + node.Name().size() + 4), indent);
  Put(Put(Put(at, "</"), node.Name()), ">\n");
}

void XmlWriter::WriteAttributes(const XmlNode& node) {
  if (!node.attributes_) return;
  const XmlAttribute* first = node.FindAttribute(kFirstAttribute);
  if (first) WriteAttribute(*first);
  for (const XmlAttribute& each : *node.attributes_) {
    if (&each != first) WriteAttribute(each);
  }
}

void XmlWriter::WriteAttribute(const XmlAttribute& attribute) {
  char* at = MakeRoom(attribute.Name().size() + 3);
  Put(Put(Put(at, " "), attribute.Name()), "=\"");
  AddEscaped(attribute.Value());
  Add("\"");
}

void XmlWriter::AddEscaped(std::string_view text) {
  const char* written = text.data();
  const char* const end = written + text.size();
  for (;;) {
    const char* const at = FindFirst(written, end, kHasEscape);
    Add({written, static_cast<std::size_t>(at - written)});
    if (at == end) return;
    Add(kEscapes[kEscapeNumbers[static_cast<unsigned char>(*at)] - 1].text);
    written = at + 1;
  }
}

std::string XmlNode::Serialise() const { return XmlWriter().Write(*this); }
