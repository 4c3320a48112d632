// Whole current-schema documents through the real model, in each input form, read back whole:
// every value and link of every object.
#include <gtest/gtest.h>

#include <string>

#include "ParserTestSupport.h"
#include "RecordingModel.h"
#include "VEKTPSLightParserUtil.h"

namespace {

enum class Form { kPlain, kBase64, kCompressed };

// Loads `xml` in the given form; plain text must be ASCII, since it is cut at its character count.
HRESULT Load(const std::string& xml, Form form, VEKComPtr<VEKITPSLightSet>& set) {
  vek_test::ScratchDirectory directory;
  VEKTPSLightParserUtil util;
  if (form == Form::kCompressed) {
    std::string packed = vek_test::ZlibCompress(xml);
    VEKUnicodeString unused;
    return util.GenerateLightModelFromBase(unused, nullptr, set.ReleaseAndGetAddressOf(), 0,
                                           packed.data(), static_cast<int>(xml.size()),
                                           static_cast<int>(packed.size()));
  }
  VEKUnicodeString source(form == Form::kBase64 ? vek_test::ToBase64(xml).c_str() : xml.c_str());
  return util.GenerateLightModelFromBase(source, nullptr, set.ReleaseAndGetAddressOf(),
                                         form == Form::kBase64 ? 1 : 0, nullptr, 0, 0);
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

TEST_P(CurrentDocument, EveryFamilyLinksToTheOthers) {
  const std::string xml =
      "<Functional_Tolerancing_Annotation Version='7'>"
      "<AnnotationSet Standard='ISO'><TPSId Name='Set' Uuid='s1'/>"
      "<TPSLoc Type='2' Id='99' Status='1'/></AnnotationSet>"
      "<RootTTRSs><TTRS><TPSId Name='T' Uuid='t1'/><TPSLoc Type='5' Id='11' Status='3'/>" +
      vek_test::RepXml("3", 1) +
      "<GeoP>4 7 9</GeoP><GeoP>12</GeoP></TTRS></RootTTRSs>"
      "<RootTPSs>"
      "<TPS Val='0.05' Def='3' Ref='2' Att='" +
      Attribute() + "'><TPSId Name='Flatness' Uuid='a1'/><TPSLoc Type='7' Id='1' Status='2'/>" +
      vek_test::RepXml("2", 2) +
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
      vek_test::RepXml("2", 3) +
      "<TPSs>1</TPSs><Views>20</Views><CGs>40</CGs>"
      "<Cam Type='1'><Po>1 2 3</Po><Di>0 0 -1</Di><Ze>0 1 0</Ze><Ta>4 5 6</Ta></Cam>"
      "</TPSCap></RootCaps>"
      "</Functional_Tolerancing_Annotation>";
  VEKComPtr<VEKITPSLightSet> set;
  ASSERT_EQ(Load(xml, GetParam(), set), S_OK);
  EXPECT_EQ(vek_test::ModelText(set.Get()),
            "S1 Set/s1/2/-/1 rep=- standard=ISO unresolved=[] duplicates=[]\n"
            "T1 T/t1/5/11/3 rep=1 geometry=[4,7,9][12]\n"
            "A1 Flatness/a1/7/1/2 rep=- value=0.05 default=1 reference=2 attribute=" +
                Attribute() +
                " graphic=2 ttrs=[11] group=[A2] views=[V1]\n"
                "A2 Datum A/a2/8/2/0 rep=- value=1.5 default=0 reference=0 attribute=B graphic=- "
                "ttrs=[] group=[A1,A2] views=[V1]\n"
                "V1 V/v1/0/20/0 rep=- origin=0,0,1 normal=0,0,-1 direction=1,0,0 tps=[A1,A2] "
                "captures=[C1]\n"
                "R1 RF/r1/0/30/0 rep=- attribute=A|B datums=[A2] ttrs=[11]\n"
                "G1 CG/c1/0/40/0 rep=- attribute=cg ttrs=[11] treps=[7]\n"
                "C1 Cap/k1/0/50/0 rep=- graphic=3 active=V1 clip=1 position=1,2,3 "
                "direction=0,0,-1 zenith=0,1,0 target=4,5,6 type=1 tps=[A1] views=[V1] cgs=[G1]");
}

static std::string FormName(const ::testing::TestParamInfo<Form>& info) {
  const char* names[] = {"Plain", "Base64", "Compressed"};
  return names[static_cast<int>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(Forms, CurrentDocument,
                         ::testing::Values(Form::kPlain, Form::kBase64, Form::kCompressed),
                         FormName);
