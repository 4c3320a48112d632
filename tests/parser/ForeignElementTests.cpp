// The builders on an element class of a host's own: it answers only the string reads, so every
// view read and child walk takes the interface's default, and the model must come out the same as
// from the parsed elements.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ParserTestSupport.h"
#include "VEKComPtr.h"
#include "VEKTPSLightParserUtil.h"

namespace {

// Mirrors a parsed element and everything under it, forwarding the string reads.
class MirrorElement final : public VEKLightXmlElementItf {
 public:
  MirrorElement(const VEKLightXmlElementItf& inner, const MirrorElement* parent)
      : inner_(inner), parent_(parent) {
    void* position = inner.GetChildren();
    while (const VEKLightXmlElementItf* child = position ? inner.GetChild(position) : nullptr)
      children_.push_back(std::make_unique<MirrorElement>(*child, this));
  }

  bool IsNull() const override { return false; }
  int SetElement(VEKLightXmlElementItf*) override { return 0; }
  int GetChildCount() const override { return static_cast<int>(children_.size()); }
  // Positions are child indices from 1.
  void* GetChildren() const override { return children_.empty() ? nullptr : Position(0); }
  VEKLightXmlElementItf* GetChild(void*& position) const override {
    const auto index = reinterpret_cast<std::uintptr_t>(position);
    if (index == 0 || index > children_.size()) return nullptr;
    position = index < children_.size() ? Position(index) : nullptr;
    return children_[index - 1].get();
  }
  VEKLightXmlElementItf* GetParent() const override { return const_cast<MirrorElement*>(parent_); }
  const VEKUnicodeString& GetName() const override { return inner_.GetName(); }
  int GetAttributeCount() const override { return inner_.GetAttributeCount(); }
  const VEKUnicodeString& GetAttributeValue(const VEKUnicodeString& name,
                                            const VEKUnicodeString& absent) const override {
    return inner_.GetAttributeValue(name, absent);
  }
  const VEKUnicodeString& GetAttributeValue(const VEKUnicodeString& name) const override {
    return inner_.GetAttributeValue(name);
  }
  const VEKUnicodeString& GetAttributeName(int index) const override {
    return inner_.GetAttributeName(index);
  }
  const VEKUnicodeString& GetAttributeValueAt(int index) const override {
    return inner_.GetAttributeValueAt(index);
  }
  bool HasAttribute(const VEKUnicodeString& name) const override {
    return inner_.HasAttribute(name);
  }
  const VEKUnicodeString& GetValue() const override { return inner_.GetValue(); }
  std::ptrdiff_t GetSourceOffset() const override { return -1; }
  const void* GetNodeIdentity() const override { return this; }

 private:
  static void* Position(std::size_t index) {
    return reinterpret_cast<void*>(static_cast<std::uintptr_t>(index + 1));
  }

  const VEKLightXmlElementItf& inner_;
  const MirrorElement* parent_;
  std::vector<std::unique_ptr<MirrorElement>> children_;
};

// The model the builders make from `root`, as ModelText writes it.
std::string BuildWith(VEKLightXmlElementItf& root, bool legacy) {
  using Util = VEKTPSLightParserUtil;
  Util parser;
  const VEKComPtr<VEKTPSLightContainer> container = vek_test::MakeContainer();
  const VEKComPtr<VEKITPSLightSet> set = vek_test::MakeSet(container.Get());
  if (legacy) {
    for (auto build : {&Util::GenerateTTRS, &Util::GenerateAnnotations, &Util::GenerateViews,
                       &Util::GenerateRefFrame, &Util::GenerateCG, &Util::GenerateCapture}) {
      (void)(parser.*build)(container.Get(), set.Get(), root);
    }
  }
  // Each current family builder builds only the children of its own tag, so every family element
  // can go to all of them: the walk of the root that picks one is the load's.
  void* position = legacy ? nullptr : root.GetChildren();
  while (VEKLightXmlElementItf* family = position ? root.GetChild(position) : nullptr) {
    if (family->GetName() == "AnnotationSet") {
      (void)parser.SetTPSSetValues(set.Get(), *family);
      continue;
    }
    for (auto build :
         {&Util::GenerateNewTTRS, &Util::GenerateNewAnnotations, &Util::GenerateNewViews,
          &Util::GenerateNewRefFrame, &Util::GenerateNewCG, &Util::GenerateNewCapture}) {
      (void)(parser.*build)(container.Get(), set.Get(), *family);
    }
  }
  return vek_test::ModelText(set.Get());
}

TEST(ForeignElement, BuildsTheModelOfTheParsedElements) {
  for (const auto& [name, legacy] :
       {std::pair{"gear_shaft_legacy.xml", true}, std::pair{"pump_housing.xml", false}}) {
    VEKLightXmlElement parsed =
        vek_test::ParseXml(vek_test::ReadFileBytes(std::string(VEK_EXAMPLES_DIR) + "/" + name));
    ASSERT_FALSE(parsed.IsNull()) << name;
    const MirrorElement mirror(parsed, nullptr);
    const std::string expected = BuildWith(parsed, legacy);
    // Every family of the document is built.
    for (const char* family : {"\nT1 ", "\nA1 ", "\nV1 ", "\nC1 "}) {
      EXPECT_NE(expected.find(family), std::string::npos) << name << ": " << family;
    }
    EXPECT_EQ(BuildWith(const_cast<MirrorElement&>(mirror), legacy), expected) << name;
  }
}

}  // namespace
