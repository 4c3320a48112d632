// The element handle: a shared reference to a parsed document and one of its nodes.
#include "VEKLightXml.h"
#include "VEKLightXmlDocument.h"

using vek_lightxml_detail::EmptyString;
using vek_lightxml_detail::Node;

VEKLightXmlElementItf::~VEKLightXmlElementItf() = default;

std::string_view VEKLightXmlElementItf::GetNameView() const { return GetName().View(); }

std::string_view VEKLightXmlElementItf::GetAttributeView(std::string_view name) const {
  const VEKUnicodeString key(name.data(), name.size());
  return GetAttributeValue(key).View();
}

std::string_view VEKLightXmlElementItf::GetValueView() const { return GetValue().View(); }

VEKLightXmlValueVisitor::~VEKLightXmlValueVisitor() = default;

void VEKLightXmlElementItf::ForEachChildValue(std::string_view attribute,
                                              std::string_view descendInto,
                                              VEKLightXmlValueVisitor& visitor) const {
  void* position = GetChildren();
  while (position) {
    const VEKLightXmlElementItf* child = GetChild(position);
    if (!child) break;
    const std::string_view name = child->GetNameView();
    visitor.Visit(name, child->GetAttributeView(attribute), false);
    if (name != descendInto) continue;
    void* nestedPosition = child->GetChildren();
    while (nestedPosition) {
      const VEKLightXmlElementItf* nested = child->GetChild(nestedPosition);
      if (!nested) break;
      visitor.Visit(nested->GetNameView(), nested->GetAttributeView(attribute), true);
    }
  }
}

VEKLightXmlElement::VEKLightXmlElement() noexcept = default;

VEKLightXmlElement::VEKLightXmlElement(const VEKLightXmlElement& other) noexcept
    : document_(other.document_), node_(other.node_) {}

VEKLightXmlElement& VEKLightXmlElement::operator=(const VEKLightXmlElement& other) noexcept {
  document_ = other.document_;
  node_ = other.node_;
  return *this;
}

VEKLightXmlElement::~VEKLightXmlElement() = default;

bool VEKLightXmlElement::IsNull() const { return node_ == nullptr; }

int VEKLightXmlElement::SetElement(VEKLightXmlElementItf* other) {
  if (!other) {
    document_.reset();
    node_ = nullptr;
    return 1;
  }
  // Nodes handed out by GetChild are the usual argument, so they are tried first.
  if (auto* node = dynamic_cast<Node*>(other)) {
    // A node is only reachable while a handle keeps its document alive, so the lock succeeds.
    document_ = node->GetDocument().weak_from_this().lock();
    node_ = document_ ? node : nullptr;
    return node_ ? 1 : 0;
  }
  auto* handle = dynamic_cast<VEKLightXmlElement*>(other);
  if (!handle) return 0;
  *this = *handle;
  return 1;
}

int VEKLightXmlElement::GetChildCount() const { return node_ ? node_->GetChildCount() : 0; }

void* VEKLightXmlElement::GetChildren() const { return node_ ? node_->GetChildren() : nullptr; }

VEKLightXmlElementItf* VEKLightXmlElement::GetChild(void*& position) const {
  if (!node_) {
    position = nullptr;
    return nullptr;
  }
  return node_->GetChild(position);
}

VEKLightXmlElementItf* VEKLightXmlElement::GetParent() const {
  return node_ ? node_->GetParent() : nullptr;
}

const VEKUnicodeString& VEKLightXmlElement::GetName() const {
  return node_ ? node_->GetName() : EmptyString();
}

int VEKLightXmlElement::GetAttributeCount() const { return node_ ? node_->GetAttributeCount() : 0; }

const VEKUnicodeString& VEKLightXmlElement::GetAttributeValue(
    const VEKUnicodeString& name, const VEKUnicodeString& defaultValue) const {
  return node_ ? node_->GetAttributeValue(name, defaultValue) : defaultValue;
}

const VEKUnicodeString& VEKLightXmlElement::GetAttributeValue(const VEKUnicodeString& name) const {
  return node_ ? node_->GetAttributeValue(name) : EmptyString();
}

const VEKUnicodeString& VEKLightXmlElement::GetAttributeName(int index) const {
  return node_ ? node_->GetAttributeName(index) : EmptyString();
}

const VEKUnicodeString& VEKLightXmlElement::GetAttributeValueAt(int index) const {
  return node_ ? node_->GetAttributeValueAt(index) : EmptyString();
}

bool VEKLightXmlElement::HasAttribute(const VEKUnicodeString& name) const {
  return node_ && node_->HasAttribute(name);
}

const VEKUnicodeString& VEKLightXmlElement::GetValue() const {
  return node_ ? node_->GetValue() : EmptyString();
}

std::ptrdiff_t VEKLightXmlElement::GetSourceOffset() const {
  return node_ ? node_->GetSourceOffset() : -1;
}

const void* VEKLightXmlElement::GetNodeIdentity() const { return node_; }

std::string_view VEKLightXmlElement::GetNameView() const {
  return node_ ? node_->GetNameView() : std::string_view();
}

std::string_view VEKLightXmlElement::GetAttributeView(std::string_view name) const {
  return node_ ? node_->GetAttributeView(name) : std::string_view();
}

std::string_view VEKLightXmlElement::GetValueView() const {
  return node_ ? node_->GetValueView() : std::string_view();
}

void VEKLightXmlElement::ForEachChildValue(std::string_view attribute, std::string_view descendInto,
                                           VEKLightXmlValueVisitor& visitor) const {
  if (node_) node_->ForEachChildValue(attribute, descendInto, visitor);
}
