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

  // Runs, for each child of <D>`xml`</D>, the builder its name calls for: a family root of either
  // schema, or one object. The last result.
  HRESULT Build(const std::string& xml) {
    using Util = VEKTPSLightParserUtil;
    using Builder =
        HRESULT (Util::*)(VEKTPSLightContainer*, VEKITPSLightSet*, VEKLightXmlElementItf&);
    static const std::pair<const char*, Builder> kBuilders[] = {
        {"RootTTRSs", &Util::GenerateNewTTRS},
        {"RootTPSs", &Util::GenerateNewAnnotations},
        {"RootViews", &Util::GenerateNewViews},
        {"RootRefs", &Util::GenerateNewRefFrame},
        {"RootCGs", &Util::GenerateNewCG},
        {"RootCaps", &Util::GenerateNewCapture},
        {"TPSView", &Util::BuildNewView},
        {"RefFrame", &Util::BuildNewRefFrame},
        {"TPSCG", &Util::BuildNewCG},
        {"TPSCap", &Util::BuildNewCapture},
        {"TTRSRoot", &Util::GenerateTTRS},
        {"Annotations", &Util::GenerateAnnotations},
        {"ViewRoot", &Util::GenerateViews},
        {"ReferenceFrame", &Util::GenerateRefFrame},
        {"CGRoot", &Util::GenerateCG},
        {"CaptureRoot", &Util::GenerateCapture},
        {"View", &Util::BuildView},
        {"LegacyRefFrame", &Util::BuildRefFrame},
        {"CG", &Util::BuildCG},
        {"Capture", &Util::BuildCapture},
    };
    VEKLightXmlElement root = ParseXml("<D>" + xml + "</D>");
    EXPECT_FALSE(root.IsNull()) << xml;
    HRESULT result = S_OK;
    VEKTPSLightContainer* container = container_.get();
    for (void* position = root.GetChildren(); position;) {
      VEKLightXmlElementItf* child = root.GetChild(position);
      const std::string name = child->GetName().ConvertToChar();
      // Legacy family builders look for their root among the children of the element given.
      const bool legacyRoot = name == "TTRSRoot" || name == "Annotations" || name == "ViewRoot" ||
                              name == "ReferenceFrame" || name == "CGRoot" || name == "CaptureRoot";
      VEKLightXmlElementItf& element =
          legacyRoot ? static_cast<VEKLightXmlElementItf&>(root) : *child;
      if (name == "TTRS") {
        result = legacy_ ? util_.BuildTTRS(container, set_.Get(), element)
                         : util_.BuildNewTTRS(container, set_.Get(), element);
      } else if (name == "TPS") {
        VEKRawCollPV groups(0);
        result = legacy_ ? util_.BuildAnnotation(container, set_.Get(), element, &groups)
                         : util_.BuildNewAnnotation(container, set_.Get(), element, &groups);
        for (int k = 1; k <= groups.Size(); ++k) {
          delete static_cast<VEKListValVEKUnicodeString*>(groups[k]);
        }
      } else {
        const std::string key = legacy_ && name == "RefFrame" ? "LegacyRefFrame" : name;
        for (const auto& [builderName, builder] : kBuilders) {
          if (key == builderName) result = (util_.*builder)(container, set_.Get(), element);
        }
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
