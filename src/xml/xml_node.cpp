#include "xml/xml_node.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "util/text.h"
#include "xml/xml_tree.h"

namespace {

// The first attribute whose name is not less than `name`, or the end.
XmlAttribute* LowerBound(XmlAttributes& attributes, std::string_view name) {
  return std::lower_bound(attributes.begin(), attributes.end(), name,
                          [](const XmlAttribute& attribute, std::string_view wanted) {
                            return attribute.Name() < wanted;
                          });
}

}  // namespace

void XmlTree::AddBlock(std::size_t leastBytes) {
  const std::size_t leftBytes = mostBytes_ - std::min(mostBytes_, heldBytes_);
  if (leastBytes > leftBytes) throw std::bad_alloc();
  // The next block may be cut to the rest of the bound, so that an honest text can use all of it.
  const std::size_t size = std::max(leastBytes, std::min(nextBlockBytes_, leftBytes));
  heldBytes_ += size;
  blocks_.push_back(std::make_unique_for_overwrite<std::byte[]>(size));
  free_ = blocks_.back().get();
  freeBytes_ = size;
  nextBlockBytes_ = std::min(nextBlockBytes_ * 2, kLastBlockBytes);
}

XmlNode::XmlNode() = default;

// Delegates, so that the destructor frees the tree when memory runs out half-way.
XmlNode::XmlNode(const XmlNode& other) : XmlNode() {
  CopyItself(other);
  SetCodePage(other.CodePage());
  tree_->codePageDeclared = other.DeclaresCodePage();
  struct Level {
    const XmlNode* from;  // the next child to be copied
    XmlNode* to;          // its parent's copy
  };
  // A list instead of recursion: no tree is too deep to be copied.
  std::vector<Level> levels = {{other.FirstChild(), this}};
  while (!levels.empty()) {
    const auto [from, to] = levels.back();
    levels.pop_back();
    if (!from) continue;
    levels.push_back({from->Next(), to});
    XmlNode& child = NewNode();
    child.CopyItself(*from);
    to->Append(child);
    levels.push_back({from->FirstChild(), &child});
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
  XmlNode* declaration = FirstSpecial();
  while (declaration && declaration->Name() != kXmlDeclaration) declaration = declaration->Next();
  if (!declaration) {
    declaration = &NewSpecial();
    declaration->HoldName(kXmlDeclaration);
    AppendSpecial(LastSpecial(), *declaration);
  }
  declaration->SetAttribute("version", "1.0");
  for (const XmlCodePage& page : kXmlCodePages) {
    if (page.number == CodePage()) declaration->SetAttribute("encoding", page.name);
  }
}

void XmlNode::SetName(std::string_view name) { HoldName(Tree().Keep(name)); }

void XmlNode::SetValue(std::string_view value) { HoldValue(Tree().Keep(value)); }

std::string_view XmlNode::Text() const {
  if (valueSize_ > 0) return Value();
  const XmlNode* cdata = FindChild(kCdataNode);
  return cdata ? cdata->Value() : Value();
}

int XmlNode::CodePage() const { return tree_ ? tree_->codePage : kCodePage1251; }

void XmlNode::SetCodePage(int codePage) { Tree().codePage = codePage; }

bool XmlNode::DeclaresCodePage() const { return tree_ && tree_->codePageDeclared; }

XmlNode* XmlNode::FindChild(std::string_view name) const {
  XmlNode* child = FirstChild();
  while (child && child->Name() != name) child = child->Next();
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
  XmlNode& last = child.LastSpecial();
  // The ring has no way back, so the search for the node before starts at the last child.
  XmlNode* before = lastChild_;
  while (before->next_ != &child) before = before->next_;
  if (before == &last) {
    lastChild_ = nullptr;
  } else {
    before->next_ = last.next_;
    if (lastChild_ == &last) lastChild_ = before;
    lastChild_->isLast_ = true;
  }
  last.next_ = nullptr;
  last.isLast_ = true;
}

std::string_view XmlNode::Attribute(std::string_view name) const {
  const XmlAttribute* found = FindAttribute(name);
  return found ? found->Value() : std::string_view();
}

void XmlNode::SetAttribute(std::string_view name, std::string_view value) {
  const XmlAttribute attribute(Tree().Keep(name), Tree().Keep(value));
  if (!attributes_) attributes_ = tree_->AllocateAttributes(1);
  XmlAttribute* place = LowerBound(*attributes_, name);
  if (place != attributes_->end() && place->Name() == name) {
    *place = attribute;
  } else {
    InsertAttribute(static_cast<std::size_t>(place - attributes_->begin()), attribute);
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
  return *new (tree.Allocate(sizeof(XmlNode))) XmlNode(&tree);
}

XmlNode& XmlNode::NewSpecial() {
  XmlNode& special = NewNode();
  special.isSpecial_ = true;
  return special;
}

void XmlNode::AppendSpecial(XmlNode& last, XmlNode& special) {
  last.next_ = &special;
  last.isLast_ = false;
}

void XmlNode::CopyItself(const XmlNode& other) {
  CopyTexts(other);
  XmlNode* last = this;
  for (const XmlNode* from = other.FirstSpecial(); from; from = from->Next()) {
    XmlNode& special = NewSpecial();
    special.CopyTexts(*from);
    AppendSpecial(*last, special);
    last = &special;
  }
}

void XmlNode::CopyTexts(const XmlNode& other) {
  XmlTree& tree = Tree();
  HoldName(tree.Keep(other.Name()));
  HoldValue(tree.Keep(other.Value()));
  if (!other.attributes_) return;
  attributes_ = tree.AllocateAttributes(other.attributes_->count);
  for (const XmlAttribute& from : *other.attributes_) {
    new (attributes_->end()) XmlAttribute(tree.Keep(from.Name()), tree.Keep(from.Value()));
    ++attributes_->count;
  }
}

void XmlNode::TakeFrom(XmlNode& other) noexcept {
  tree_ = std::exchange(other.tree_, nullptr);
  next_ = std::exchange(other.next_, nullptr);
  lastChild_ = std::exchange(other.lastChild_, nullptr);
  attributes_ = std::exchange(other.attributes_, nullptr);
  // A root's texts lie in the tree that moves, so views of them stay valid.
  HoldName(other.Name());
  other.HoldName(kUnnamedNode);
  HoldValue(other.Value());
  other.HoldValue({});
  isLast_ = other.isLast_;
  other.isLast_ = true;
}

const XmlAttribute* XmlNode::FindAttribute(std::string_view name) const {
  if (!attributes_) return nullptr;
  const XmlAttribute* found = LowerBound(*attributes_, name);
  return found != attributes_->end() && found->Name() == name ? found : nullptr;
}

void XmlNode::InsertAttribute(std::size_t index, const XmlAttribute& attribute) {
  if (attributes_->count == attributes_->capacity) {
    // The old place stays in the tree's memory, which gives nothing back.
    XmlAttributes* grown = Tree().AllocateAttributes(attributes_->count * std::size_t{2});
    std::uninitialized_copy(attributes_->begin(), attributes_->end(), grown->begin());
    grown->count = attributes_->count;
    attributes_ = grown;
  }
  XmlAttribute* end = attributes_->end();
  std::copy_backward(attributes_->begin() + index, end, end + 1);
  attributes_->begin()[index] = attribute;
  ++attributes_->count;
}

std::string_view TextOf(const XmlNode* node) { return node ? node->Text() : std::string_view(); }
