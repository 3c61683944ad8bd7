#include <string>

#include "xml/xml_node.h"
#include "xml/xml_tree.h"

namespace {

constexpr std::string_view kFirstAttribute = "version";

// What a byte is written as; empty for one that stays. The number sign is escaped on purpose: files
// in the field hold it so.
std::string_view Escape(char c) {
  switch (c) {
    case '\r':
      return "&#xD;";
    case '"':
      return "&quot;";
    case '#':
      return "&#x23;";
    case '&':
      return "&amp;";
    case '\'':
      return "&apos;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    default:
      return {};
  }
}

}  // namespace

/// Writes one tree into a string, going down and up again by the nodes' own links.
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
  void Add(std::string_view text) { out_.append(text); }
  void AddEscaped(std::string_view text);
  void AddIndent() { out_.append(indent_, ' '); }

  std::string out_;
  std::size_t indent_ = 0;
};

std::string XmlWriter::Write(const XmlNode& root) {
  const XmlNode* node = &root;
  for (;;) {
    WriteStart(*node);
    if (node->firstChild_) {
      node = node->firstChild_;
      indent_ += 2;
      continue;
    }
    while (node != &root && !node->next_) {
      node = node->parent_;
      indent_ -= 2;
      WriteEnd(*node);
    }
    if (node == &root) return std::move(out_);
    node = node->next_;
  }
}

void XmlWriter::WriteSpecial(const XmlNode& special) {
  Add("<");
  Add(special.name_);
  Add(" ");
  if (special.name_.starts_with('?')) {
    WriteAttributes(special);
    Add("?>\n");
  } else {
    Add(special.value_);
    Add(">\n");
  }
}

void XmlWriter::WriteStart(const XmlNode& node) {
  for (const XmlNode* special = node.firstSpecial_; special; special = special->next_) {
    WriteSpecial(*special);
  }
  AddIndent();
  Add("<");
  Add(node.name_);
  if (node.name_ == kCdataNode) {
    Add(node.value_);
    Add("]]>\n");
    return;
  }
  WriteAttributes(node);
  if (node.firstChild_) {
    Add(">\n");
  } else if (node.value_.empty()) {
    Add("/>\n");
  } else {
    Add(">");
    WriteEnd(node);
  }
}

void XmlWriter::WriteEnd(const XmlNode& node) {
  AddEscaped(node.value_);
  if (node.firstChild_) AddIndent();
  Add("</");
  Add(node.name_);
  Add(">\n");
}

void XmlWriter::WriteAttributes(const XmlNode& node) {
  const XmlAttribute* end = node.attributes_ + node.attributeCount_;
  const XmlAttribute* first = node.FindAttribute(kFirstAttribute);
  if (first != end && first->name != kFirstAttribute) first = end;
  if (first != end) WriteAttribute(*first);
  for (const XmlAttribute* each = node.attributes_; each != end; ++each) {
    if (each != first) WriteAttribute(*each);
  }
}

void XmlWriter::WriteAttribute(const XmlAttribute& attribute) {
  Add(" ");
  Add(attribute.name);
  Add("=\"");
  AddEscaped(attribute.value);
  Add("\"");
}

void XmlWriter::AddEscaped(std::string_view text) {
  std::size_t written = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::string_view escape = Escape(text[i]);
    if (escape.empty()) continue;
    Add(text.substr(written, i - written));
    Add(escape);
    written = i + 1;
  }
  Add(text.substr(written));
}

std::string XmlNode::Serialise() const { return XmlWriter().Write(*this); }
