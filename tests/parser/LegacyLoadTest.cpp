// The legacy-schema load, and one whole legacy document whose families link to each other, read
// back through the real light model.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ParserTestSupport.h"
#include "RecordingModel.h"
#include "VEKTPSLightParserUtil.h"

namespace {

using vek_test::Query;
using vek_test::Utf8;
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

TEST(LegacyLoad, EveryQualifyingSetBuildsTheWholeDocument) {
  const std::string text = "<TolerancingData>" + AnnotationSet({"First", "", "0", "0", ""}) +
                           kOneAnnotation + AnnotationSet({"Second", "", "0", "0", ""}) +
                           AnnotationSet({"Short"}) + "</TolerancingData>";
  VEKTPSLightParserUtil parser;
  VEKComPtr<VEKITPSLightSet> set;
  EXPECT_EQ(S_OK, parser.GenerateLightModel(text.c_str(), nullptr, set.ReleaseAndGetAddressOf()));
  // The last set made is returned, although its values were refused.
  ASSERT_TRUE(set);
  EXPECT_EQ(0, set->GetAnnotations()->Count());
  std::vector<std::string> names;
  VEKComPtr<VEKITPSLightSet> current = set;
  for (;;) {
    VEKComPtr<VEKITPSLightSet> previous;
    if (current->GetPreviousSet(previous.ReleaseAndGetAddressOf()) != S_OK || !previous) break;
    names.push_back(Utf8(Query<VEKITPSLight>(previous.Get())->GetName()));
    EXPECT_EQ(1, previous->GetAnnotations()->Count());
    current = previous;
  }
  EXPECT_EQ((std::vector<std::string>{"Second", "First"}), names);
}

// Every family of a legacy document, each naming objects of the families built before it.
const char* const kBracket = R"(<TolerancingData>
  <AnnotationSet><I V="Bracket"/><I V="ISO 1101"/><I V="2"/><I V="1"/><I V="set-1"/></AnnotationSet>
  <TTRSRoot>
    <TTRS><Na V="Bore"/><In V="1"/><Ui V="t-1"/><Gd><I V=";4;7"/><I V=";9"/></Gd></TTRS>
  </TTRSRoot>
  <Annotations>
    <TPS><Ty V="1"/><Va V="0.05"/><Na V="Flatness"/><Id V="1"/><De V="1"/><Re V="0"/>
      <St V="0"/><Ui V="a-1"/><At V="top"/><Tt V=";1;"/><Og V=";1;2;"/></TPS>
    <TPS><Ty V="2"/><Va V="0.1"/><Na V="Position"/><Id V="2"/><De V="0"/><Re V="1"/>
      <St V="0"/><Ui V="a-2"/><At V=""/><Tt V=";1;"/><Og V=""/></TPS>
  </Annotations>
  <ViewRoot>
    <View><Ty V="1"/><Na V="Front"/><Id V="10"/><Ui V="v-10"/><Ts V=";1;2;"/>
      <Mt><I V="0;0;1;1;0;0"/><I V="0.5;0;-2"/></Mt></View>
  </ViewRoot>
  <ReferenceFrame>
    <RefFrame><Na V="A"/><Id V="20"/><At V="datum A"/><Ui V="r-20"/><Da V=";2;"/><Tt V=";1;"/></RefFrame>
  </ReferenceFrame>
  <CGRoot>
    <CG><Ty V="3"/><Na V="Axis"/><Id V="30"/><St V="0"/><At V="cg"/><Ui V="g-30"/><Tt V=";1;"/><Tr V=";5;"/></CG>
  </CGRoot>
  <CaptureRoot>
    <Capture><Id V="40"/><Av V="10"/><Cl V="1"/><Na V="Main"/><Ui V="c-40"/>
      <Ts V=" 1 2 "/><Vs V=" 10 "/><Cs V=" 30 "/>
      <Cam><P V="0 0 10"/><D V="0 0 -1"/><Z V="0 1 0"/><T V="0 0 0"/><K V="1"/></Cam></Capture>
  </CaptureRoot>
</TolerancingData>)";

TEST(LegacyLoad, WholeDocumentLinksItsFamilies) {
  VEKTPSLightParserUtil parser;
  VEKComPtr<VEKITPSLightSet> set;
  ASSERT_EQ(S_OK, parser.GenerateLightModel(kBracket, nullptr, set.ReleaseAndGetAddressOf()));
  EXPECT_EQ(
      "S1 Bracket/set-1/2/-/1 rep=- standard=ISO 1101 unresolved=[] duplicates=[]\n"
      "T1 Bore/t-1/-/1/- rep=- geometry=[4,7][9]\n"
      "A1 Flatness/a-1/1/1/0 rep=- value=0.05 default=1 reference=0 attribute=top graphic=- "
      "ttrs=[1] group=[A1,A2] views=[V1]\n"
      "A2 Position/a-2/2/2/0 rep=- value=0.1 default=0 reference=1 attribute= graphic=- ttrs=[1] "
      "group=- views=[V1]\n"
      "V1 Front/v-10/1/10/- rep=- origin=0.5,0,-2 normal=0,0,1 direction=1,0,0 tps=[A1,A2] "
      "captures=[C1]\n"
      "R1 A/r-20/-/20/- rep=- attribute=datum A datums=[A2] ttrs=[1]\n"
      "G1 Axis/g-30/3/30/0 rep=- attribute=cg ttrs=[1] treps=[5]\n"
      "C1 Main/c-40/-/40/- rep=- graphic=- active=V1 clip=1 position=0,0,10 direction=0,0,-1 "
      "zenith=0,1,0 target=0,0,0 type=1 tps=[A1,A2] views=[V1] cgs=[G1]",
      vek_test::ModelText(set.Get()));
}

}  // namespace
