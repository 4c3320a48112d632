// The legacy-schema load: what it refuses, and the five values a set needs.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ParserTestSupport.h"
#include "RecordingModel.h"
#include "VEKTPSLightParserUtil.h"

namespace {

using vek_test::Values;

// One annotation that every qualifying set builds.
const std::string kOneAnnotation = "<Annotations><TPS>" +
                                   Values({"1", "0.5", "A", "1", "0", "0", "0", "", "", "", ""}) +
                                   "</TPS></Annotations>";

TEST(LegacyLoad, MakesASetForALegacyRootAndBuildsOnlyWithFiveValues) {
  VEKTPSLightParserUtil parser;
  VEKComPtr<VEKITPSLightSet> set;
  EXPECT_EQ(E_FAIL, parser.GenerateLightModel(nullptr, nullptr, set.ReleaseAndGetAddressOf()));
  EXPECT_EQ(E_FAIL, parser.GenerateLightModel("<TolerancingData/>", nullptr, nullptr));
  const auto legacy = [](const std::vector<std::string>& items) {
    return "<TolerancingData><AnnotationSet>" + Values(items) + "</AnnotationSet>" +
           kOneAnnotation + "</TolerancingData>";
  };
  const struct {
    std::string text;
    HRESULT result;
    const char* set;  // the set's own model line; "" for no set
  } rows[] = {
      {"", E_FAIL, ""},
      {"<TolerancingData>", E_FAIL, ""},
      {"<TolerancingData></TolerancingData>", E_FAIL, ""},
      {"<Functional_Tolerancing_Annotation><AnnotationSet/></Functional_Tolerancing_Annotation>",
       E_FAIL, ""},
      {"<TolerancingData><AnnotationSets/><Annotations/></TolerancingData>", E_FAIL, ""},
      {legacy({"N", "ISO", "3", "1", "u"}), S_OK, "S1 N/u/3/-/1 standard=ISO"},
      {legacy({"N", "ISO", "70000", "2", "u"}), S_OK, "S1 N/u/4464/-/2 standard=ISO"},  // 16 bits
      {legacy({"N", "ISO", "5", "x", "u"}), S_OK, "S1 N/u/5/-/5 standard=ISO"},  // type repeated
      // A set is made before its values are counted, and stays.
      {legacy({"N", "ISO", "3", "1"}), E_FAIL, "S1 -/-/-/-/-"},
      {legacy({"N", "ISO", "3", "1", "u", "extra"}), E_FAIL, "S1 -/-/-/-/-"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.result, VEKTPSLightParserUtil().GenerateLightModel(row.text.c_str(), nullptr,
                                                                     set.ReleaseAndGetAddressOf()))
        << row.text;
    const std::string model = vek_test::ModelText(set.Get());
    EXPECT_EQ(row.set, model.substr(0, model.find('\n'))) << row.text;
    // The builders run only for a set with its five values.
    EXPECT_EQ(row.result == S_OK, model.find("\nA1 ") != std::string::npos) << row.text;
  }
}

}  // namespace
