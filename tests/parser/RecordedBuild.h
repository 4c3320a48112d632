// The builders of both schemas on the recording model, one table row at a time: the objects a
// fragment builds, as the model's values, after an optional first fragment and an optional control
// that refuses creations or interfaces. Every reference a builder obtains must be released.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <set>
#include <sstream>
#include <string>

#include "ParserTestSupport.h"
#include "RecordingModel.h"
#include "VEKTPSLightParserUtil.h"

namespace vek_test {

struct BuildRow {
  const char* what;
  std::string before;  // built first, unrecorded
  void (*control)(RecordingContainer&);
  std::string xml;
  HRESULT result;
  // The lines of ModelText that the build adds or changes.
  std::string changes;
};

using Builder = HRESULT (VEKTPSLightParserUtil::*)(VEKTPSLightContainer*, VEKITPSLightSet*,
                                                   VEKLightXmlElementItf&);
enum BuilderSchema { kCurrent, kLegacy, kLegacyRoot };
struct NamedBuilder {
  const char* name;
  Builder build;
  BuilderSchema schema;
};
// Every builder of both schemas but the annotation ones, by the element that calls for it.
inline const NamedBuilder kBuilders[] = {
    {"RootTTRSs", &VEKTPSLightParserUtil::GenerateNewTTRS, kCurrent},
    {"RootTPSs", &VEKTPSLightParserUtil::GenerateNewAnnotations, kCurrent},
    {"RootViews", &VEKTPSLightParserUtil::GenerateNewViews, kCurrent},
    {"RootRefs", &VEKTPSLightParserUtil::GenerateNewRefFrame, kCurrent},
    {"RootCGs", &VEKTPSLightParserUtil::GenerateNewCG, kCurrent},
    {"RootCaps", &VEKTPSLightParserUtil::GenerateNewCapture, kCurrent},
    {"TTRS", &VEKTPSLightParserUtil::BuildNewTTRS, kCurrent},
    {"TPSView", &VEKTPSLightParserUtil::BuildNewView, kCurrent},
    {"RefFrame", &VEKTPSLightParserUtil::BuildNewRefFrame, kCurrent},
    {"TPSCG", &VEKTPSLightParserUtil::BuildNewCG, kCurrent},
    {"TPSCap", &VEKTPSLightParserUtil::BuildNewCapture, kCurrent},
    {"TTRSRoot", &VEKTPSLightParserUtil::GenerateTTRS, kLegacyRoot},
    {"Annotations", &VEKTPSLightParserUtil::GenerateAnnotations, kLegacyRoot},
    {"ViewRoot", &VEKTPSLightParserUtil::GenerateViews, kLegacyRoot},
    {"ReferenceFrame", &VEKTPSLightParserUtil::GenerateRefFrame, kLegacyRoot},
    {"CGRoot", &VEKTPSLightParserUtil::GenerateCG, kLegacyRoot},
    {"CaptureRoot", &VEKTPSLightParserUtil::GenerateCapture, kLegacyRoot},
    {"TTRS", &VEKTPSLightParserUtil::BuildTTRS, kLegacy},
    {"View", &VEKTPSLightParserUtil::BuildView, kLegacy},
    {"RefFrame", &VEKTPSLightParserUtil::BuildRefFrame, kLegacy},
    {"CG", &VEKTPSLightParserUtil::BuildCG, kLegacy},
    {"Capture", &VEKTPSLightParserUtil::BuildCapture, kLegacy},
};

// Controls for BuildRow: every object family refuses its common face, or its creation; every set
// refuses the broker.
inline constexpr RecordingKind kObjectKinds[] = {RecordingKind::TTRS, RecordingKind::Annotation,
                                                 RecordingKind::View, RecordingKind::RefFrame,
                                                 RecordingKind::CG,   RecordingKind::Capture};
inline void NoLight(RecordingContainer& c) {
  for (RecordingKind kind : kObjectKinds) c.RefuseInterface(kind, VEKITPSLight::kIID);
}
inline void RefuseAll(RecordingContainer& c) {
  for (RecordingKind kind : kObjectKinds) c.RefuseCreation(kind);
}
inline void NoBroker(RecordingContainer& c) { c.RemoveBroker(); }

class RecordedBuild : public ::testing::Test {
 protected:
  void SetUp() override { Renew(); }
  void TearDown() override { CheckReleased(); }

  // A new container and set, once the last ones gave back every reference.
  void Renew() {
    if (container_) CheckReleased();
    container_ = std::make_unique<RecordingContainer>();
    ASSERT_EQ(container_->CreateLightSet(set_.ReleaseAndGetAddressOf(), nullptr), S_OK);
    ledger().Clear();
  }
  void CheckReleased() {
    set_.Reset();
    EXPECT_EQ(container_->OutstandingReferences(), 0) << ledger().Text();
    EXPECT_EQ(container_->OverReleases(), 0) << ledger().Text();
  }
  Ledger& ledger() { return container_->GetLedger(); }
  // `xml` parsed into an element that lives as long as the test.
  VEKLightXmlElement& Xml(const std::string& xml) { return parsed_.emplace_back(ParseXml(xml)); }

  // Runs, for each child of <D>`xml`</D>, the builder its name calls for in the schema under test:
  // a family root or one object. The last result.
  HRESULT Build(const std::string& xml) {
    VEKLightXmlElement root = ParseXml("<D>" + xml + "</D>");
    EXPECT_FALSE(root.IsNull()) << xml;
    HRESULT result = S_OK;
    for (void* position = root.GetChildren(); position;) {
      VEKLightXmlElementItf* child = root.GetChild(position);
      if (child->GetName() == "TPS") {
        VEKRawCollPV groups(0);
        result = legacy_ ? util_.BuildAnnotation(container_.get(), set_.Get(), *child, &groups)
                         : util_.BuildNewAnnotation(container_.get(), set_.Get(), *child, &groups);
        for (int k = 1; k <= groups.Size(); ++k) {
          delete static_cast<VEKListValVEKUnicodeString*>(groups[k]);
        }
      }
      for (const NamedBuilder& builder : kBuilders) {
        if (child->GetName() != builder.name || (builder.schema != kCurrent) != legacy_) continue;
        // Legacy family builders look for their root among the children of the element given.
        VEKLightXmlElementItf& element = builder.schema == kLegacyRoot ? root : *child;
        result = (util_.*builder.build)(container_.get(), set_.Get(), element);
      }
    }
    return result;
  }

  // The lines of `after` that `before` does not hold, one per line.
  static std::string Changes(const std::string& before, const std::string& after) {
    std::set<std::string> kept;
    std::istringstream lines(before);
    for (std::string line; std::getline(lines, line);) kept.insert(line);
    std::string changes;
    lines = std::istringstream(after);
    for (std::string line; std::getline(lines, line);) {
      if (!kept.count(line)) changes += (changes.empty() ? "" : "\n") + line;
    }
    return changes;
  }

  void Check(const BuildRow& row) {
    SCOPED_TRACE(row.what);
    Renew();
    if (!row.before.empty()) (void)Build(row.before);
    const std::string before = ModelText(set_.Get());
    if (row.control) row.control(*container_);
    EXPECT_EQ(Build(row.xml), row.result);
    EXPECT_EQ(Changes(before, ModelText(set_.Get())), row.changes);
  }

  bool legacy_ = false;
  std::unique_ptr<RecordingContainer> container_;
  VEKComPtr<VEKITPSLightSet> set_;
  VEKTPSLightParserUtil util_;
  std::deque<VEKLightXmlElement> parsed_;
};

}  // namespace vek_test
