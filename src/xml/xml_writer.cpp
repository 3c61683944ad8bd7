#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "xml/xml_node.h"
#include "xml/xml_tree.h"

namespace {

constexpr std::string_view kFirstAttribute = "version";

// What bytes are written as. The number sign is escaped on purpose: files in the field hold it so.
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

}  // namespace

/// Writes one tree into a string, one node after the other.
class XmlWriter {
 public:
  std::string Write(const XmlNode& root);

 private:
  void WriteSpecial(const XmlNode& special);
  /// The node up to its children, or all of a node without children.
  void WriteStart(const XmlNode& node);
  /// What follows the children.
  void WriteEnd(const XmlNode& node);
  void WriteAttributes(const XmlNode& node);
  void WriteAttribute(const XmlAttribute& attribute);
  void Add(std::string_view text) {
    std::copy_n(text.data(), text.size(), MakeRoom(text.size()));
  }
  void AddEscaped(std::string_view text);
  void AddIndent() { std::memset(MakeRoom(indent_), ' ', indent_); }
  /// Where the next `size` bytes of the output go.
  char* MakeRoom(std::size_t size) {
    if (size > out_.size() - size_) out_.resize(2 * (size_ + size) + 256);
    char* end = out_.data() + size_;
    size_ += size;
    return end;
  }

  std::string out_;       // longer than what was written
  std::size_t size_ = 0;  // of what was written
  std::size_t indent_ = 0;
};

std::string XmlWriter::Write(const XmlNode& root) {
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
  out_.resize(size_);
  return std::move(out_);
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
  AddIndent();
  Add("<");
  Add(node.Name());
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
  if (node.HasChildren()) AddIndent();
  Add("</");
  Add(node.Name());
  Add(">\n");
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
  Add(" ");
  Add(attribute.Name());
  Add("=\"");
  AddEscaped(attribute.Value());
  Add("\"");
}

void XmlWriter::AddEscaped(std::string_view text) {
  const char* written = text.data();
  const char* const end = written + text.size();
  for (const char* at = written; at != end; ++at) {
    const unsigned number = kEscapeNumbers[static_cast<unsigned char>(*at)];
    if (number == 0) continue;
    Add({written, static_cast<std::size_t>(at - written)});
    Add(kEscapes[number - 1].text);
    written = at + 1;
  }
  Add({written, static_cast<std::size_t>(end - written)});
}

std::string XmlNode::Serialise() const { return XmlWriter().Write(*this); }
