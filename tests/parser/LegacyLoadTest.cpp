// The legacy-schema load, and one whole legacy document whose families link to each other, read
// back through the real light model.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ParserTestSupport.h"
#include "VEKTPSLightParserUtil.h"

namespace {

using vek_test::Identities;
using vek_test::Identity;
using vek_test::Items;
using vek_test::Query;
using vek_test::Utf8;

using Objects = std::vector<const VEKBaseUnknown*>;

std::string Values(const std::vector<std::string>& items) {
  std::string xml;
  for (const std::string& item : items) xml += "<I V=\"" + item + "\"/>";
  return xml;
}

std::string AnnotationSet(const std::vector<std::string>& items) {
  return "<AnnotationSet>" + Values(items) + "</AnnotationSet>";
}

// One annotation that every qualifying set builds.
const std::string kOneAnnotation = "<Annotations><TPS>" +
                                   Values({"1", "0.5", "A", "1", "0", "0", "0", "", "", "", ""}) +
                                   "</TPS></Annotations>";

std::vector<double> Coordinates(const std::optional<VEKVector3>& vector) {
  if (!vector) return {};
  return {vector->x, vector->y, vector->z};
}

TEST(LegacyLoad, RefusesWhatIsNotALegacyDocument) {
  VEKTPSLightParserUtil parser;
  VEKComPtr<VEKITPSLightSet> set;
  EXPECT_EQ(E_FAIL, parser.GenerateLightModel(nullptr, nullptr, set.GetAddressOf()));
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
    EXPECT_EQ(E_FAIL, parser.GenerateLightModel(text, nullptr, set.GetAddressOf())) << text;
    EXPECT_FALSE(set) << text;
  }
}

TEST(LegacyLoad, SetNeedsExactlyFiveValues) {
  struct Row {
    std::vector<std::string> items;
    HRESULT result;
    std::string name;
    int type, status;
  } rows[] = {
      {{"N", "ISO", "3", "1", "u"}, S_OK, "N", 3, 1},
      {{"N", "ISO", "70000", "2", "u"}, S_OK, "N", 4464, 2},  // low 16 bits
      {{"N", "ISO", "5", "x", "u"}, S_OK, "N", 5, 5},         // status repeats the type
      {{"N", "ISO", "3", "1"}, E_FAIL, "<unset>", -1, -1},
      {{"N", "ISO", "3", "1", "u", "extra"}, E_FAIL, "<unset>", -1, -1},
  };
  for (const Row& row : rows) {
    const std::string text =
        "<TolerancingData>" + AnnotationSet(row.items) + kOneAnnotation + "</TolerancingData>";
    VEKTPSLightParserUtil parser;
    VEKComPtr<VEKITPSLightSet> set;
    EXPECT_EQ(row.result, parser.GenerateLightModel(text.c_str(), nullptr, set.GetAddressOf()));
    // A set is made before its values are counted, and stays.
    ASSERT_TRUE(set) << text;
    auto light = Query<VEKITPSLight>(set.Get());
    EXPECT_EQ(row.name, Utf8(light->GetName())) << text;
    EXPECT_EQ(row.type, light->GetType() ? *light->GetType() : -1) << text;
    EXPECT_EQ(row.status, light->GetStatus() ? *light->GetStatus() : -1) << text;
    // The builders run only for a set with its five values.
    EXPECT_EQ(row.result == S_OK ? 1 : 0, set->GetAnnotations()->Count()) << text;
    if (row.result == S_OK) {
      EXPECT_EQ("ISO", Utf8(set->GetStandard()));
      EXPECT_EQ("u", Utf8(light->GetUuid()));
    }
  }
}

TEST(LegacyLoad, EveryQualifyingSetBuildsTheWholeDocument) {
  const std::string text = "<TolerancingData>" + AnnotationSet({"First", "", "0", "0", ""}) +
                           kOneAnnotation + AnnotationSet({"Second", "", "0", "0", ""}) +
                           AnnotationSet({"Short"}) + "</TolerancingData>";
  VEKTPSLightParserUtil parser;
  VEKComPtr<VEKITPSLightSet> set;
  EXPECT_EQ(S_OK, parser.GenerateLightModel(text.c_str(), nullptr, set.GetAddressOf()));
  // The last set made is returned, although its values were refused.
  ASSERT_TRUE(set);
  EXPECT_EQ(0, set->GetAnnotations()->Count());
  std::vector<std::string> names;
  VEKComPtr<VEKITPSLightSet> current = set;
  for (;;) {
    VEKComPtr<VEKITPSLightSet> previous;
    if (current->GetPreviousSet(previous.GetAddressOf()) != S_OK || !previous) break;
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
  ASSERT_EQ(S_OK, parser.GenerateLightModel(kBracket, nullptr, set.GetAddressOf()));
  ASSERT_TRUE(set);
  auto setLight = Query<VEKITPSLight>(set.Get());
  EXPECT_EQ("Bracket", Utf8(setLight->GetName()));
  EXPECT_EQ("ISO 1101", Utf8(set->GetStandard()));
  EXPECT_EQ(2, setLight->GetType().value_or(0));
  EXPECT_EQ(1, setLight->GetStatus().value_or(0));
  EXPECT_EQ("set-1", Utf8(setLight->GetUuid()));
  EXPECT_TRUE(set->GetUnresolvedReferences().empty());

  ASSERT_EQ(1, set->GetTTRS().Count());
  auto ttrs = Query<VEKITPSLightTTRS>(set->GetTTRS().Get(0));
  EXPECT_EQ("t-1", Utf8(Query<VEKITPSLight>(ttrs.Get())->GetUuid()));
  ASSERT_EQ(2, ttrs->GetGeometryCount());
  EXPECT_EQ((std::vector<int>{4, 7}), Items(*ttrs->GetGeometry(0)));
  EXPECT_EQ(std::vector<int>{9}, Items(*ttrs->GetGeometry(1)));

  VEKLightObjectList* annotations = set->GetAnnotations();
  ASSERT_EQ(2, annotations->Count());
  const Objects both = {Identity(annotations->Get(0)), Identity(annotations->Get(1))};
  auto flatness = Query<VEKITPSLightAnnotation>(annotations->Get(0));
  EXPECT_EQ(0.05, flatness->GetValue().value_or(0));
  EXPECT_TRUE(flatness->IsDefault());
  EXPECT_EQ(std::vector<int>{1}, flatness->GetTTRS());
  auto flatnessLinks = Query<VEKITPSLightModel>(annotations->Get(0));
  ASSERT_NE(nullptr, flatnessLinks->GetOrderGroup());
  EXPECT_EQ(both, Identities(*flatnessLinks->GetOrderGroup()));
  EXPECT_EQ(1, Query<VEKITPSLightAnnotation>(annotations->Get(1))->GetReference().value_or(0));

  ASSERT_EQ(1, set->GetViews().Count());
  VEKBaseUnknown* front = set->GetViews().Get(0);
  auto view = Query<VEKITPSLightView>(front);
  EXPECT_EQ(both, Identities(view->GetAnnotations()));
  EXPECT_EQ(Objects{Identity(front)}, Identities(flatnessLinks->GetViews()));
  EXPECT_EQ((std::vector<double>{0, 0, 1}), Coordinates(view->GetNormal()));
  EXPECT_EQ((std::vector<double>{1, 0, 0}), Coordinates(view->GetDirection()));
  EXPECT_EQ((std::vector<double>{0.5, 0, -2}), Coordinates(view->GetOrigin()));

  ASSERT_EQ(1, set->GetRefFrames().Count());
  auto frame = Query<VEKITPSLightRefFrame>(set->GetRefFrames().Get(0));
  EXPECT_EQ(Objects{both[1]}, Identities(frame->GetDatums()));
  EXPECT_EQ(std::vector<int>{1}, frame->GetTTRS());
  EXPECT_EQ("datum A", Utf8(frame->GetAttribute()));

  ASSERT_EQ(1, set->GetCGs().Count());
  VEKBaseUnknown* axis = set->GetCGs().Get(0);
  auto cg = Query<VEKITPSLightCG>(axis);
  EXPECT_EQ(30, Query<VEKITPSLight>(axis)->GetId().value_or(0));
  EXPECT_EQ(std::vector<int>{5}, cg->GetTReps());

  ASSERT_EQ(1, set->GetCaptures().Count());
  VEKBaseUnknown* main = set->GetCaptures().Get(0);
  auto capture = Query<VEKITPSLightCapture>(main);
  EXPECT_EQ("Main", Utf8(Query<VEKITPSLight>(main)->GetName()));
  EXPECT_EQ(Identity(front), Identity(capture->GetActiveView()));
  EXPECT_EQ(Objects{Identity(main)}, Identities(view->GetCaptures()));
  EXPECT_EQ(1, capture->GetClippingPlane().value_or(0));
  EXPECT_EQ(both, Identities(capture->GetAnnotations()));
  EXPECT_EQ(Objects{Identity(front)}, Identities(capture->GetViews()));
  EXPECT_EQ(Objects{Identity(axis)}, Identities(capture->GetCGs()));
  EXPECT_EQ((std::vector<double>{0, 0, 10}), Coordinates(capture->GetCameraPosition()));
  EXPECT_EQ((std::vector<double>{0, 0, -1}), Coordinates(capture->GetCameraDirection()));
  EXPECT_EQ((std::vector<double>{0, 1, 0}), Coordinates(capture->GetCameraZenith()));
  EXPECT_EQ((std::vector<double>{0, 0, 0}), Coordinates(capture->GetCameraTarget()));
  EXPECT_EQ(1, capture->GetCameraType().value_or(0));
}

}  // namespace
