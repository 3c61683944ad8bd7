#include <algorithm>

#include "fuzz/fuzz.h"
#include "xml/xml_node.h"

namespace {

constexpr std::string_view kBlanks(" \t\r\n\0", 5);

std::string Trimmed(std::string_view text, bool atEnd) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  if (atEnd) text = text.substr(0, text.find_last_not_of(kBlanks) + 1);
  return std::string(text);
}

// Takes away the blanks that the file format does not keep: in front of texts, behind "!" and its
// name, and between a text behind children and the closing tag.
void Settle(XmlNode* node) {
  for (XmlNode* each = node->FirstSpecial(); each; each = each->Next()) {
    each->SetValue(Trimmed(each->Value(), false));
  }
  if (node->Name() == kCdataNode) return;
  node->SetValue(Trimmed(node->Value(), node->HasChildren()));
  for (XmlNode* child = node->FirstChild(); child; child = child->Next()) Settle(child);
}

}  // namespace

// What was parsed, whole or not, is written so that it parses again and is the same.
void FuzzXml(std::string_view input) {
  XmlNode tree;
  try {
    tree.Parse(std::string(input));
  } catch (const exXML& error) {
    Check(error.position() <= input.size(), "an error lies within the input");
  }
  // A written text is indented: up to 512 blanks for an element of four bytes.
  StopCounting();
  const std::string text = tree.Serialise();
  Check(XmlNode(tree).Serialise() == text, "a copy is the same");
  XmlNode again;
  again.Parse(text);
  Check(again.CodePage() == tree.CodePage(), "the code page stays");
  Settle(&tree);
  Settle(&again);
  Check(again.Serialise() == tree.Serialise(), "what is written is what was parsed");
}
