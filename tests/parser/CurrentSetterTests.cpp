// The setters of the values common to the set and to every object, through the recording model.
#include "CurrentRecordedSupport.h"

using vek_test::Joined;
using vek_test::RepXml;

namespace {

class CurrentSetters : public vek_test::RecordedTest {};

const std::string kIdentity =
    "<TPSId Name='Flat 1' Uuid='u-1'/><TPSLoc Type='65537' Id='7' Status='-1'/>";

}  // namespace

TEST_F(CurrentSetters, ObjectValuesComeInTheirOrderWithTheRepresentationLast) {
  VEKComPtr<VEKITPSLightAnnotation> annotation;
  ASSERT_EQ(container_.CreateAnnotation(annotation.ReleaseAndGetAddressOf(), set_.Get()), S_OK);
  auto* light = container_.Get<VEKITPSLight>("A1");
  ledger().Clear();
  EXPECT_EQ(
      util_.SetTPSValues(light, Xml("<TPS>" + RepXml("2") + kIdentity + RepXml("3") + "</TPS>")),
      S_OK);
  EXPECT_EQ(Operations(),
            "A1.SetName(\"Flat 1\") | A1.SetUuid(\"u-1\") | A1.SetType(1) | A1.SetId(7) | "
            "A1.SetStatus(65535) | A1.SetRep(rep)");

  // Nothing to read still passes the starting values; a representation of another type is none.
  ledger().Clear();
  VEKLightXmlElement bare = Xml("<TPS>" + RepXml("2") + "</TPS>");
  EXPECT_EQ(util_.SetTPSValues(light, bare), S_OK);
  EXPECT_EQ(Operations(), Blank("A1"));
  EXPECT_EQ(util_.SetTPSValues(nullptr, bare), E_FAIL);
}

TEST_F(CurrentSetters, SetValuesTakeTheStandardAndNoId) {
  VEKLightXmlElement element =
      Xml("<AnnotationSet Standard='ISO'>" + kIdentity + RepXml("3") + "</AnnotationSet>");
  EXPECT_EQ(util_.SetTPSSetValues(set_.Get(), element), S_OK);
  EXPECT_EQ(Joined(ledger().Lines()),
            "S1.QueryInterface(VEKITPSLight) -> ok | S1.SetName(\"Flat 1\") | "
            "S1.SetStandard(\"ISO\") | S1.SetType(1) | S1.SetStatus(65535) | S1.SetUuid(\"u-1\") | "
            "S1.Release()");

  ledger().Clear();
  container_.RefuseInterface("S1", VEKITPSLight::kIID);
  EXPECT_EQ(util_.SetTPSSetValues(set_.Get(), element), S_OK);
  EXPECT_EQ(Joined(ledger().Lines()), "S1.QueryInterface(VEKITPSLight) -> refused");
  EXPECT_EQ(util_.SetTPSSetValues(nullptr, element), E_FAIL);
}
