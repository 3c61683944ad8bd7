#include "xml/xml_node.h"

#include <algorithm>
#include <new>
#include <utility>

#include "util/text.h"
#include "xml/xml_tree.h"

XmlNode::XmlNode() = default;

// Delegates, so that the destructor frees the tree when memory runs out half-way.
XmlNode::XmlNode(const XmlNode& other) : XmlNode() {
  CopyItself(other);
  SetCodePage(other.CodePage());
  tree_->codePageDeclared = other.DeclaresCodePage();
  const XmlNode* from = &other;
  XmlNode* to = this;
  for (;;) {
    if (from->firstChild_) {
      from = from->firstChild_;
    } else {
      for (; from != &other && !from->next_; from = from->parent_) to = to->parent_;
      if (from == &other) return;
      from = from->next_;
      to = to->parent_;
    }
    XmlNode& child = to->NewNode();
    child.CopyItself(*from);
    to->Append(child);
    to = &child;
  }
}

XmlNode::XmlNode(XmlNode&& other) noexcept : XmlNode() { TakeFrom(other); }

XmlNode& XmlNode::operator=(const XmlNode& other) { return *this = XmlNode(other); }

XmlNode& XmlNode::operator=(XmlNode&& other) noexcept {
  if (this == &other) return *this;
  delete tree_;
  TakeFrom(other);
  return *this;
}

XmlNode::~XmlNode() { delete tree_; }

void XmlNode::SetDeclaration() {
  XmlNode** link = &firstSpecial_;
  while (*link && (*link)->name_ != kXmlDeclaration) link = &(*link)->next_;
  if (!*link) {
    *link = &NewNode();
    (*link)->name_ = kXmlDeclaration;
  }
  (*link)->SetAttribute("version", "1.0");
  for (const XmlCodePage& page : kXmlCodePages) {
    if (page.number == CodePage()) (*link)->SetAttribute("encoding", page.name);
  }
}

void XmlNode::SetName(std::string_view name) { name_ = Tree().Keep(name); }

void XmlNode::SetValue(std::string_view value) { value_ = Tree().Keep(value); }

std::string_view XmlNode::Text() const {
  if (!value_.empty()) return value_;
  const XmlNode* cdata = FindChild(kCdataNode);
  return cdata ? cdata->value_ : value_;
}

int XmlNode::CodePage() const { return tree_ ? tree_->codePage : kCodePage1251; }

void XmlNode::SetCodePage(int codePage) { Tree().codePage = codePage; }

bool XmlNode::DeclaresCodePage() const { return tree_ && tree_->codePageDeclared; }

XmlNode* XmlNode::FindChild(std::string_view name) const {
  XmlNode* child = firstChild_;
  while (child && child->name_ != name) child = child->next_;
  return child;
}

XmlNode& XmlNode::AddChild(std::string_view name) {
  XmlNode& child = NewNode();
  child.SetName(name);
  Append(child);
  return child;
}

XmlNode& XmlNode::ChildOrNew(std::string_view name) {
  XmlNode* child = FindChild(name);
  return child ? *child : AddChild(name);
}

void XmlNode::RemoveChild(XmlNode& child) {
  XmlNode* before = nullptr;
  for (XmlNode* each = firstChild_; each != &child; each = each->next_) before = each;
  (before ? before->next_ : firstChild_) = child.next_;
  if (lastChild_ == &child) lastChild_ = before;
  child.parent_ = nullptr;
  child.next_ = nullptr;
}

std::string_view XmlNode::Attribute(std::string_view name) const {
  const XmlAttribute* found = FindAttribute(name);
  const bool isThere = found != attributes_ + attributeCount_ && found->name == name;
  return isThere ? found->value : std::string_view();
}

bool XmlNode::HasAttribute(std::string_view name) const {
  const XmlAttribute* found = FindAttribute(name);
  return found != attributes_ + attributeCount_ && found->name == name;
}

void XmlNode::SetAttribute(std::string_view name, std::string_view value) {
  XmlAttribute* found = FindAttribute(name);
  const std::string_view kept = Tree().Keep(value);
  if (found != attributes_ + attributeCount_ && found->name == name) {
    found->value = kept;
  } else {
    InsertAttribute(found, {Tree().Keep(name), kept});
  }
}

void XmlNode::SetAttribute(std::string_view name, std::int64_t value) {
  SetAttribute(name, DecimalText(value));
}

XmlTree& XmlNode::Tree() {
  if (!tree_) tree_ = new XmlTree;
  return *tree_;
}

XmlNode& XmlNode::NewNode() {
  XmlTree& tree = Tree();
  return *new (tree.Allocate(sizeof(XmlNode))) XmlNode(&tree, this);
}

void XmlNode::Append(XmlNode& child) {
  (lastChild_ ? lastChild_->next_ : firstChild_) = &child;
  lastChild_ = &child;
}

void XmlNode::CopyItself(const XmlNode& other) {
  XmlTree& tree = Tree();
  name_ = tree.Keep(other.name_);
  value_ = tree.Keep(other.value_);
  if (other.attributeCount_ > 0) {
    attributes_ =
        static_cast<XmlAttribute*>(tree.Allocate(other.attributeCount_ * sizeof(XmlAttribute)));
    for (; attributeCount_ < other.attributeCount_; ++attributeCount_) {
      const XmlAttribute& from = other.attributes_[attributeCount_];
      new (attributes_ + attributeCount_) XmlAttribute{tree.Keep(from.name), tree.Keep(from.value)};
    }
    attributeCapacity_ = attributeCount_;
  }
  // Specials have no specials of their own, so this goes one level down and no further.
  XmlNode** link = &firstSpecial_;
  for (const XmlNode* from = other.firstSpecial_; from; from = from->next_) {
    *link = &NewNode();
    (*link)->CopyItself(*from);
    link = &(*link)->next_;
  }
}

void XmlNode::TakeFrom(XmlNode& other) noexcept {
  tree_ = std::exchange(other.tree_, nullptr);
  firstChild_ = std::exchange(other.firstChild_, nullptr);
  lastChild_ = std::exchange(other.lastChild_, nullptr);
  firstSpecial_ = std::exchange(other.firstSpecial_, nullptr);
  name_ = std::exchange(other.name_, kUnnamedNode);
  value_ = std::exchange(other.value_, {});
  attributes_ = std::exchange(other.attributes_, nullptr);
  attributeCount_ = std::exchange(other.attributeCount_, 0);
  attributeCapacity_ = std::exchange(other.attributeCapacity_, 0);
  for (XmlNode* first : {firstChild_, firstSpecial_}) {
    for (XmlNode* node = first; node; node = node->next_) node->parent_ = this;
  }
}

XmlAttribute* XmlNode::FindAttribute(std::string_view name) const {
  return std::lower_bound(attributes_, attributes_ + attributeCount_, name,
                          [](const XmlAttribute& attribute, std::string_view wanted) {
                            return attribute.name < wanted;
                          });
}

void XmlNode::InsertAttribute(XmlAttribute* where, const XmlAttribute& attribute) {
  const std::ptrdiff_t index = where - attributes_;
  if (attributeCount_ == attributeCapacity_) {
    const std::uint32_t capacity = std::max<std::uint32_t>(4, attributeCapacity_ * 2);
    auto* grown = static_cast<XmlAttribute*>(Tree().Allocate(capacity * sizeof(XmlAttribute)));
    std::uninitialized_copy_n(attributes_, attributeCount_, grown);
    attributes_ = grown;
    attributeCapacity_ = capacity;
  }
  XmlAttribute* end = attributes_ + attributeCount_;
  new (end) XmlAttribute(attribute);
  std::rotate(attributes_ + index, end, end + 1);
  ++attributeCount_;
}

std::string_view TextOf(const XmlNode* node) { return node ? node->Text() : std::string_view(); }
