// The current-schema builders, one group per family, through the recording model: the exact
// sequence of model operations, refusals of creation and of interfaces, and the order groups.
#include "CurrentRecordedSupport.h"

using vek_test::Lines;
using vek_test::ParseXml;
using vek_test::RecordingKind;

namespace {

class CurrentBuilders : public vek_test::RecordedTest {
 protected:
  // Builds annotations A1.. from `tps` (the children of "RootTPSs"), then clears the ledger.
  void BuildAnnotations(const std::string& tps) {
    VEKLightXmlElement root = ParseXml("<RootTPSs>" + tps + "</RootTPSs>");
    ASSERT_EQ(util_.GenerateNewAnnotations(&container_, set_.Get(), root), S_OK);
    ledger().Clear();
  }
  // The identity lines every object gets from an element without "TPSId" and "TPSLoc".
  static Lines Blank(const std::string& object) {
    return {object + ".SetName(\"\")", object + ".SetUuid(\"\")", object + ".SetType(0)",
            object + ".SetId(0)", object + ".SetStatus(0)"};
  }
  static Lines Join(std::initializer_list<Lines> parts) {
    Lines all;
    for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
  }
};

}  // namespace

TEST_F(CurrentBuilders, NullContainerOrSetCreatesNothing) {
  VEKLightXmlElement element =
      ParseXml("<R><TTRS/><TPS/><TPSView/><RefFrame/><TPSCG/><TPSCap/></R>");
  VEKRawCollPV groups(0);
  VEKTPSLightContainer* none = nullptr;
  for (VEKITPSLightSet* set : {set_.Get(), static_cast<VEKITPSLightSet*>(nullptr)}) {
    VEKTPSLightContainer* container = set ? none : &container_;
    EXPECT_EQ(util_.GenerateNewTTRS(container, set, element), E_FAIL);
    EXPECT_EQ(util_.BuildNewTTRS(container, set, element), E_FAIL);
    EXPECT_EQ(util_.GenerateNewAnnotations(container, set, element), E_FAIL);
    EXPECT_EQ(util_.BuildNewAnnotation(container, set, element, &groups), E_FAIL);
    EXPECT_EQ(util_.GenerateNewViews(container, set, element), E_FAIL);
    EXPECT_EQ(util_.BuildNewView(container, set, element), E_FAIL);
    EXPECT_EQ(util_.GenerateNewRefFrame(container, set, element), E_FAIL);
    EXPECT_EQ(util_.BuildNewRefFrame(container, set, element), E_FAIL);
    EXPECT_EQ(util_.GenerateNewCG(container, set, element), E_FAIL);
    EXPECT_EQ(util_.BuildNewCG(container, set, element), E_FAIL);
    EXPECT_EQ(util_.GenerateNewCapture(container, set, element), E_FAIL);
    EXPECT_EQ(util_.BuildNewCapture(container, set, element), E_FAIL);
  }
  EXPECT_EQ(util_.BuildNewAnnotation(&container_, set_.Get(), element, nullptr), E_FAIL);
  EXPECT_TRUE(ledger().Lines().empty()) << ledger().Text();
}

TEST_F(CurrentBuilders, TTRSGetOneGeometryListPerGeoP) {
  container_.RefuseCreation(RecordingKind::TTRS, 1);
  VEKLightXmlElement root = ParseXml(
      "<RootTTRSs><TTRS><GeoP>9</GeoP></TTRS><ttrs/>"
      "<TTRS><TPSLoc Id='3'/><GeoP>1 0 2</GeoP><GeoP/><Other>4</Other><GeoP>5</GeoP></TTRS>"
      "</RootTTRSs>");
  EXPECT_EQ(util_.GenerateNewTTRS(&container_, set_.Get(), root), S_OK);
  EXPECT_EQ(Operations(),
            (Lines{"CreateTTRS(S1) -> refused", "CreateTTRS(S1) -> T1", "T1.SetName(\"\")",
                   "T1.SetUuid(\"\")", "T1.SetType(0)", "T1.SetId(3)", "T1.SetStatus(0)",
                   "T1.AddGeometry([1,2])", "T1.AddGeometry([])", "T1.AddGeometry([5])"}));

  ledger().Clear();
  container_.RefuseInterface(RecordingKind::TTRS, VEKITPSLight::kIID);
  VEKLightXmlElement single = ParseXml("<TTRS><GeoP>8</GeoP></TTRS>");
  EXPECT_EQ(util_.BuildNewTTRS(&container_, set_.Get(), single), S_OK);
  EXPECT_EQ(Operations(), (Lines{"CreateTTRS(S1) -> T2", "T2.AddGeometry([8])"}));
  container_.RefuseCreation(RecordingKind::TTRS);
  EXPECT_EQ(util_.BuildNewTTRS(&container_, set_.Get(), single), E_FAIL);
}

TEST_F(CurrentBuilders, AnnotationReadsItsAttributesInOrder) {
  VEKLightXmlElement root =
      ParseXml("<RootTPSs><TPS Val='2.5' Def='5' Ref='3' Att='x'><TTRS>4 0 7</TTRS>" + Rep("2") +
               "<TTRS>1</TTRS></TPS><TPS/></RootTPSs>");
  EXPECT_EQ(util_.GenerateNewAnnotations(&container_, set_.Get(), root), S_OK);
  EXPECT_EQ(Operations(),
            Join({{"CreateAnnotation(S1) -> A1"},
                  Blank("A1"),
                  {"A1.SetValue(2.5)", "A1.SetDefault(1)", "A1.SetReference(3)",
                   "A1.SetAttribute(\"x\")", "A1.SetGraphicRep(rep)", "A1.AddTTRS(4)",
                   "A1.AddTTRS(7)", "A1.AddTTRS(1)", "CreateAnnotation(S1) -> A2"},
                  Blank("A2"),
                  {"A2.SetValue(0)", "A2.SetReference(0)", "A2.SetAttribute(\"\")"}}));

  // Without the common face the four attributes are not read; the rest still is.
  ledger().Clear();
  container_.RefuseInterface(RecordingKind::Annotation, VEKITPSLight::kIID);
  VEKLightXmlElement refused = ParseXml("<TPS Val='1'>" + Rep("2") + "<TTRS>6</TTRS></TPS>");
  VEKRawCollPV groups(0);
  EXPECT_EQ(util_.BuildNewAnnotation(&container_, set_.Get(), refused, &groups), S_OK);
  EXPECT_EQ(Operations(),
            (Lines{"CreateAnnotation(S1) -> A3", "A3.SetGraphicRep(rep)", "A3.AddTTRS(6)"}));
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
  VEKLightXmlElement empty = ParseXml("<RootTPSs/>");
  EXPECT_EQ(util_.GenerateNewAnnotations(&container_, set_.Get(), empty), S_OK);
  EXPECT_TRUE(ledger().Lines().empty());

  auto groupOf = [&](const char* name) {
    return vek_test::Identities(*container_.Get<VEKITPSLightModel>(name)->GetOrderGroup());
  };
  const VEKBaseUnknown* first = vek_test::Identity(container_.Get<VEKITPSLight>("A1"));
  const VEKBaseUnknown* second = vek_test::Identity(container_.Get<VEKITPSLight>("A2"));
  EXPECT_EQ(groupOf("A1"), std::vector{second});
  EXPECT_EQ(groupOf("A2"), std::vector{first});
}

TEST_F(CurrentBuilders, OrderGroupsNeedOneEntryPerAnnotation) {
  // An entry whose ids all drop links nothing but keeps its place.
  BuildAnnotations(
      "<TPS><TPSLoc Id='1'/><Grou>0 -4</Grou></TPS><TPS><TPSLoc Id='2'/><Grou>1</Grou></TPS>");
  EXPECT_EQ(container_.Get<VEKITPSLightModel>("A1")->GetOrderGroup(), nullptr);
  EXPECT_EQ(vek_test::Identities(*container_.Get<VEKITPSLightModel>("A2")->GetOrderGroup()),
            std::vector{vek_test::Identity(container_.Get<VEKITPSLight>("A1"))});
  // Two entries for one more annotation (three in the set): the counts differ, nothing links.
  BuildAnnotations("<TPS><Grou>1</Grou><Grou>1</Grou></TPS>");
  EXPECT_EQ(container_.Get<VEKITPSLightModel>("A3")->GetOrderGroup(), nullptr);
}

TEST_F(CurrentBuilders, ViewLinksTheAnnotationsOfItsFirstTPSs) {
  container_.RefuseInterface("A2", VEKITPSLightModel::kIID);
  BuildAnnotations("<TPS><TPSLoc Id='3'/></TPS><TPS><TPSLoc Id='4'/></TPS>");
  VEKLightXmlElement view = ParseXml(
      "<TPSView><Or>9 9 9</Or><TPSs>3 8 4 3</TPSs><TPSs>4</TPSs>"
      "<Math><Or>1 2 3</Or><No></No><X>1 1 1</X><Di>0 1 0</Di></Math><Math><Or>4 5 6</Or></Math>"
      "</TPSView>");
  EXPECT_EQ(util_.BuildNewView(&container_, set_.Get(), view), S_OK);
  EXPECT_EQ(Operations(),
            Join({{"CreateView(S1) -> V1"},
                  Blank("V1"),
                  {"S1.GetObjectFromId(3, 1) -> A1", "A1.SetView(V1)", "V1.AddTPS(A1)",
                   "S1.GetObjectFromId(8, 1) -> fail", "S1.GetObjectFromId(4, 1) -> A2",
                   "V1.AddTPS(A2)", "S1.GetObjectFromId(3, 1) -> A1", "A1.SetView(V1)",
                   "V1.AddTPS(A1)", "V1.SetOrigin(1, 2, 3)", "V1.SetNormal(0, 0, 0)",
                   "V1.SetDirection(0, 1, 0)", "V1.SetOrigin(4, 5, 6)"}}));

  // Without a broker no link is made, and the geometry is still read.
  ledger().Clear();
  container_.RemoveBroker();
  VEKLightXmlElement unlinked =
      ParseXml("<TPSView><TPSs>3</TPSs><Math><Di>1 0 0</Di></Math></TPSView>");
  EXPECT_EQ(util_.BuildNewView(&container_, set_.Get(), unlinked), S_OK);
  EXPECT_EQ(Operations(),
            Join({{"CreateView(S1) -> V2"}, Blank("V2"), {"V2.SetDirection(1, 0, 0)"}}));
  container_.RefuseCreation(RecordingKind::View);
  EXPECT_EQ(util_.BuildNewView(&container_, set_.Get(), unlinked), E_FAIL);
}

TEST_F(CurrentBuilders, RefFrameResolvesDatumsThroughTheBrokerPerChild) {
  BuildAnnotations("<TPS><TPSLoc Id='1'/></TPS><TPS><TPSLoc Id='2'/></TPS>");
  VEKLightXmlElement frame =
      ParseXml("<RefFrame><Datum>2 5</Datum><TTRS>4 4</TTRS><Datum/><Datum>1</Datum></RefFrame>");
  EXPECT_EQ(util_.BuildNewRefFrame(&container_, set_.Get(), frame), S_OK);
  EXPECT_EQ(ledger().Filter("S1."),
            (Lines{"S1.QueryInterface(VEKITPSIdBroker) -> ok", "S1.GetObjectFromId(2, 1) -> A2",
                   "S1.GetObjectFromId(5, 1) -> fail", "S1.Release()",
                   "S1.QueryInterface(VEKITPSIdBroker) -> ok", "S1.GetObjectFromId(1, 1) -> A1",
                   "S1.Release()"}));
  EXPECT_EQ(ledger().Filter("R1.A"),
            (Lines{"R1.AddDatum(A2)", "R1.AddTTRS(4)", "R1.AddTTRS(4)", "R1.AddDatum(A1)"}));
  EXPECT_EQ(ledger().Filter("R1.SetA"), (Lines{"R1.SetAttribute(\"\")"}));

  ledger().Clear();
  container_.RefuseInterface(RecordingKind::RefFrame, VEKITPSLight::kIID);
  container_.RemoveBroker();
  EXPECT_EQ(util_.BuildNewRefFrame(&container_, set_.Get(), frame), S_OK);
  EXPECT_EQ(Operations(), (Lines{"CreateRefFrame(S1) -> R2", "R2.AddTTRS(4)", "R2.AddTTRS(4)"}));
}

TEST_F(CurrentBuilders, ConstructionGeometryInterleavesItsListsAndNeedsTheCommonFace) {
  VEKLightXmlElement geometry =
      ParseXml("<TPSCG Att='g'><TRep>7</TRep><TTRS>1 2</TTRS><TRep>8</TRep></TPSCG>");
  EXPECT_EQ(util_.BuildNewCG(&container_, set_.Get(), geometry), S_OK);
  EXPECT_EQ(Operations(), Join({{"CreateCG(S1) -> G1"},
                                Blank("G1"),
                                {"G1.SetAttribute(\"g\")", "G1.AddTRep(7)", "G1.AddTTRS(1)",
                                 "G1.AddTTRS(2)", "G1.AddTRep(8)"}}));
  // The common face is released only after the lists, then the object.
  const Lines& lines = ledger().Lines();
  ASSERT_GE(lines.size(), 3u);
  EXPECT_EQ(Lines(lines.end() - 3, lines.end()),
            (Lines{"G1.AddTRep(8)", "G1.Release()", "G1.Release()"}));

  ledger().Clear();
  container_.RefuseInterface(RecordingKind::CG, VEKITPSLight::kIID);
  EXPECT_EQ(util_.BuildNewCG(&container_, set_.Get(), geometry), E_FAIL);
  EXPECT_EQ(Operations(), (Lines{"CreateCG(S1) -> G2"}));
  container_.RefuseCreation(RecordingKind::CG);
  VEKLightXmlElement root = ParseXml("<RootCGs><TPSCG/></RootCGs>");
  EXPECT_EQ(util_.GenerateNewCG(&container_, set_.Get(), root), S_OK);
}

TEST_F(CurrentBuilders, CaptureTellsItsActiveViewFirstAndStopsAtTheCamera) {
  BuildAnnotations("<TPS><TPSLoc Id='1'/></TPS>");
  VEKLightXmlElement views = ParseXml("<RootViews><TPSView><TPSLoc Id='2'/></TPSView></RootViews>");
  ASSERT_EQ(util_.GenerateNewViews(&container_, set_.Get(), views), S_OK);
  ledger().Clear();

  VEKLightXmlElement capture = ParseXml(
      "<TPSCap ActVie='2'>" + Rep("2") +
      "<Views>1 2</Views><TPSs>1</TPSs><CGs>1</CGs>"
      "<Cam><X/><Di>0 0 1</Di><Po></Po><Ta>x</Ta></Cam><TPSs>1</TPSs><Cam Type='4'/></TPSCap>");
  EXPECT_EQ(util_.BuildNewCapture(&container_, set_.Get(), capture), S_OK);
  EXPECT_EQ(
      Operations(),
      Join({{"CreateCapture(S1) -> C1"},
            Blank("C1"),
            {"S1.GetObjectFromId(2, 2) -> V1", "V1.AddCapture(C1)", "C1.SetActiveView(V1)",
             "C1.SetClippingPlane(0)", "C1.SetGraphicRep(rep)", "S1.GetObjectFromId(1, 2) -> fail",
             "S1.GetObjectFromId(2, 2) -> V1", "C1.AddView(V1)", "S1.GetObjectFromId(1, 1) -> A1",
             "C1.AddTPS(A1)", "S1.GetObjectFromId(1, 5) -> fail", "C1.SetCameraType(0)",
             "C1.SetCameraDirection(0, 0, 1)", "C1.SetCameraPosition(0, 0, 1)",
             "C1.SetCameraTarget(0, 0, 1)"}}));

  // A capture without its plain face cannot be told to the view, but the view is still active.
  ledger().Clear();
  container_.RefuseInterface("C2", VEKBaseUnknown::kIID);
  VEKLightXmlElement faceless = ParseXml("<TPSCap ActVie='2' ClipPla='3'/>");
  EXPECT_EQ(util_.BuildNewCapture(&container_, set_.Get(), faceless), S_OK);
  EXPECT_EQ(
      Operations(),
      Join({{"CreateCapture(S1) -> C2"},
            Blank("C2"),
            {"S1.GetObjectFromId(2, 2) -> V1", "C2.SetActiveView(V1)", "C2.SetClippingPlane(3)"}}));
  // An active view that is not found is skipped; the clipping plane is still read.
  ledger().Clear();
  VEKLightXmlElement lost = ParseXml("<TPSCap ActVie='9'/>");
  EXPECT_EQ(util_.BuildNewCapture(&container_, set_.Get(), lost), S_OK);
  EXPECT_EQ(Operations(), Join({{"CreateCapture(S1) -> C3"},
                                Blank("C3"),
                                {"S1.GetObjectFromId(9, 2) -> fail", "C3.SetClippingPlane(0)"}}));
}

TEST_F(CurrentBuilders, CaptureWithoutFacesOrBroker) {
  BuildAnnotations("<TPS><TPSLoc Id='1'/></TPS>");
  VEKLightXmlElement capture =
      ParseXml("<TPSCap ActVie='1' ClipPla='2'><TPSs>1</TPSs><Cam Type='3'/></TPSCap>");
  container_.RefuseInterface("C1", VEKITPSLight::kIID);
  EXPECT_EQ(util_.BuildNewCapture(&container_, set_.Get(), capture), S_OK);
  EXPECT_EQ(Operations(), (Lines{"CreateCapture(S1) -> C1", "S1.GetObjectFromId(1, 1) -> A1",
                                 "C1.AddTPS(A1)", "C1.SetCameraType(3)"}));

  ledger().Clear();
  container_.RemoveBroker();
  EXPECT_EQ(util_.BuildNewCapture(&container_, set_.Get(), capture), S_OK);
  EXPECT_EQ(Operations(), (Lines{"CreateCapture(S1) -> C2"}));
  container_.RefuseCreation(RecordingKind::Capture);
  EXPECT_EQ(util_.BuildNewCapture(&container_, set_.Get(), capture), E_FAIL);
}
