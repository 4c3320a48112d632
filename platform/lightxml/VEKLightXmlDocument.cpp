// The element records of a parsed document: lazy children, names, text and attribute values.
#include "VEKLightXmlDocument.h"

#include <cstring>
#include <string>

namespace vek_lightxml_detail {

const VEKUnicodeString& EmptyString() noexcept {
  static const VEKUnicodeString empty;
  return empty;
}

namespace {

bool IsText(pugi::xml_node node) {
  return node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata;
}

// Whether the zero-terminated parsed name equals `name` byte for byte.
bool SameName(const char* parsed, const VEKUnicodeString& name) {
  const char* bytes = name.ConvertToChar();
  const std::size_t length = name.GetLengthInByte();
  for (std::size_t i = 0; i < length; ++i) {
    if (parsed[i] == '\0' || parsed[i] != bytes[i]) return false;
  }
  return parsed[length] == '\0';
}

}  // namespace

Node::Node(Document& document, pugi::xml_node element, const Node* parent) noexcept
    : document_(&document), element_(element), parent_(parent), attributeCount_(0), hasValue_(0) {}

bool Node::IsNull() const { return false; }

// A node always designates its own element.
int Node::SetElement(VEKLightXmlElementItf*) { return 0; }

int Node::GetChildCount() const { return BuildChildren() ? childCount_ : 0; }

void* Node::GetChildren() const { return BuildChildren() ? firstChild_ : nullptr; }

VEKLightXmlElementItf* Node::GetChild(void*& position) const {
  Node* child = static_cast<Node*>(position);
  if (!child) return nullptr;
  position = child->NextSibling();
  return child;
}

VEKLightXmlElementItf* Node::GetParent() const { return const_cast<Node*>(parent_); }

const VEKUnicodeString& Node::GetName() const {
  if (!name_) name_ = document_->Intern(element_.name());
  return name_ ? *name_ : EmptyString();
}

int Node::GetAttributeCount() const {
  if (strings_) return static_cast<int>(attributeCount_);
  int count = 0;
  for (pugi::xml_attribute attribute = element_.first_attribute(); attribute;
       attribute = attribute.next_attribute()) {
    ++count;
  }
  return count;
}

const VEKUnicodeString& Node::GetAttributeValue(const VEKUnicodeString& name,
                                                const VEKUnicodeString& defaultValue) const {
  const int index = FindAttribute(name);
  return index > 0 && BuildStrings() ? strings_[index - 1] : defaultValue;
}

const VEKUnicodeString& Node::GetAttributeValue(const VEKUnicodeString& name) const {
  return GetAttributeValue(name, EmptyString());
}

const VEKUnicodeString& Node::GetAttributeName(int index) const {
  pugi::xml_attribute attribute = element_.first_attribute();
  for (int i = 1; attribute && i < index; ++i) attribute = attribute.next_attribute();
  const VEKUnicodeString* name =
      index >= 1 && attribute ? document_->Intern(attribute.name()) : nullptr;
  return name ? *name : EmptyString();
}

const VEKUnicodeString& Node::GetAttributeValueAt(int index) const {
  if (!BuildStrings() || index < 1 || static_cast<std::uint32_t>(index) > attributeCount_) {
    return EmptyString();
  }
  return strings_[index - 1];
}

bool Node::HasAttribute(const VEKUnicodeString& name) const { return FindAttribute(name) > 0; }

const VEKUnicodeString& Node::GetValue() const {
  return BuildStrings() && hasValue_ ? strings_[attributeCount_] : EmptyString();
}

std::ptrdiff_t Node::GetSourceOffset() const {
  // The parser records where the name starts; the element starts one byte earlier, at its '<'.
  const std::ptrdiff_t name = element_.offset_debug();
  return name > 0 ? name - 1 : -1;
}

const void* Node::GetNodeIdentity() const { return this; }

namespace {

// The value of attribute `name` of a parsed element; empty when absent.
std::string_view AttributeOf(pugi::xml_node element, std::string_view name) {
  for (pugi::xml_attribute attribute = element.first_attribute(); attribute;
       attribute = attribute.next_attribute()) {
    const char* parsed = attribute.name();
    if (std::strncmp(parsed, name.data(), name.size()) == 0 && parsed[name.size()] == '\0') {
      return attribute.value();
    }
  }
  return {};
}

}  // namespace

// The parsed text is checked UTF-8 and zero-terminated in place, so views need no string.
std::string_view Node::GetNameView() const { return element_.name(); }

std::string_view Node::GetAttributeView(std::string_view name) const {
  return AttributeOf(element_, name);
}

void Node::ForEachChildValue(std::string_view attribute, std::string_view descendInto,
                             VEKLightXmlValueVisitor& visitor) const {
  for (pugi::xml_node child = element_.first_child(); child; child = child.next_sibling()) {
    if (child.type() != pugi::node_element) continue;
    const std::string_view name = child.name();
    visitor.Visit(name, AttributeOf(child, attribute), false);
    if (name != descendInto) continue;
    for (pugi::xml_node nested = child.first_child(); nested; nested = nested.next_sibling()) {
      if (nested.type() == pugi::node_element) {
        visitor.Visit(nested.name(), AttributeOf(nested, attribute), true);
      }
    }
  }
}

std::string_view Node::GetValueView() const {
  pugi::xml_node text;
  for (pugi::xml_node child = element_.first_child(); child; child = child.next_sibling()) {
    if (!IsText(child)) continue;
    // Text in several pieces is joined once, in the element's strings.
    if (text) return GetValue().View();
    text = child;
  }
  return text ? text.value() : "";
}

bool Node::BuildChildren() const noexcept {
  if (childCount_ >= 0) return true;
  std::vector<pugi::xml_node>& children = document_->ChildScratch();
  children.clear();
  try {
    for (pugi::xml_node child = element_.first_child(); child; child = child.next_sibling()) {
      if (child.type() == pugi::node_element) children.push_back(child);
    }
  } catch (const std::bad_alloc&) {
    return false;
  }
  if (!children.empty()) {
    Node* nodes = document_->AllocateNodes(children.size());
    if (!nodes) return false;
    for (std::size_t i = 0; i < children.size(); ++i) {
      new (nodes + i) Node(*document_, children[i], this);
    }
    firstChild_ = nodes;
  }
  childCount_ = static_cast<std::int32_t>(children.size());
  return true;
}

bool Node::BuildStrings() const noexcept {
  if (strings_) return true;
  // The text is the element's own text and CDATA children, usually at most one.
  const char* text = "";
  std::string joined;
  std::size_t pieces = 0;
  try {
    for (pugi::xml_node child = element_.first_child(); child; child = child.next_sibling()) {
      if (!IsText(child)) continue;
      if (++pieces == 2) joined = text;
      if (pieces >= 2) joined += child.value();
      text = child.value();
    }
  } catch (const std::bad_alloc&) {
    return false;
  }
  if (pieces >= 2) text = joined.c_str();
  const bool hasValue = *text != '\0';
  const int count = GetAttributeCount();
  const std::size_t total = static_cast<std::size_t>(count) + (hasValue ? 1 : 0);
  if (total == 0) {
    strings_ = &EmptyString();
    return true;
  }
  VEKUnicodeString* strings = document_->AllocateStrings(total);
  if (!strings) return false;
  VEKUnicodeString* next = strings;
  for (pugi::xml_attribute attribute = element_.first_attribute(); attribute;
       attribute = attribute.next_attribute()) {
    const char* value = attribute.value();
    Document::NewParsedString(next++, value, std::strlen(value));
  }
  // Text joined from several pieces lives only here, so it is copied; one piece is parsed text.
  if (hasValue && pieces >= 2) new (next) VEKUnicodeString(joined.c_str(), joined.size());
  if (hasValue && pieces < 2) Document::NewParsedString(next, text, std::strlen(text));
  strings_ = strings;
  attributeCount_ = static_cast<std::uint32_t>(count);
  hasValue_ = hasValue ? 1 : 0;
  return true;
}

int Node::FindAttribute(const VEKUnicodeString& name) const noexcept {
  int index = 1;
  for (pugi::xml_attribute attribute = element_.first_attribute(); attribute;
       attribute = attribute.next_attribute(), ++index) {
    if (SameName(attribute.name(), name)) return index;
  }
  return 0;
}

Node* Node::NextSibling() const noexcept {
  if (!parent_) return nullptr;
  const Node* last = parent_->firstChild_ + (parent_->childCount_ - 1);
  return this == last ? nullptr : const_cast<Node*>(this) + 1;
}

Node* Document::NewRoot(pugi::xml_node element) noexcept {
  Node* root = nodes_.Allocate(1);
  return root ? new (root) Node(*this, element, nullptr) : nullptr;
}

const VEKUnicodeString* Document::Intern(const char* utf8) noexcept {
  // FNV-1a, computed together with the length.
  std::uint64_t hash = 14695981039346656037ull;
  std::size_t length = 0;
  for (; utf8[length] != '\0'; ++length) {
    hash = (hash ^ static_cast<unsigned char>(utf8[length])) * 1099511628211ull;
  }
  if ((nameCount_ + 1) * 2 > names_.size() && !GrowNames()) return nullptr;
  const std::size_t mask = names_.size() - 1;
  for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
    NameSlot& entry = names_[slot];
    if (!entry.name) {
      VEKUnicodeString* name = strings_.Allocate(1);
      if (!name) return nullptr;
      NewParsedString(name, utf8, length);
      entry = NameSlot{utf8, length, hash, name};
      ++nameCount_;
      return name;
    }
    if (entry.hash == hash && entry.length == length &&
        std::memcmp(entry.bytes, utf8, length) == 0) {
      return entry.name;
    }
  }
}

bool Document::GrowNames() {
  try {
    std::vector<NameSlot> grown(names_.empty() ? 64 : names_.size() * 2);
    const std::size_t mask = grown.size() - 1;
    for (const NameSlot& entry : names_) {
      if (!entry.name) continue;
      std::size_t slot = entry.hash & mask;
      while (grown[slot].name) slot = (slot + 1) & mask;
      grown[slot] = entry;
    }
    names_.swap(grown);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace vek_lightxml_detail
