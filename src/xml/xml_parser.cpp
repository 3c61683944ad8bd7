#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <new>
#include <vector>

#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/text.h"
#include "xml/xml_node.h"
#include "xml/xml_tree.h"

namespace {

constexpr std::size_t kMaxDepth = 256;
constexpr std::size_t kMaxAttributes = 4096;
constexpr std::size_t kMaxValueShown = 32;
constexpr std::size_t kMaxNameShown = 256;

enum CharClass : unsigned char { kBlank = 1, kNodeName = 2, kAttributeName = 4 };

constexpr std::array<unsigned char, 256> MakeCharClasses() {
  std::array<unsigned char, 256> classes{};
  const auto add = [&classes](std::string_view chars, int mask) {
    for (const char c : chars)
      classes[static_cast<unsigned char>(c)] |= static_cast<unsigned char>(mask);
  };
  add(std::string_view(" \t\r\n\0", 5), kBlank);
  add("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_:-.",
      kNodeName | kAttributeName);
  add("?![", kNodeName);
  return classes;
}

constexpr std::array<unsigned char, 256> kCharClasses = MakeCharClasses();

bool Is(char c, CharClass wanted) {
  return (kCharClasses[static_cast<unsigned char>(c)] & wanted) != 0;
}

std::string Quoted(std::string_view text, std::size_t maxShown) {
  std::string quoted = "\"";
  quoted.append(text.substr(0, maxShown));
  if (text.size() > maxShown) quoted.append("...");
  return quoted.append("\"");
}

constexpr struct {
  std::string_view name;
  char byte;
} kEntities[] = {{"quot", '"'},  {"gt", '>'},  {"lt", '<'},
                 {"apos", '\''}, {"amp", '&'}, {"nbsp", '\xA0'}};

// The value of a digit, or 16 and more.
unsigned DigitValue(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a') + 10;
  if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A') + 10;
  return 16;
}

// Finds the byte that the reference "&name;" stands for. False when there is none.
bool DecodeEntity(std::string_view name, char* byte) {
  for (const auto& entity : kEntities) {
    if (entity.name != name) continue;
    *byte = entity.byte;
    return true;
  }
  if (!name.starts_with('#')) return false;
  const unsigned radix = name.starts_with("#x") ? 16 : 10;
  name.remove_prefix(radix == 16 ? 2 : 1);
  unsigned code = 0;  // wraps: only its low 8 bits count
  for (const char c : name) {
    if (DigitValue(c) >= radix) return false;
    code = code * radix + DigitValue(c);
  }
  *byte = static_cast<char>(code & 0xFF);
  return !name.empty();
}

}  // namespace

/// One parse: a cursor over the tree's input. Views into the input become the names and values;
/// entities are decoded in place, which only ever shrinks a text.
class XmlParser {
 public:
  XmlParser(XmlNode& root, XmlListener* listener)
      : root_(root),
        tree_(root.Tree()),
        listener_(listener),
        node_(&root),
        pos_(tree_.input.data()),
        end_(pos_ + tree_.input.size()) {}

  void Run();

 private:
  enum class Start {
    kNothing,     // no node here
    kClosingTag,  // "</" was read instead
    kWhole,       // an empty element or a CDATA section
    kOpen         // an element; its content follows
  };

  void ReadDocument();
  void ReadChild();
  Start ReadStart();
  Start ReadElementHead();
  void ReadCdata();
  XmlNode& ReadSpecial(std::string_view name);
  void ReadInstruction();
  void ReadCodePage(const XmlNode& declaration);
  void ReadAttributes();
  std::string_view ReadAttributeValue();
  void StoreAttributes();
  void ReadValue();
  std::string_view ReadText(char stop, const char* endOfInputMessage, XmlNode* valueOf);
  char ReadEntity();
  void ReadClosingTag();
  void FinishNode();
  [[noreturn]] void Fail(const std::string& message) const;

  bool AtEnd() const { return pos_ == end_; }
  bool Skip(char c) {
    if (AtEnd() || *pos_ != c) return false;
    ++pos_;
    return true;
  }
  void SkipBlanks() {
    while (!AtEnd() && Is(*pos_, kBlank)) ++pos_;
  }
  // The zero behind the input is of no name class and ends the loop.
  std::string_view ReadWhile(CharClass wanted) {
    const char* begin = pos_;
    while (Is(*pos_, wanted)) ++pos_;
    return From(begin, pos_);
  }
  // The first `c` from the cursor on; the end of input when there is none.
  char* Find(char c) const {
    void* found = std::memchr(pos_, c, static_cast<std::size_t>(end_ - pos_));
    return found ? static_cast<char*>(found) : end_;
  }
  static std::string_view From(const char* begin, const char* end) {
    return {begin, static_cast<std::size_t>(end - begin)};
  }

  XmlNode& root_;
  XmlTree& tree_;
  XmlListener* listener_;
  XmlNode* node_;                           // the node being read
  std::array<XmlNode*, kMaxDepth> open_{};  // the open elements, each in the one before
  std::size_t depth_ = 0;                   // how many there are
  char* pos_;
  char* end_;
  std::vector<XmlAttribute> attributes_;  // of the node being read
};

void XmlParser::Run() {
  try {
    ReadDocument();
  } catch (const std::bad_alloc&) {
    Fail("out of memory");
  }
}

void XmlParser::ReadDocument() {
  switch (ReadStart()) {
    case Start::kOpen:
      open_[depth_++] = node_;
      break;
    case Start::kWhole:
      FinishNode();
      return;
    default:
      return;
  }
  while (depth_ > 0) {
    SkipBlanks();
    if (AtEnd()) Fail("unexpected end of file");
    if (*pos_ != '<') {
      ReadValue();
    } else if (pos_[1] == '/') {
      pos_ += 2;
      ReadClosingTag();
    } else {
      ReadChild();
    }
  }
}

// Goes down into the next child when it is an element with content; else the parent goes on.
void XmlParser::ReadChild() {
  XmlNode* parent = node_;
  node_ = &parent->NewNode();
  switch (ReadStart()) {
    case Start::kOpen:
      open_[depth_++] = node_;
      return;
    case Start::kWhole:
      FinishNode();
      return;
    case Start::kClosingTag:
      node_ = parent;
      ReadClosingTag();
      return;
    case Start::kNothing:
      node_ = parent;
      return;
  }
}

XmlParser::Start XmlParser::ReadStart() {
  XmlNode* last = node_;
  for (;;) {
    SkipBlanks();
    if (!Skip('<')) return Start::kNothing;
    if (Skip('/')) return Start::kClosingTag;
    const char* begin = pos_;
    const std::string_view name = ReadWhile(kNodeName);
    if (name.empty()) Fail("unnamed node");
    if (name.front() != '!' && name.front() != '?') {
      node_->HoldName(name);
      return ReadElementHead();
    }
    if (name.starts_with(kCdataNode)) {
      pos_ -= name.size() - kCdataNode.size();
      node_->HoldName(From(begin, pos_));
      ReadCdata();
      return Start::kWhole;
    }
    XmlNode& special = ReadSpecial(name);
    XmlNode::AppendSpecial(*last, special);
    last = &special;
  }
}

XmlParser::Start XmlParser::ReadElementHead() {
  if (depth_ == kMaxDepth) Fail("elements nested too deeply");
  ReadAttributes();
  SkipBlanks();
  if (AtEnd()) Fail("unexpected end of file");
  if (Skip('/')) {
    if (!Skip('>')) Fail("no closing angle brace for empty node");
    return Start::kWhole;
  }
  if (!Skip('>')) Fail("no closing angle brace");
  return Start::kOpen;
}

void XmlParser::ReadCdata() {
  constexpr std::string_view kTerminator = "]]>";
  const std::string_view rest = From(pos_, end_);
  const std::size_t length = rest.find(kTerminator);
  node_->HoldValue(rest.substr(0, length));
  pos_ = length == rest.npos ? end_ : pos_ + length + kTerminator.size();
}

XmlNode& XmlParser::ReadSpecial(std::string_view name) {
  XmlNode* owner = node_;
  XmlNode& special = owner->NewSpecial();
  special.HoldName(name);
  node_ = &special;
  if (name.front() == '?') {
    ReadInstruction();
    if (owner == &root_ && name == kXmlDeclaration) ReadCodePage(special);
  } else {
    const char* begin = pos_;
    pos_ = Find('>');
    special.HoldValue(From(begin, pos_));
    if (!Skip('>')) Fail("unexpected end of file");
  }
  node_ = owner;
  return special;
}

void XmlParser::ReadInstruction() {
  ReadAttributes();
  if (!Skip('?') || !Skip('>')) Fail("invalid character in PI");
}

void XmlParser::ReadCodePage(const XmlNode& declaration) {
  for (const XmlCodePage& page : kXmlCodePages) {
    if (!EqualsIgnoreCase(page.name, declaration.Attribute("encoding"))) continue;
    tree_.codePage = page.number;
    tree_.codePageDeclared = true;
  }
}

void XmlParser::ReadAttributes() {
  for (;;) {
    SkipBlanks();
    const std::string_view name = ReadWhile(kAttributeName);
    SkipBlanks();
    if (!Skip('=')) break;
    const std::string_view value = ReadAttributeValue();
    if (listener_) listener_->OnAttribute(*node_, name, value);
    if (name.empty()) continue;
    if (attributes_.size() == kMaxAttributes) Fail("too many attributes");
    attributes_.emplace_back(name, value);
  }
  if (!attributes_.empty()) StoreAttributes();
}

std::string_view XmlParser::ReadAttributeValue() {
  SkipBlanks();
  if (AtEnd() || (*pos_ != '"' && *pos_ != '\'')) {
    Fail("attribute value must be enclosed in double quotes");
  }
  const char quote = *pos_++;
  const std::string_view value =
      ReadText(quote, "unexpected EOF while parsing attribute value: no closing quote", nullptr);
  ++pos_;
  return value;
}

// Sorts once, however many there are; by heap, because it is the sort of least code. Values lie in
// the input in the order they were read, so that of equal names the last one read comes last.
void XmlParser::StoreAttributes() {
  const auto isBefore = [](const XmlAttribute& a, const XmlAttribute& b) {
    const int order = a.Name().compare(b.Name());
    return order != 0 ? order < 0 : std::less<>()(a.valueBegin, b.valueBegin);
  };
  std::make_heap(attributes_.begin(), attributes_.end(), isBefore);
  std::sort_heap(attributes_.begin(), attributes_.end(), isBefore);
  XmlAttributes* stored = tree_.AllocateAttributes(attributes_.size());
  for (const XmlAttribute& attribute : attributes_) {
    const bool isRepeated = stored->count > 0 && stored->end()[-1].Name() == attribute.Name();
    if (isRepeated) --stored->count;
    new (stored->end()) XmlAttribute(attribute);
    ++stored->count;
  }
  node_->attributes_ = stored;
  attributes_.clear();
}

void XmlParser::ReadValue() {
  ReadText('<', "unexpected EOF while looking for value or closing tag", node_);
  if (listener_ && node_->HasChildren()) listener_->OnTextAfterChildren(*node_);
  ++pos_;
  if (!Skip('/')) Fail("missing or incomplete closing tag");
  ReadClosingTag();
}

// Reads up to `stop`, which is left. No reference that decodes contains a quote or a "<", so `stop`
// is searched for once. The text becomes the value of `valueOf` piece by piece, for the message
// about a bad reference.
std::string_view XmlParser::ReadText(char stop, const char* endOfInputMessage, XmlNode* valueOf) {
  const char* begin = pos_;
  char* out = pos_;
  char* textEnd = Find(stop);
  for (;;) {
    const auto length = static_cast<std::size_t>(textEnd - pos_);
    auto* runEnd = static_cast<char*>(std::memchr(pos_, '&', length));
    if (!runEnd) runEnd = textEnd;
    const auto runLength = static_cast<std::size_t>(runEnd - pos_);
    if (out != pos_) std::memmove(out, pos_, runLength);
    out += runLength;
    pos_ = runEnd;
    if (valueOf) valueOf->HoldValue(From(begin, out));
    if (pos_ == textEnd) break;
    ++pos_;
    *out++ = ReadEntity();
  }
  if (AtEnd()) Fail(endOfInputMessage);
  return From(begin, out);
}

char XmlParser::ReadEntity() {
  const char* begin = pos_;
  pos_ = Find(';');
  const std::string_view name = From(begin, pos_);
  if (!Skip(';')) Fail("unexpected end of file");
  char byte = 0;
  if (!DecodeEntity(name, &byte)) {
    Fail("invalid entity reference: " + Quoted(name, kMaxNameShown));
  }
  return byte;
}

void XmlParser::ReadClosingTag() {
  const std::string_view name = node_->Name();
  if (!From(pos_, end_).starts_with(name)) Fail("missing or incomplete closing tag");
  pos_ += name.size();
  if (!Skip('>')) Fail("missing or incomplete closing tag");
  --depth_;
  FinishNode();
}

// Only whole nodes are hung into the tree: a failed parse leaves no half of a child behind.
void XmlParser::FinishNode() {
  XmlNode* parent = depth_ > 0 ? open_[depth_ - 1] : nullptr;
  if (parent) parent->Append(*node_);
  if (listener_) listener_->OnFinished(*node_);
  if (parent) node_ = parent;
}

void XmlParser::Fail(const std::string& message) const {
  std::string text = message;
  if (node_->Name() != kUnnamedNode) {
    text += " while parsing node " + Quoted(node_->Name(), kMaxNameShown);
  }
  if (node_->valueSize_ > 0) text += " with value " + Quoted(node_->Value(), kMaxValueShown);
  throw exXML(text, static_cast<std::size_t>(pos_ - tree_.input.data()));
}

void XmlNode::Parse(std::string text, XmlListener* listener) {
  *this = XmlNode();
  if (text.size() > kMaxTextBytes) throw exXML("out of memory", 0);
  Tree().input = std::move(text);
  tree_->BoundByInput();
  try {
    XmlParser(*this, listener).Run();
    tree_->Unbound();
  } catch (const exXML&) {
    tree_->Unbound();
    HoldValue({});  // the beginning of a text is not a text
    throw;
  }
}

bool LoadXml(std::string bytes, XmlNode* root) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  const std::size_t markSize = bytes.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
  bytes.erase(0, markSize);
  const bool isBlank =
      std::all_of(bytes.begin(), bytes.end(), [](char c) { return Is(c, kBlank); });
  try {
    root->Parse(std::move(bytes));
    // The parser stops before what is no element; for a file that is a fault like any other.
    if (root->Name() == kUnnamedNode && !isBlank) throw exXML("no root element", 0);
    return true;
  } catch (const exXML& error) {
    LOG_E << "XML parser error:" << error.what() << " (at position" << error.position() + markSize
          << ")";
    return false;
  }
}
