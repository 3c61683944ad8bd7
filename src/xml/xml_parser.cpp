#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <new>
#include <utility>
#include <vector>

#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/text.h"
#include "xml/xml_node.h"
#include "xml/xml_scan.h"
#include "xml/xml_tree.h"

namespace {

// Only a text that is made for it nests so deep or has so many attributes. The limits keep the
// memory for open elements and attributes small.
constexpr std::size_t kMaxDepth = 256;
constexpr std::size_t kMaxAttributes = 4096;
// Up to this number, sorting by insertion costs less than a heap.
constexpr std::ptrdiff_t kFewAttributes = 8;
// The parts of a feed's text that messages show.
constexpr std::size_t kMaxValueShown = 32;
constexpr std::size_t kMaxNameShown = 256;

constexpr std::string_view kEndOfInput = "unexpected end of file";
constexpr std::string_view kBadClosingTag = "missing or incomplete closing tag";
constexpr std::string_view kBadInstruction = "invalid character in PI";

constexpr bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\0';
}

// Letters, digits, "-", ".", ":" and "_" continue a name. Without && and ||, so that it works on
// vectors too.
constexpr auto kEndsAttributeName = [](auto c) {
  const auto lower = c | ' ';
  return ((lower < 'a') | (lower > 'z')) & ((c < '-') | (c > ':') | (c == '/')) & (c != '_');
};
// The names of nodes may hold these too, though they seldom do. Looking for them apart keeps the
// usual search short.
constexpr bool IsNodeNameMark(char c) { return c == '?' || c == '!' || c == '['; }

std::string Quoted(std::string_view text, std::size_t maxShown) {
  std::string quoted = "\"";
  quoted.append(text.substr(0, maxShown));
  if (text.size() > maxShown) quoted.append("...");
  return quoted.append("\"");
}

// A name of at most four bytes as a number. The leading one keeps names apart that begin with zero
// bytes.
constexpr std::uint64_t Packed(std::string_view name) {
  std::uint64_t number = 1;
  for (const char c : name) number = number << 8 | static_cast<unsigned char>(c);
  return number;
}

constexpr struct {
  std::uint64_t name;
  char byte;
} kEntities[] = {{Packed("quot"), '"'},  {Packed("gt"), '>'},  {Packed("lt"), '<'},
                 {Packed("apos"), '\''}, {Packed("amp"), '&'}, {Packed("nbsp"), '\xA0'}};

// The value of a digit, or 16 and more.
unsigned DigitValue(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a') + 10;
  if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A') + 10;
  return 16;
}

// Finds the byte that the reference "&name;" stands for. False for an unknown one.
bool DecodeEntity(std::string_view name, char* byte) {
  const std::uint64_t packed = name.size() <= 4 ? Packed(name) : 0;
  for (const auto& entity : kEntities) {
    if (entity.name != packed) continue;
    *byte = entity.byte;
    return true;
  }
  if (!name.starts_with('#')) return false;
  const unsigned radix = name.starts_with("#x") ? 16 : 10;
  name.remove_prefix(radix == 16 ? 2 : 1);
  unsigned code = 0;  // may wrap, because only its low 8 bits count
  for (const char c : name) {
    if (DigitValue(c) >= radix) return false;
    code = code * radix + DigitValue(c);
  }
  *byte = static_cast<char>(code & 0xFF);
  return !name.empty();
}

}  // namespace

/// One parse. Views into the input become the names and values; entities are decoded in place,
/// which only ever shrinks a text. A function that reads a part gets the cursor and returns where
/// the part ends: kept in the object, the cursor would go through memory at each step. Functions
/// that read each element are inline.
class XmlParser {
 public:
  XmlParser(XmlNode& root, XmlListener* listener)
      : root_(root),
        tree_(root.Tree()),
        listener_(listener),
        node_(&root),
        end_(tree_.input.data() + tree_.input.size()) {}

  void Run();

 private:
  enum class Start {
    kNothing,     // no node here
    kClosingTag,  // "</" was read instead
    kWhole,       // an empty element or a CDATA section
    kOpen         // an element; its content follows
  };
  struct Cursor {
    char* at;
    Start start;
  };

  void ReadDocument();
  char* ReadContent(char* at);
  Cursor ReadStart(char* at);
  Cursor ReadElementHead(char* at);
  char* ReadCdata(char* at);
  char* ReadSpecial(char* at, XmlNode& special);
  void ReadCodePage(const XmlNode& declaration);
  char* ReadAttributes(char* at);
  char* ReadAttributeValue(char* at, std::string_view* value);
  void StoreAttributes();
  char* ReadValue(char* at);
  char* ReadText(char* at, char stop, XmlNode* valueOf, const char** end);
  char* ReadEntity(char* at, char* byte);
  char* ReadClosingTag(char* at);
  void FinishNode();
  [[noreturn]] void Fail(const char* at, std::string_view message) const;

  // Notes where the parse stands, for the message when memory runs out.
  XmlNode& NewNode(const char* at) {
    pos_ = at;
    return *new (tree_.Allocate(sizeof(XmlNode))) XmlNode(&tree_);
  }
  bool IsAt(const char* at, char c) const { return at != end_ && *at == c; }
  char* SkipBlanks(char* at) const {
    // Mostly there are no blanks, or one with spaces behind it.
    while (at != end_ && IsBlank(*at)) {
      at = FindFirst(at + 1, end_, [](auto c) { return c != ' '; });
    }
    return at;
  }
  char* SkipNodeName(char* at) const {
    for (;;) {
      at = FindFirst(at, end_, kEndsAttributeName);
      if (at == end_ || !IsNodeNameMark(*at)) return at;
      ++at;
    }
  }
  char* Find(char* at, char wanted) const {
    return FindFirst(at, end_, [wanted](auto c) { return c == wanted; });
  }
  static std::string_view From(const char* begin, const char* end) {
    return {begin, static_cast<std::size_t>(end - begin)};
  }

  XmlNode& root_;
  XmlTree& tree_;
  XmlListener* listener_;
  XmlNode* node_;                         // the node being read
  std::array<XmlNode*, kMaxDepth> open_;  // the open elements, each in the one before
  std::size_t depth_ = 0;                 // how many there are
  const char* pos_ = nullptr;             // where memory was asked for last
  char* end_;
  std::vector<XmlAttribute> attributes_;  // of the node being read
};

void XmlParser::Run() {
  try {
    ReadDocument();
  } catch (const std::bad_alloc&) {
    Fail(pos_, "out of memory");
  }
}

void XmlParser::ReadDocument() {
  char* at = tree_.input.data();
  for (;;) {
    const Cursor next = ReadStart(at);
    at = next.at;
    switch (next.start) {
      case Start::kOpen:
        open_[depth_++] = node_;
        break;
      case Start::kWhole:
        FinishNode();
        break;
      default:
        if (depth_ == 0) return;
        node_ = open_[depth_ - 1];
        if (next.start == Start::kClosingTag) at = ReadClosingTag(at);
    }
    at = ReadContent(at);
    if (depth_ == 0) return;
    node_ = &NewNode(at);
  }
}

// Reads texts and closing tags up to the next child, or to the end of the root.
inline char* XmlParser::ReadContent(char* at) {
  while (depth_ > 0) {
    at = SkipBlanks(at);
    if (at == end_) Fail(at, kEndOfInput);
    if (*at != '<') {
      at = ReadValue(at);
    } else if (at[1] == '/') {
      at = ReadClosingTag(at + 2);
    } else {
      break;
    }
  }
  return at;
}

inline XmlParser::Cursor XmlParser::ReadStart(char* at) {
  XmlNode* last = node_;
  for (;;) {
    at = SkipBlanks(at);
    if (!IsAt(at, '<')) return {at, Start::kNothing};
    ++at;
    if (IsAt(at, '/')) return {at + 1, Start::kClosingTag};
    const char* begin = at;
    at = SkipNodeName(at);
    const std::string_view name = From(begin, at);
    if (name.empty()) Fail(at, "unnamed node");
    if (name.front() != '!' && name.front() != '?') {
      node_->HoldName(name);
      return ReadElementHead(at);
    }
    if (name.starts_with(kCdataNode)) {
      at -= name.size() - kCdataNode.size();
      // The content may follow at once: only the mark itself is the name.
      node_->HoldName(From(begin, at));
      return {ReadCdata(at), Start::kWhole};
    }
    XmlNode& special = NewNode(at);
    special.isSpecial_ = true;
    special.HoldName(name);
    at = ReadSpecial(at, special);
    XmlNode::AppendSpecial(*last, special);
    last = &special;
  }
}

inline XmlParser::Cursor XmlParser::ReadElementHead(char* at) {
  if (depth_ == kMaxDepth) Fail(at, "elements nested too deeply");
  if (!IsAt(at, '>')) at = ReadAttributes(at);
  at = SkipBlanks(at);
  if (at == end_) Fail(at, kEndOfInput);
  if (*at == '/') {
    if (!IsAt(++at, '>')) Fail(at, "no closing angle brace for empty node");
    return {at + 1, Start::kWhole};
  }
  if (*at != '>') Fail(at, "no closing angle brace");
  return {at + 1, Start::kOpen};
}

char* XmlParser::ReadCdata(char* at) {
  constexpr std::string_view kTerminator = "]]>";
  const std::string_view rest = From(at, end_);
  const std::size_t length = rest.find(kTerminator);
  node_->HoldValue(rest.substr(0, length));
  // A section without its end takes the rest of the text. Inside an element, the missing closing
  // tag is the error then.
  return length == rest.npos ? end_ : at + length + kTerminator.size();
}

char* XmlParser::ReadSpecial(char* at, XmlNode& special) {
  XmlNode* owner = std::exchange(node_, &special);
  if (special.Name().front() == '?') {
    at = ReadAttributes(at);
    if (!IsAt(at, '?')) Fail(at, kBadInstruction);
    if (!IsAt(++at, '>')) Fail(at, kBadInstruction);
    // Only a declaration in front of the root counts.
    if (owner == &root_ && special.Name() == kXmlDeclaration) ReadCodePage(special);
  } else {
    const char* begin = at;
    at = Find(at, '>');
    special.HoldValue(From(begin, at));
    if (at == end_) Fail(at, kEndOfInput);
  }
  node_ = owner;
  return at + 1;
}

void XmlParser::ReadCodePage(const XmlNode& declaration) {
  for (const XmlCodePage& page : kXmlCodePages) {
    if (!EqualsIgnoreCase(page.name, declaration.Attribute("encoding"))) continue;
    tree_.codePage = page.number;
    tree_.codePageDeclared = true;
  }
}

char* XmlParser::ReadAttributes(char* at) {
  for (;;) {
    const char* begin = at = SkipBlanks(at);
    at = FindFirst(at, end_, kEndsAttributeName);
    const std::string_view name = From(begin, at);
    at = SkipBlanks(at);
    if (!IsAt(at, '=')) break;
    std::string_view value;
    at = ReadAttributeValue(at + 1, &value);
    if (listener_) listener_->OnAttribute(*node_, name, value);
    // A value without a name is read and dropped.
    if (name.empty()) continue;
    if (attributes_.size() == kMaxAttributes) Fail(at, "too many attributes");
    pos_ = at;
    attributes_.emplace_back(name, value);
  }
  pos_ = at;
  if (!attributes_.empty()) StoreAttributes();
  return at;
}

char* XmlParser::ReadAttributeValue(char* at, std::string_view* value) {
  at = SkipBlanks(at);
  if (!IsAt(at, '"') && !IsAt(at, '\'')) {
    Fail(at, "attribute value must be enclosed in double quotes");
  }
  const char quote = *at++;
  const char* begin = at;
  const char* end = nullptr;
  at = ReadText(at, quote, nullptr, &end);
  if (at == end_) Fail(at, "unexpected EOF while parsing attribute value: no closing quote");
  *value = From(begin, end);
  return at + 1;
}

// Of equal names the last one read counts. Values lie in the input in the order in which they were
// read, so it also comes last here. Many are sorted by heap, because that sort takes the least
// code.
void XmlParser::StoreAttributes() {
  const auto isBefore = [](const XmlAttribute& a, const XmlAttribute& b) {
    const int order = a.Name().compare(b.Name());
    return order != 0 ? order < 0 : std::less<>()(a.valueBegin, b.valueBegin);
  };
  XmlAttribute* const first = attributes_.data();
  XmlAttribute* const end = first + attributes_.size();
  if (end - first <= kFewAttributes) {
    for (XmlAttribute* each = first; each != end; ++each) {
      for (XmlAttribute* at = each; at != first && isBefore(*at, at[-1]); --at) {
        std::swap(*at, at[-1]);
      }
    }
  } else {
    std::make_heap(first, end, isBefore);
    std::sort_heap(first, end, isBefore);
  }
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

inline char* XmlParser::ReadValue(char* at) {
  const char* begin = at;
  const char* end = nullptr;
  at = ReadText(at, '<', node_, &end);
  node_->HoldValue(From(begin, end));
  if (at == end_) Fail(at, "unexpected EOF while looking for value or closing tag");
  if (listener_ && node_->HasChildren()) listener_->OnTextAfterChildren(*node_);
  if (!IsAt(++at, '/')) Fail(at, kBadClosingTag);
  return ReadClosingTag(at + 1);
}

// Reads up to `stop`, which is not taken, or to the end of input, and decodes what it reads. For
// the message about a bad reference, the text before it becomes the value of `valueOf`.
inline char* XmlParser::ReadText(char* at, char stop, XmlNode* valueOf, const char** end) {
  const auto isEnd = [stop](auto c) { return (c == stop) | (c == '&'); };
  const char* const begin = at;
  at = FindFirst(at, end_, isEnd);
  char* out = at;
  while (IsAt(at, '&')) {
    if (valueOf) valueOf->HoldValue(From(begin, out));
    // A reference is longer than its byte, so the text moves towards its beginning and needs no
    // other memory.
    char* const run = ReadEntity(at + 1, out++);
    at = FindFirst(run, end_, isEnd);
    const auto length = static_cast<std::size_t>(at - run);
    std::memmove(out, run, length);
    out += length;
  }
  *end = out;
  return at;
}

char* XmlParser::ReadEntity(char* at, char* byte) {
  const char* begin = at;
  at = Find(at, ';');
  const std::string_view name = From(begin, at);
  if (at == end_) Fail(at, kEndOfInput);
  if (!DecodeEntity(name, byte)) {
    Fail(at + 1, "invalid entity reference: " + Quoted(name, kMaxNameShown));
  }
  return at + 1;
}

inline char* XmlParser::ReadClosingTag(char* at) {
  const std::string_view name = node_->Name();
  if (!StandsAt(at, end_, name)) Fail(at, kBadClosingTag);
  at += name.size();
  if (!IsAt(at, '>')) Fail(at, kBadClosingTag);
  --depth_;
  FinishNode();
  return at + 1;
}

// Only whole nodes are put into the tree: a failed parse leaves no half of a child behind.
inline void XmlParser::FinishNode() {
  XmlNode* parent = depth_ > 0 ? open_[depth_ - 1] : nullptr;
  if (parent) parent->Append(*node_);
  if (listener_) listener_->OnFinished(*node_);
  if (parent) node_ = parent;
}

void XmlParser::Fail(const char* at, std::string_view message) const {
  std::string text(message);
  if (node_->Name() != kUnnamedNode) {
    text += " while parsing node " + Quoted(node_->Name(), kMaxNameShown);
  }
  if (node_->valueSize_ > 0) text += " with value " + Quoted(node_->Value(), kMaxValueShown);
  throw exXML(text, static_cast<std::size_t>(at - tree_.input.data()));
}

void XmlNode::Parse(std::string text, XmlListener* listener) {
  *this = XmlNode();
  // Sizes of names and values have 31 bits.
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
  // An empty file counts as a store without values.
  const bool isBlank = std::all_of(bytes.begin(), bytes.end(), IsBlank);
  try {
    root->Parse(std::move(bytes));
    // The parser stops before a text that is no element. For a file that is a fault like any other.
    if (root->Name() == kUnnamedNode && !isBlank) throw exXML("no root element", 0);
    return true;
  } catch (const exXML& error) {
    LOG_E << "XML parser error:" << error.what() << " (at position" << error.position() + markSize
          << ")";
    return false;
  }
}
