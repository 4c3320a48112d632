// The legacy-schema load, and one whole legacy document whose families link to each other, read
// back through the real light model.
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
      "<TolerancingData/>",
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
      {{"N", "ISO", "3", "1", "u"}, S_OK, "S1 N/u/3/-/1 rep=- standard=ISO"},
      {{"N", "ISO", "70000", "2", "u"}, S_OK, "S1 N/u/4464/-/2 rep=- standard=ISO"},  // 16 bits
      {{"N", "ISO", "5", "x", "u"}, S_OK, "S1 N/u/5/-/5 rep=- standard=ISO"},  // type repeated
      {{"N", "ISO", "3", "1"}, E_FAIL, "S1 -/-/-/-/- rep=- standard=-"},
      {{"N", "ISO", "3", "1", "u", "extra"}, E_FAIL, "S1 -/-/-/-/- rep=- standard=-"},
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
    EXPECT_EQ(row.set, model.substr(0, model.find(" unresolved"))) << text;
    // The builders run only for a set with its five values.
    EXPECT_EQ(row.result == S_OK ? 1 : 0, set->GetAnnotations()->Count()) << text;
  }
}

// Each family is built from the whole document, in an order of the walk's own: here every family
// stands before the ones it names, and still finds them.
TEST(LegacyLoad, FamiliesFindTheFamiliesTheyName) {
  const std::string text =
      "<TolerancingData>" + AnnotationSet({"N", "ISO", "3", "1", "u"}) + "<CaptureRoot><Capture>" +
      Values({"4", "2", "0", "C", "", " 1 ", " 2 ", " 3 "}) +
      "</Capture></CaptureRoot><ViewRoot><View>" + Values({"1", "V", "2", "", ";1;"}) +
      "</View></ViewRoot><ReferenceFrame><RefFrame>" + Values({"R", "5", "", "", ";1;", ";6;"}) +
      "</RefFrame></ReferenceFrame><CGRoot><CG>" + Values({"1", "G", "3", "0", "", "", ";6;", ""}) +
      "</CG></CGRoot>" + kOneAnnotation +
      "<TTRSRoot><TTRS><Na V=\"T\"/><In V=\"6\"/><Gd><I V=\";4;\"/></Gd></TTRS></TTRSRoot>"
      "</TolerancingData>";
  VEKTPSLightParserUtil parser;
  VEKComPtr<VEKITPSLightSet> set;
  ASSERT_EQ(S_OK, parser.GenerateLightModel(text.c_str(), nullptr, set.ReleaseAndGetAddressOf()));
  EXPECT_EQ(
      "S1 N/u/3/-/1 rep=- standard=ISO unresolved=[] duplicates=[]\n"
      "T1 T/-/-/6/- rep=- geometry=[4,0]\n"
      "A1 A//1/1/0 rep=- value=0.5 default=0 reference=0 attribute= graphic=- ttrs=[] group=- "
      "views=[V1]\n"
      "V1 V//1/2/- rep=- origin=- normal=- direction=- tps=[A1] captures=[C1]\n"
      "R1 R//-/5/- rep=- attribute= datums=[A1] ttrs=[6]\n"
      "G1 G//1/3/0 rep=- attribute= ttrs=[6] treps=[]\n"
      "C1 C//-/4/- rep=- graphic=- active=V1 clip=0 position=- direction=- zenith=- target=- "
      "type=- tps=[A1] views=[V1] cgs=[G1]",
      vek_test::ModelText(set.Get()));
}

}  // namespace
