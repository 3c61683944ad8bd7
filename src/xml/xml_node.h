// The XML document model of every store and of the update feed.
#ifndef KUPDATE_XML_XML_NODE_H_
#define KUPDATE_XML_XML_NODE_H_

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

class XmlNode;
struct XmlAttribute;
struct XmlAttributes;
struct XmlTree;

/// Thrown by the parser. what() is the message for the log.
class exXML : public std::runtime_error {
 public:
  exXML(const std::string& message, std::size_t position)
      : std::runtime_error(message), position_(position) {}
  /// How many bytes of the input were consumed when the error was found.
  std::size_t position() const { return position_; }

 private:
  std::size_t position_;
};

/// Observes a parse. Called on the parsing thread, in document order.
class XmlListener {
 public:
  virtual ~XmlListener() = default;
  virtual void OnAttribute(XmlNode& node, std::string_view name, std::string_view value) = 0;
  /// Text was seen that stands behind child elements of `node`.
  virtual void OnTextAfterChildren(XmlNode& node) = 0;
  virtual void OnFinished(XmlNode& node) = 0;
};

/// The name of a node that was never named.
inline constexpr std::string_view kUnnamedNode = "NA";
/// The name of the nodes that hold a CDATA section's content as their value.
inline constexpr std::string_view kCdataNode = "![CDATA[";

inline constexpr int kCodePage1251 = 1251;
inline constexpr int kCodePageUtf8 = 65001;

/// One element, one CDATA section, or one special item (a declaration, a comment).
///
/// The root owns the whole tree, in one piece of memory that lives and ends with it: views that the
/// accessors return, and pointers and references to nodes below, are valid until the root is
/// destroyed, assigned to, or parses. Text is bytes as they stand in the file; nothing converts
/// them. Nothing here recurses, so no tree is too deep to be copied, written or destroyed. A text
/// that does not fit into 31 bits counts as one for which there is no memory. Used by one thread at
/// a time.
class XmlNode {
 public:
  /// An empty root: named "NA", code page 1251.
  XmlNode();
  /// A root of its own with a deep copy of `other` and all below it.
  XmlNode(const XmlNode& other);
  /// Takes the tree of the root `other` without a copy; `other` is an empty root then.
  XmlNode(XmlNode&& other) noexcept;
  /// Both are for roots only: the old content of this tree is gone.
  XmlNode& operator=(const XmlNode& other);
  XmlNode& operator=(XmlNode&& other) noexcept;
  ~XmlNode();

  /// Parses `text` into this empty root: the prolog goes to its specials, then it becomes the root
  /// element. What follows the root element is ignored; empty input leaves an empty root. Linear
  /// time.
  /// @param text      taken over, not copied again
  /// @param listener  may be null
  /// Throws exXML; then the tree holds the children of the root that were read whole. Errors are
  /// also more than 256 nested elements, more than 4096 attributes of one, and a tree that takes
  /// more than six times the input and 512 KB, or than three times a large input and 4 MB ("out of
  /// memory"): only text made for that is so dense.
  void Parse(std::string text, XmlListener* listener = nullptr);

  /// The text of the tree, with the specials first and two blanks of indent a level.
  std::string Serialise() const;

  /// Writes version "1.0" and the name of the code page into the root's "?xml" special, made when
  /// absent.
  void SetDeclaration();

  std::string_view Name() const { return {name_, nameSize_}; }
  void SetName(std::string_view name);
  /// The element's text with entities decoded, or the raw text of a special or CDATA section.
  std::string_view Value() const { return {value_, valueSize_}; }
  void SetValue(std::string_view value);
  /// The value or, when that is empty, the value of the first CDATA child.
  std::string_view Text() const;

  /// The document's code page, the same for all its nodes. It only decides the declaration's
  /// "encoding".
  int CodePage() const;
  void SetCodePage(int codePage);
  /// Whether the prolog that was parsed declares a code page known here; CodePage() is that one
  /// then.
  bool DeclaresCodePage() const;

  /// The first element or CDATA child in document order; null without one.
  XmlNode* FirstChild() const { return lastChild_ ? lastChild_->next_ : nullptr; }
  /// The next child of the same parent; null at the end.
  XmlNode* Next() const {
    const XmlNode* node = this;
    while (!node->isLast_) {
      node = node->next_;
      if (node->isSpecial_ == isSpecial_) return const_cast<XmlNode*>(node);
      if (isSpecial_) break;
    }
    return nullptr;
  }
  /// The first special; they are linked by Next() too.
  XmlNode* FirstSpecial() const { return !isLast_ && next_->isSpecial_ ? next_ : nullptr; }
  bool HasChildren() const { return lastChild_ != nullptr; }

  /// The first child of that name (exact, case-sensitive); null when absent.
  XmlNode* FindChild(std::string_view name) const;
  /// Appends a new element.
  XmlNode& AddChild(std::string_view name);
  /// FindChild, or AddChild when absent.
  XmlNode& ChildOrNew(std::string_view name);
  /// Takes `child`, a child of this node, out of the tree. Its memory goes with the root.
  void RemoveChild(XmlNode& child);

  /// The attribute's value, empty when absent.
  std::string_view Attribute(std::string_view name) const;
  void SetAttribute(std::string_view name, std::string_view value);
  /// In decimal, as "%lld" writes it.
  void SetAttribute(std::string_view name, std::int64_t value);

 private:
  friend class XmlParser;
  friend class XmlWriter;

  /// A node below the root. Lives in the tree's memory and is never destroyed on its own.
  explicit XmlNode(XmlTree* tree) : tree_(tree) {}

  XmlTree& Tree();
  XmlNode& NewNode();
  XmlNode& NewSpecial();
  /// Set a text that lives as long as the tree.
  void HoldName(std::string_view text);
  void HoldValue(std::string_view text);
  /// The last of the node's specials, or the node itself when it has none.
  XmlNode& LastSpecial();
  /// Appends a node that is in no tree yet, with its specials.
  void Append(XmlNode& child);
  /// Appends a special that is in no tree yet to `last`, which is LastSpecial().
  static void AppendSpecial(XmlNode& last, XmlNode& special);
  /// Sets all but the children from `other`, a node of any tree.
  void CopyItself(const XmlNode& other);
  void CopyTexts(const XmlNode& other);
  /// Moves the content of the root `other` into this empty root.
  void TakeFrom(XmlNode& other) noexcept;
  const XmlAttribute* FindAttribute(std::string_view name) const;
  void InsertAttribute(std::size_t index, const XmlAttribute& attribute);

  // A feed has millions of nodes, so each word counts. Children stand in a ring, each with its
  // specials behind it, and the parent knows the last. A root and its specials stand in a list.
  XmlTree* tree_ = nullptr;  // the root owns it; null while nothing was put into an empty root
  XmlNode* next_ = nullptr;
  XmlNode* lastChild_ = nullptr;
  XmlAttributes* attributes_ = nullptr;
  const char* name_ = kUnnamedNode.data();
  const char* value_ = nullptr;
  std::uint32_t nameSize_ : 31 = kUnnamedNode.size();
  std::uint32_t isSpecial_ : 1 = false;
  std::uint32_t valueSize_ : 31 = 0;
  std::uint32_t isLast_ : 1 = true;
};

/// Parses the bytes of a file. Drops a leading UTF-8 byte-order mark.
/// @param root  not null; its old content is gone
/// @return false when the text does not parse, or is neither blank nor has a root element: that is
///         logged, with the position, and `root` holds the children that were read whole.
bool LoadXml(std::string bytes, XmlNode* root);

/// `node`'s Text(), or empty when `node` is null.
std::string_view TextOf(const XmlNode* node);

#endif  // KUPDATE_XML_XML_NODE_H_
