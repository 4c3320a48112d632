// The legacy-schema load: what it refuses, and the five values a set needs.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ParserTestSupport.h"
#include "RecordingModel.h"
#include "VEKTPSLightParserUtil.h"

namespace {

using vek_test::Values;

std::string AnnotationSet(const std::vector<std::string>& items) {
  return "<AnnotationSet>" + Values(items) + "</AnnotationSet>";
}

// One annotation that every qualifying set builds.
const std::string kOneAnnotation = "<Annotations><TPS>" +
                                   Values({"1", "0.5", "A", "1", "0", "0", "0", "", "", "", ""}) +
                                   "</TPS></Annotations>";

TEST(LegacyLoad, RefusesWhatIsNotALegacyDocument) {
  VEKTPSLightParserUtil parser;
  VEKComPtr<VEKITPSLightSet> set;
  EXPECT_EQ(E_FAIL, parser.GenerateLightModel(nullptr, nullptr, set.ReleaseAndGetAddressOf()));
  EXPECT_EQ(E_FAIL, parser.GenerateLightModel("<TolerancingData/>", nullptr, nullptr));
  const char* refused[] = {
      "",
      "<TolerancingData>",
      "<TolerancingData></TolerancingData>",
      "<Functional_Tolerancing_Annotation><AnnotationSet/></Functional_Tolerancing_Annotation>",
      "<TolerancingData><AnnotationSets/><Annotations/></TolerancingData>",
  };
  for (const char* text : refused) {
    EXPECT_EQ(E_FAIL, parser.GenerateLightModel(text, nullptr, set.ReleaseAndGetAddressOf()))
        << text;
    EXPECT_FALSE(set) << text;
  }
}

TEST(LegacyLoad, SetNeedsExactlyFiveValues) {
  const struct {
    std::vector<std::string> items;
    HRESULT result;
    const char* set;
  } rows[] = {
      {{"N", "ISO", "3", "1", "u"}, S_OK, "S1 N/u/3/-/1 standard=ISO"},
      {{"N", "ISO", "70000", "2", "u"}, S_OK, "S1 N/u/4464/-/2 standard=ISO"},  // 16 bits
      {{"N", "ISO", "5", "x", "u"}, S_OK, "S1 N/u/5/-/5 standard=ISO"},         // type repeated
      {{"N", "ISO", "3", "1"}, E_FAIL, "S1 -/-/-/-/-"},
      {{"N", "ISO", "3", "1", "u", "extra"}, E_FAIL, "S1 -/-/-/-/-"},
  };
  for (const auto& row : rows) {
    const std::string text =
        "<TolerancingData>" + AnnotationSet(row.items) + kOneAnnotation + "</TolerancingData>";
    VEKTPSLightParserUtil parser;
    VEKComPtr<VEKITPSLightSet> set;
    EXPECT_EQ(row.result,
              parser.GenerateLightModel(text.c_str(), nullptr, set.ReleaseAndGetAddressOf()));
    // A set is made before its values are counted, and stays.
    ASSERT_TRUE(set) << text;
    const std::string model = vek_test::ModelText(set.Get());
    EXPECT_EQ(row.set, model.substr(0, model.find('\n'))) << text;
    // The builders run only for a set with its five values.
    EXPECT_EQ(row.result == S_OK ? 1 : 0, set->GetAnnotations()->Count()) << text;
  }
}

}  // namespace
