// Whole current-schema documents through the real model, in each input form, read back value by
// value and link by link.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "GlbBuilder.h"
#include "ParserTestSupport.h"
#include "VEKTPSLightParserUtil.h"

using vek_test::Identities;
using vek_test::Identity;
using vek_test::Query;
using vek_test::Utf8;

namespace {

enum class Form { kPlain, kBase64, kCompressed };

// Loads `xml` in the given form; plain text must be ASCII, since it is cut at its character count.
HRESULT Load(const std::string& xml, Form form, VEKComPtr<VEKITPSLightSet>& set) {
  vek_test::ScopedWorkingDirectory directory;
  VEKTPSLightParserUtil util;
  if (form == Form::kCompressed) {
    std::string packed = vek_test::ZlibCompress(xml);
    VEKUnicodeString unused;
    return util.GenerateLightModelFromBase(unused, nullptr, set.GetAddressOf(), 0, packed.data(),
                                           static_cast<int>(xml.size()),
                                           static_cast<int>(packed.size()));
  }
  VEKUnicodeString source(form == Form::kBase64 ? vek_test::ToBase64(xml).c_str() : xml.c_str());
  return util.GenerateLightModelFromBase(source, nullptr, set.GetAddressOf(),
                                         form == Form::kBase64 ? 1 : 0, nullptr, 0, 0);
}

std::string Rep(const char* type, int triangles) {
  const std::vector<char> glb = vek_test::BuildMeshesGlb(triangles, 0, 0);
  return std::string("<Rep Type='") + type + "'><Buf>" +
         vek_test::EncodeBase64(reinterpret_cast<const unsigned char*>(glb.data()), glb.size()) +
         "</Buf></Rep>";
}

void ExpectVector(const std::optional<VEKVector3>& v, double x, double y, double z) {
  ASSERT_TRUE(v.has_value());
  EXPECT_EQ(v->x, x);
  EXPECT_EQ(v->y, y);
  EXPECT_EQ(v->z, z);
}

class CurrentDocument : public ::testing::TestWithParam<Form> {
 protected:
  // The attribute text of the first annotation: exact code points except in plain form.
  std::string Attribute() const {
    return GetParam() == Form::kPlain ? "D0.05 M"
                                      : "\xE2\x8C\x80"
                                        "0.05 \xE2\x93\x82";
  }
};

}  // namespace

TEST_P(CurrentDocument, RoadOfOneDocument) {
  const std::string xml =
      "<Functional_Tolerancing_Annotation>"
      "<AnnotationSet Standard='ASME'><TPSId Name='Part' Uuid='u0'/>"
      "<TPSLoc Type='4' Id='9' Status='1'/></AnnotationSet>"
      "<RootTPSs><TPS Val='0.1'><TPSLoc Id='5'/></TPS></RootTPSs>"
      "<RootViews><TPSView><TPSs>5</TPSs></TPSView></RootViews>"
      "</Functional_Tolerancing_Annotation>";
  VEKComPtr<VEKITPSLightSet> set;
  ASSERT_EQ(Load(xml, GetParam(), set), S_OK);
  auto light = Query<VEKITPSLight>(set.Get());
  EXPECT_EQ(Utf8(set->GetStandard()), "ASME");
  EXPECT_EQ(Utf8(light->GetName()), "Part");
  EXPECT_EQ(Utf8(light->GetUuid()), "u0");
  EXPECT_EQ(light->GetType(), 4);
  EXPECT_EQ(light->GetStatus(), 1);
  EXPECT_FALSE(light->GetId().has_value());

  ASSERT_EQ(set->GetAnnotations()->Count(), 1);
  ASSERT_EQ(set->GetViews().Count(), 1);
  VEKBaseUnknown* annotation = set->GetAnnotations()->Get(0);
  auto view = Query<VEKITPSLightView>(set->GetViews().Get(0));
  EXPECT_EQ(Query<VEKITPSLightAnnotation>(annotation)->GetValue(), 0.1);
  EXPECT_EQ(Identities(view->GetAnnotations()), std::vector{Identity(annotation)});
  EXPECT_EQ(Identities(Query<VEKITPSLightModel>(annotation)->GetViews()),
            std::vector{Identity(view.Get())});
  EXPECT_TRUE(set->GetUnresolvedReferences().empty());
}

TEST_P(CurrentDocument, EveryFamilyLinksToTheOthers) {
  const std::string xml =
      "<Functional_Tolerancing_Annotation Version='7'>"
      "<AnnotationSet Standard='ISO'><TPSId Name='Set' Uuid='s1'/>"
      "<TPSLoc Type='2' Id='99' Status='1'/></AnnotationSet>"
      "<RootTTRSs><TTRS><TPSId Name='T' Uuid='t1'/><TPSLoc Type='5' Id='11' Status='3'/>" +
      Rep("3", 1) +
      "<GeoP>4 7 9</GeoP><GeoP>12</GeoP></TTRS></RootTTRSs>"
      "<RootTPSs>"
      "<TPS Val='0.05' Def='3' Ref='2' Att='" +
      Attribute() + "'><TPSId Name='Flatness' Uuid='a1'/><TPSLoc Type='7' Id='1' Status='2'/>" +
      Rep("2", 2) +
      "<TTRS>11</TTRS><Grou>2</Grou></TPS>"
      "<TPS Val='1.5' Att='B'><TPSId Name='Datum A' Uuid='a2'/><TPSLoc Type='8' Id='2'/>"
      "<Grou>1 2</Grou></TPS></RootTPSs>"
      "<RootViews><TPSView><TPSId Name='V' Uuid='v1'/><TPSLoc Id='20'/><TPSs>1 2</TPSs>"
      "<Math><Or>0 0 1</Or><No>0 0 -1</No><Di>1 0 0</Di></Math></TPSView></RootViews>"
      "<RootRefs><RefFrame Att='A|B'><TPSId Name='RF' Uuid='r1'/><TPSLoc Id='30'/>"
      "<Datum>2</Datum><TTRS>11</TTRS></RefFrame></RootRefs>"
      "<RootCGs><TPSCG Att='cg'><TPSId Name='CG' Uuid='c1'/><TPSLoc Id='40'/>"
      "<TTRS>11</TTRS><TRep>7</TRep></TPSCG></RootCGs>"
      "<RootCaps><TPSCap ActVie='20' ClipPla='1'><TPSId Name='Cap' Uuid='k1'/><TPSLoc Id='50'/>" +
      Rep("2", 3) +
      "<TPSs>1</TPSs><Views>20</Views><CGs>40</CGs>"
      "<Cam Type='1'><Po>1 2 3</Po><Di>0 0 -1</Di><Ze>0 1 0</Ze><Ta>4 5 6</Ta></Cam>"
      "</TPSCap></RootCaps>"
      "</Functional_Tolerancing_Annotation>";
  VEKComPtr<VEKITPSLightSet> set;
  ASSERT_EQ(Load(xml, GetParam(), set), S_OK);
  EXPECT_EQ(Utf8(set->GetStandard()), "ISO");
  EXPECT_EQ(Utf8(Query<VEKITPSLight>(set.Get())->GetName()), "Set");

  ASSERT_EQ(set->GetTTRS().Count(), 1);
  auto ttrs = Query<VEKITPSLightTTRS>(set->GetTTRS().Get(0));
  auto ttrsLight = Query<VEKITPSLight>(ttrs.Get());
  EXPECT_EQ(Utf8(ttrsLight->GetName()), "T");
  EXPECT_EQ(Utf8(ttrsLight->GetUuid()), "t1");
  EXPECT_EQ(ttrsLight->GetType(), 5);
  EXPECT_EQ(ttrsLight->GetId(), 11);
  EXPECT_EQ(ttrsLight->GetStatus(), 3);
  ASSERT_NE(ttrsLight->GetRep(), nullptr);
  EXPECT_EQ(ttrsLight->GetRep()->GetMeshes().size(), 1u);
  ASSERT_EQ(ttrs->GetGeometryCount(), 2);
  EXPECT_EQ(vek_test::Items(*ttrs->GetGeometry(0)), (std::vector<int>{4, 7, 9}));
  EXPECT_EQ(vek_test::Items(*ttrs->GetGeometry(1)), (std::vector<int>{12}));

  ASSERT_EQ(set->GetAnnotations()->Count(), 2);
  VEKBaseUnknown* first = set->GetAnnotations()->Get(0);
  VEKBaseUnknown* second = set->GetAnnotations()->Get(1);
  auto flatness = Query<VEKITPSLightAnnotation>(first);
  auto datum = Query<VEKITPSLightAnnotation>(second);
  EXPECT_EQ(Utf8(Query<VEKITPSLight>(first)->GetName()), "Flatness");
  EXPECT_EQ(Query<VEKITPSLight>(first)->GetType(), 7);
  EXPECT_EQ(flatness->GetValue(), 0.05);
  EXPECT_TRUE(flatness->IsDefault());
  EXPECT_EQ(flatness->GetReference(), 2);
  EXPECT_EQ(Utf8(flatness->GetAttribute()), Attribute());
  ASSERT_NE(flatness->GetGraphicRep(), nullptr);
  EXPECT_EQ(flatness->GetGraphicRep()->GetMeshes().size(), 2u);
  EXPECT_EQ(flatness->GetTTRS(), std::vector<int>{11});
  EXPECT_FALSE(datum->IsDefault());
  EXPECT_EQ(datum->GetReference(), 0);
  EXPECT_EQ(Utf8(Query<VEKITPSLight>(second)->GetName()), "Datum A");
  EXPECT_EQ(Identities(*Query<VEKITPSLightModel>(first)->GetOrderGroup()),
            std::vector{Identity(second)});
  EXPECT_EQ(Identities(*Query<VEKITPSLightModel>(second)->GetOrderGroup()),
            (std::vector{Identity(first), Identity(second)}));

  ASSERT_EQ(set->GetViews().Count(), 1);
  VEKBaseUnknown* viewObject = set->GetViews().Get(0);
  auto view = Query<VEKITPSLightView>(viewObject);
  ExpectVector(view->GetOrigin(), 0, 0, 1);
  ExpectVector(view->GetNormal(), 0, 0, -1);
  ExpectVector(view->GetDirection(), 1, 0, 0);
  EXPECT_EQ(Identities(view->GetAnnotations()), (std::vector{Identity(first), Identity(second)}));
  EXPECT_EQ(Identities(Query<VEKITPSLightModel>(second)->GetViews()),
            std::vector{Identity(viewObject)});

  ASSERT_EQ(set->GetRefFrames().Count(), 1);
  auto frame = Query<VEKITPSLightRefFrame>(set->GetRefFrames().Get(0));
  EXPECT_EQ(Utf8(frame->GetAttribute()), "A|B");
  EXPECT_EQ(Identities(frame->GetDatums()), std::vector{Identity(second)});
  EXPECT_EQ(frame->GetTTRS(), std::vector<int>{11});

  ASSERT_EQ(set->GetCGs().Count(), 1);
  VEKBaseUnknown* geometryObject = set->GetCGs().Get(0);
  auto geometry = Query<VEKITPSLightCG>(geometryObject);
  EXPECT_EQ(Utf8(geometry->GetAttribute()), "cg");
  EXPECT_EQ(geometry->GetTTRS(), std::vector<int>{11});
  EXPECT_EQ(geometry->GetTReps(), std::vector<int>{7});
  EXPECT_EQ(Query<VEKITPSLight>(geometryObject)->GetId(), 40);

  ASSERT_EQ(set->GetCaptures().Count(), 1);
  VEKBaseUnknown* captureObject = set->GetCaptures().Get(0);
  auto capture = Query<VEKITPSLightCapture>(captureObject);
  EXPECT_EQ(Utf8(Query<VEKITPSLight>(captureObject)->GetUuid()), "k1");
  EXPECT_EQ(Identity(capture->GetActiveView()), Identity(viewObject));
  EXPECT_EQ(Identities(view->GetCaptures()), std::vector{Identity(captureObject)});
  EXPECT_EQ(capture->GetClippingPlane(), 1);
  EXPECT_EQ(capture->GetCameraType(), 1);
  ExpectVector(capture->GetCameraPosition(), 1, 2, 3);
  ExpectVector(capture->GetCameraDirection(), 0, 0, -1);
  ExpectVector(capture->GetCameraZenith(), 0, 1, 0);
  ExpectVector(capture->GetCameraTarget(), 4, 5, 6);
  EXPECT_EQ(Identities(capture->GetAnnotations()), std::vector{Identity(first)});
  EXPECT_EQ(Identities(capture->GetViews()), std::vector{Identity(viewObject)});
  EXPECT_EQ(Identities(capture->GetCGs()), std::vector{Identity(geometryObject)});
  ASSERT_NE(capture->GetGraphicRep(), nullptr);
  EXPECT_EQ(capture->GetGraphicRep()->GetMeshes().size(), 3u);

  EXPECT_TRUE(set->GetUnresolvedReferences().empty());
  EXPECT_TRUE(set->GetDuplicateIds().empty());
}

INSTANTIATE_TEST_SUITE_P(Forms, CurrentDocument,
                         ::testing::Values(Form::kPlain, Form::kBase64, Form::kCompressed),
                         [](const ::testing::TestParamInfo<Form>& info) -> std::string {
                           switch (info.param) {
                             case Form::kPlain:
                               return "Plain";
                             case Form::kBase64:
                               return "Base64";
                             default:
                               return "Compressed";
                           }
                         });
