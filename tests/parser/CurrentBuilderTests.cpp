// The current-schema builders, one group per family, through the recording model: the exact
// sequence of model operations, refusals of creation and of interfaces, and the order groups.
#include "CurrentRecordedSupport.h"

using vek_test::Joined;
using vek_test::RecordingKind;
using vek_test::RepXml;

namespace {

class CurrentBuilders : public vek_test::RecordedTest {
 protected:
  // Builds annotations A1.. from `tps` (the children of "RootTPSs"), then clears the ledger.
  void BuildAnnotations(const std::string& tps) {
    ASSERT_EQ(util_.GenerateNewAnnotations(&container_, set_.Get(),
                                           Xml("<RootTPSs>" + tps + "</RootTPSs>")),
              S_OK);
    ledger().Clear();
  }
  std::vector<const VEKBaseUnknown*> GroupOf(const char* name) {
    const VEKLightObjectList* group = container_.Get<VEKITPSLightModel>(name)->GetOrderGroup();
    return group ? vek_test::Identities(*group) : std::vector<const VEKBaseUnknown*>{nullptr};
  }
  const VEKBaseUnknown* Identity(const char* name) {
    return vek_test::Identity(container_.Get<VEKITPSLight>(name));
  }
};

}  // namespace

// The builders of both schemas: without a container, a set or a list for the order groups they
// touch nothing; without its family root a walker builds nothing and succeeds.
TEST_F(CurrentBuilders, BuildersOfBothSchemasNeedTheirArguments) {
  using Util = VEKTPSLightParserUtil;
  using Builder =
      HRESULT (Util::*)(VEKTPSLightContainer*, VEKITPSLightSet*, VEKLightXmlElementItf&);
  const Builder builders[] = {&Util::GenerateNewTTRS,
                              &Util::BuildNewTTRS,
                              &Util::GenerateNewAnnotations,
                              &Util::GenerateNewViews,
                              &Util::BuildNewView,
                              &Util::GenerateNewRefFrame,
                              &Util::BuildNewRefFrame,
                              &Util::GenerateNewCG,
                              &Util::BuildNewCG,
                              &Util::GenerateNewCapture,
                              &Util::BuildNewCapture,
                              &Util::GenerateTTRS,
                              &Util::BuildTTRS,
                              &Util::GenerateAnnotations,
                              &Util::GenerateViews,
                              &Util::BuildView,
                              &Util::GenerateRefFrame,
                              &Util::BuildRefFrame,
                              &Util::GenerateCG,
                              &Util::BuildCG,
                              &Util::GenerateCapture,
                              &Util::BuildCapture};
  VEKLightXmlElement element = Xml("<R><TTRS/><TPS/><TPSView/><RefFrame/><TPSCG/><TPSCap/></R>");
  for (const Builder build : builders) {
    EXPECT_EQ((util_.*build)(nullptr, set_.Get(), element), E_FAIL);
    EXPECT_EQ((util_.*build)(&container_, nullptr, element), E_FAIL);
  }
  VEKRawCollPV groups(0);
  for (const auto build : {&Util::BuildNewAnnotation, &Util::BuildAnnotation}) {
    EXPECT_EQ((util_.*build)(nullptr, set_.Get(), element, &groups), E_FAIL);
    EXPECT_EQ((util_.*build)(&container_, nullptr, element, &groups), E_FAIL);
    EXPECT_EQ((util_.*build)(&container_, set_.Get(), element, nullptr), E_FAIL);
  }
  EXPECT_EQ(util_.GenerateCapture(&container_, set_.Get(), element), S_OK);
  EXPECT_TRUE(ledger().Lines().empty()) << ledger().Text();
}

TEST_F(CurrentBuilders, TTRSGetOneGeometryListPerGeoP) {
  container_.RefuseCreation(RecordingKind::TTRS, 1);
  EXPECT_EQ(util_.GenerateNewTTRS(
                &container_, set_.Get(),
                Xml("<RootTTRSs><TTRS><GeoP>9</GeoP></TTRS><ttrs/><TTRS><TPSLoc Id='3'/>"
                    "<GeoP>1 0 2</GeoP><GeoP/><Other>4</Other><GeoP>5</GeoP></TTRS>"
                    "</RootTTRSs>")),
            S_OK);
  EXPECT_EQ(Operations(),
            "CreateTTRS(S1) -> refused | CreateTTRS(S1) -> T1 | T1.SetName(\"\") | "
            "T1.SetUuid(\"\") | T1.SetType(0) | T1.SetId(3) | T1.SetStatus(0) | "
            "T1.AddGeometry([1,2]) | T1.AddGeometry([]) | T1.AddGeometry([5])");

  ledger().Clear();
  container_.RefuseInterface(RecordingKind::TTRS, VEKITPSLight::kIID);
  VEKLightXmlElement single = Xml("<TTRS><GeoP>8</GeoP></TTRS>");
  EXPECT_EQ(util_.BuildNewTTRS(&container_, set_.Get(), single), S_OK);
  EXPECT_EQ(Operations(), "CreateTTRS(S1) -> T2 | T2.AddGeometry([8])");
  container_.RefuseCreation(RecordingKind::TTRS);
  EXPECT_EQ(util_.BuildNewTTRS(&container_, set_.Get(), single), E_FAIL);
}

TEST_F(CurrentBuilders, AnnotationReadsItsAttributesInOrder) {
  EXPECT_EQ(util_.GenerateNewAnnotations(
                &container_, set_.Get(),
                Xml("<RootTPSs><TPS Val='2.5' Def='5' Ref='3' Att='x'><TTRS>4 0 7</TTRS>" +
                    RepXml("2") + "<TTRS>1</TTRS></TPS><TPS/></RootTPSs>")),
            S_OK);
  EXPECT_EQ(Operations(), "CreateAnnotation(S1) -> A1 | " + Blank("A1") +
                              " | A1.SetValue(2.5) | A1.SetDefault(1) | A1.SetReference(3) | "
                              "A1.SetAttribute(\"x\") | A1.SetGraphicRep(rep) | A1.AddTTRS(4) | "
                              "A1.AddTTRS(7) | A1.AddTTRS(1) | CreateAnnotation(S1) -> A2 | " +
                              Blank("A2") +
                              " | A2.SetValue(0) | A2.SetReference(0) | A2.SetAttribute(\"\")");

  // Without the common face the four attributes are not read; the rest still is.
  ledger().Clear();
  container_.RefuseInterface(RecordingKind::Annotation, VEKITPSLight::kIID);
  VEKLightXmlElement refused = Xml("<TPS Val='1'>" + RepXml("2") + "<TTRS>6</TTRS></TPS>");
  VEKRawCollPV groups(0);
  EXPECT_EQ(util_.BuildNewAnnotation(&container_, set_.Get(), refused, &groups), S_OK);
  EXPECT_EQ(Operations(), "CreateAnnotation(S1) -> A3 | A3.SetGraphicRep(rep) | A3.AddTTRS(6)");
  container_.RefuseCreation(RecordingKind::Annotation);
  EXPECT_EQ(util_.BuildNewAnnotation(&container_, set_.Get(), refused, &groups), E_FAIL);
  EXPECT_EQ(groups.Size(), 0);
}

TEST_F(CurrentBuilders, OrderGroupsPairByPosition) {
  // A refused annotation adds no entry, so the pairing stays aligned; non-positive ids drop.
  container_.RefuseCreation(RecordingKind::Annotation, 2);
  BuildAnnotations(
      "<TPS><TPSLoc Id='1'/><Grou>3 -1</Grou></TPS><TPS><Grou>1</Grou></TPS>"
      "<TPS><TPSLoc Id='3'/><Grou>0 9 1</Grou></TPS>");
  EXPECT_EQ(util_.GenerateNewAnnotations(&container_, set_.Get(), Xml("<RootTPSs/>")), S_OK);
  EXPECT_TRUE(ledger().Lines().empty());
  EXPECT_EQ(GroupOf("A1"), std::vector{Identity("A2")});
  EXPECT_EQ(GroupOf("A2"), std::vector{Identity("A1")});
}

TEST_F(CurrentBuilders, OrderGroupsNeedOneEntryPerAnnotation) {
  // An entry whose ids all drop links nothing but keeps its place.
  BuildAnnotations(
      "<TPS><TPSLoc Id='1'/><Grou>0 -4</Grou></TPS><TPS><TPSLoc Id='2'/><Grou>1</Grou></TPS>");
  EXPECT_EQ(GroupOf("A1"), std::vector<const VEKBaseUnknown*>{nullptr});
  EXPECT_EQ(GroupOf("A2"), std::vector{Identity("A1")});
  // Two entries for one more annotation (three in the set): the counts differ, nothing links.
  BuildAnnotations("<TPS><Grou>1</Grou><Grou>1</Grou></TPS>");
  EXPECT_EQ(GroupOf("A3"), std::vector<const VEKBaseUnknown*>{nullptr});
}

TEST_F(CurrentBuilders, ViewLinksTheAnnotationsOfItsFirstTPSs) {
  container_.RefuseInterface("A2", VEKITPSLightModel::kIID);
  BuildAnnotations("<TPS><TPSLoc Id='3'/></TPS><TPS><TPSLoc Id='4'/></TPS>");
  VEKLightXmlElement view = Xml(
      "<TPSView><Or>9 9 9</Or><TPSs>3 8 4 3</TPSs><TPSs>4</TPSs>"
      "<Math><Or>1 2 3</Or><No></No><X>1 1 1</X><Di>0 1 0</Di></Math><Math><Or>4 5 6</Or></Math>"
      "</TPSView>");
  EXPECT_EQ(util_.BuildNewView(&container_, set_.Get(), view), S_OK);
  EXPECT_EQ(Operations(), "CreateView(S1) -> V1 | " + Blank("V1") +
                              " | S1.GetObjectFromId(3, 1) -> A1 | A1.SetView(V1) | V1.AddTPS(A1) "
                              "| S1.GetObjectFromId(8, 1) -> fail | S1.GetObjectFromId(4, 1) -> A2 "
                              "| V1.AddTPS(A2) | S1.GetObjectFromId(3, 1) -> A1 | A1.SetView(V1) | "
                              "V1.AddTPS(A1) | V1.SetOrigin(1, 2, 3) | V1.SetNormal(0, 0, 0) | "
                              "V1.SetDirection(0, 1, 0) | V1.SetOrigin(4, 5, 6)");

  // Without a broker no link is made, and the geometry is still read.
  ledger().Clear();
  container_.RemoveBroker();
  VEKLightXmlElement unlinked = Xml("<TPSView><TPSs>3</TPSs><Math><Di>1 0 0</Di></Math></TPSView>");
  EXPECT_EQ(util_.BuildNewView(&container_, set_.Get(), unlinked), S_OK);
  EXPECT_EQ(Operations(), "CreateView(S1) -> V2 | " + Blank("V2") + " | V2.SetDirection(1, 0, 0)");
  container_.RefuseCreation(RecordingKind::View);
  EXPECT_EQ(util_.BuildNewView(&container_, set_.Get(), unlinked), E_FAIL);
}

TEST_F(CurrentBuilders, RefFrameResolvesDatumsThroughTheBrokerPerChild) {
  BuildAnnotations("<TPS><TPSLoc Id='1'/></TPS><TPS><TPSLoc Id='2'/></TPS>");
  VEKLightXmlElement frame =
      Xml("<RefFrame><Datum>2 5</Datum><TTRS>4 4</TTRS><Datum/><Datum>1</Datum></RefFrame>");
  EXPECT_EQ(util_.BuildNewRefFrame(&container_, set_.Get(), frame), S_OK);
  EXPECT_EQ(Joined(ledger().Filter("S1.")),
            "S1.QueryInterface(VEKITPSIdBroker) -> ok | S1.GetObjectFromId(2, 1) -> A2 | "
            "S1.GetObjectFromId(5, 1) -> fail | S1.Release() | "
            "S1.QueryInterface(VEKITPSIdBroker) -> ok | S1.GetObjectFromId(1, 1) -> A1 | "
            "S1.Release()");
  EXPECT_EQ(Joined(ledger().Filter("R1.A")),
            "R1.AddDatum(A2) | R1.AddTTRS(4) | R1.AddTTRS(4) | R1.AddDatum(A1)");
  EXPECT_EQ(Joined(ledger().Filter("R1.SetA")), "R1.SetAttribute(\"\")");

  ledger().Clear();
  container_.RefuseInterface(RecordingKind::RefFrame, VEKITPSLight::kIID);
  container_.RemoveBroker();
  EXPECT_EQ(util_.BuildNewRefFrame(&container_, set_.Get(), frame), S_OK);
  EXPECT_EQ(Operations(), "CreateRefFrame(S1) -> R2 | R2.AddTTRS(4) | R2.AddTTRS(4)");
}

TEST_F(CurrentBuilders, ConstructionGeometryInterleavesItsListsAndNeedsTheCommonFace) {
  VEKLightXmlElement geometry =
      Xml("<TPSCG Att='g'><TRep>7</TRep><TTRS>1 2</TTRS><TRep>8</TRep></TPSCG>");
  EXPECT_EQ(util_.BuildNewCG(&container_, set_.Get(), geometry), S_OK);
  EXPECT_EQ(Operations(), "CreateCG(S1) -> G1 | " + Blank("G1") +
                              " | G1.SetAttribute(\"g\") | G1.AddTRep(7) | G1.AddTTRS(1) | "
                              "G1.AddTTRS(2) | G1.AddTRep(8)");
  // The common face is released only after the lists, then the object.
  const std::string all = Joined(ledger().Lines());
  EXPECT_EQ(all.substr(all.rfind("G1.AddTRep(8)")), "G1.AddTRep(8) | G1.Release() | G1.Release()");

  ledger().Clear();
  container_.RefuseInterface(RecordingKind::CG, VEKITPSLight::kIID);
  EXPECT_EQ(util_.BuildNewCG(&container_, set_.Get(), geometry), E_FAIL);
  EXPECT_EQ(Operations(), "CreateCG(S1) -> G2");
  container_.RefuseCreation(RecordingKind::CG);
  EXPECT_EQ(util_.GenerateNewCG(&container_, set_.Get(), Xml("<RootCGs><TPSCG/></RootCGs>")), S_OK);
}

TEST_F(CurrentBuilders, CaptureTellsItsActiveViewFirstAndStopsAtTheCamera) {
  BuildAnnotations("<TPS><TPSLoc Id='1'/></TPS>");
  ASSERT_EQ(util_.GenerateNewViews(&container_, set_.Get(),
                                   Xml("<RootViews><TPSView><TPSLoc Id='2'/></TPSView>"
                                       "</RootViews>")),
            S_OK);
  ledger().Clear();

  VEKLightXmlElement capture =
      Xml("<TPSCap ActVie='2'>" + RepXml("2") +
          "<Views>1 2</Views><TPSs>1</TPSs><CGs>1</CGs>"
          "<Cam><X/><Di>0 0 1</Di><Po></Po><Ta>x</Ta></Cam><TPSs>1</TPSs><Cam Type='4'/></TPSCap>");
  EXPECT_EQ(util_.BuildNewCapture(&container_, set_.Get(), capture), S_OK);
  EXPECT_EQ(Operations(),
            "CreateCapture(S1) -> C1 | " + Blank("C1") +
                " | S1.GetObjectFromId(2, 2) -> V1 | V1.AddCapture(C1) | C1.SetActiveView(V1) | "
                "C1.SetClippingPlane(0) | C1.SetGraphicRep(rep) | "
                "S1.GetObjectFromId(1, 2) -> fail | S1.GetObjectFromId(2, 2) -> V1 | "
                "C1.AddView(V1) | S1.GetObjectFromId(1, 1) -> A1 | C1.AddTPS(A1) | "
                "S1.GetObjectFromId(1, 5) -> fail | C1.SetCameraType(0) | "
                "C1.SetCameraDirection(0, 0, 1) | C1.SetCameraPosition(0, 0, 1) | "
                "C1.SetCameraTarget(0, 0, 1)");

  // A capture without its plain face cannot be told to the view, but the view is still active.
  ledger().Clear();
  container_.RefuseInterface("C2", VEKBaseUnknown::kIID);
  EXPECT_EQ(util_.BuildNewCapture(&container_, set_.Get(), Xml("<TPSCap ActVie='2' ClipPla='3'/>")),
            S_OK);
  EXPECT_EQ(Operations(), "CreateCapture(S1) -> C2 | " + Blank("C2") +
                              " | S1.GetObjectFromId(2, 2) -> V1 | C2.SetActiveView(V1) | "
                              "C2.SetClippingPlane(3)");
  // An active view that is not found is skipped; the clipping plane is still read.
  ledger().Clear();
  EXPECT_EQ(util_.BuildNewCapture(&container_, set_.Get(), Xml("<TPSCap ActVie='9'/>")), S_OK);
  EXPECT_EQ(Operations(), "CreateCapture(S1) -> C3 | " + Blank("C3") +
                              " | S1.GetObjectFromId(9, 2) -> fail | C3.SetClippingPlane(0)");
}

TEST_F(CurrentBuilders, CaptureWithoutFacesOrBroker) {
  BuildAnnotations("<TPS><TPSLoc Id='1'/></TPS>");
  VEKLightXmlElement capture =
      Xml("<TPSCap ActVie='1' ClipPla='2'><TPSs>1</TPSs><Cam Type='3'/></TPSCap>");
  container_.RefuseInterface("C1", VEKITPSLight::kIID);
  EXPECT_EQ(util_.BuildNewCapture(&container_, set_.Get(), capture), S_OK);
  EXPECT_EQ(Operations(),
            "CreateCapture(S1) -> C1 | S1.GetObjectFromId(1, 1) -> A1 | C1.AddTPS(A1) | "
            "C1.SetCameraType(3)");

  ledger().Clear();
  container_.RemoveBroker();
  EXPECT_EQ(util_.BuildNewCapture(&container_, set_.Get(), capture), S_OK);
  EXPECT_EQ(Operations(), "CreateCapture(S1) -> C2");
  container_.RefuseCreation(RecordingKind::Capture);
  EXPECT_EQ(util_.BuildNewCapture(&container_, set_.Get(), capture), E_FAIL);
}
