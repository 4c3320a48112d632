// Legacy-schema builders and the order-group pass against the recording model: which model
// operations they make, in which order, how they react to refusals, and that every reference
// they obtain is released.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ParserTestSupport.h"
#include "RecordingModel.h"
#include "VEKTPSLightParserUtil.h"

namespace {

using vek_test::Joined;
using vek_test::RecordingContainer;
using vek_test::RecordingKind;
using vek_test::Values;

const std::string kTTRS = "<TTRS><Na V=\"n\"/><In V=\"3\"/><Ui V=\"u\"/><Gd>" +
                          Values({";4;7", ""}) + "</Gd><Xx V=\"9\"/></TTRS>";
const std::string kAnnotation =
    "<TPS>" + Values({"3", "2.5", "Flat", "4", "1", "9", "2", "u", "at", ";7;", ";1;x;"}) +
    "</TPS>";
const std::string kView = "<View>" + Values({"3", "Front", "8", "vu", ";1;6;"}) + "<Mt>" +
                          Values({"0;0;1;1;0;0", "4;5;6"}) + "</Mt></View>";
const std::string kRefFrame =
    "<RefFrame>" + Values({"R", "x", "at", "ru", ";1;", ";3;"}) + "</RefFrame>";
const std::string kCG =
    "<CG>" + Values({"5", "Axis", "x", "2", "at", "cu", ";4;", ";9;"}) + "</CG>";
const std::string kCapture =
    "<Capture>" + Values({"11", "2", "6", "Cap", "cu", " 1 ", " 2 ", " 5 "}) + "<Cam>" +
    Values({"1 2 3", "4 5 6", "7 8 9", "1 1 1", "3"}) + "</Cam><Gd><I V=\"1\"/></Gd></Capture>";

// A recording model with a set S1 holding annotation A1 (id 1), view V1 (id 2) and construction
// geometry G1 (id 5), the ledger cleared after their making.
class LegacyRecording : public ::testing::Test {
 protected:
  void SetUp() override { MakeModel(); }
  void TearDown() override { CheckReleased(); }

  void MakeModel() {
    container_.reset(new RecordingContainer());
    ASSERT_EQ(S_OK, container_->CreateLightSet(set_.ReleaseAndGetAddressOf(), nullptr));
    {
      VEKComPtr<VEKITPSLightAnnotation> annotation;
      VEKComPtr<VEKITPSLightView> view;
      VEKComPtr<VEKITPSLightCG> cg;
      ASSERT_EQ(S_OK, container_->CreateAnnotation(annotation.ReleaseAndGetAddressOf(), set_.Get()));
      ASSERT_EQ(S_OK, container_->CreateView(view.ReleaseAndGetAddressOf(), set_.Get()));
      ASSERT_EQ(S_OK, container_->CreateCG(cg.ReleaseAndGetAddressOf(), set_.Get()));
    }
    (void)container_->Get<VEKITPSLight>("A1")->SetId(1);
    (void)container_->Get<VEKITPSLight>("V1")->SetId(2);
    (void)container_->Get<VEKITPSLight>("G1")->SetId(5);
    Ledger().Clear();
  }
  void CheckReleased() {
    set_.Reset();
    EXPECT_EQ(0, container_->OutstandingReferences()) << Ledger().Text();
    EXPECT_EQ(0, container_->OverReleases()) << Ledger().Text();
  }

  // Runs one builder on the single element of `xml`; BuildAnnotation's lists are freed here.
  HRESULT Build(const std::string& xml) {
    VEKLightXmlElement element = vek_test::ParseXml(xml);
    EXPECT_FALSE(element.IsNull());
    const VEKUnicodeString& name = element.GetName();
    VEKTPSLightContainer* container = container_.get();
    if (name == "TTRS") return parser_.BuildTTRS(container, set_.Get(), element);
    if (name == "View") return parser_.BuildView(container, set_.Get(), element);
    if (name == "RefFrame") return parser_.BuildRefFrame(container, set_.Get(), element);
    if (name == "CG") return parser_.BuildCG(container, set_.Get(), element);
    if (name == "Capture") return parser_.BuildCapture(container, set_.Get(), element);
    VEKRawCollPV groups(0);
    const HRESULT result = parser_.BuildAnnotation(container, set_.Get(), element, &groups);
    for (int k = 1; k <= groups.Size(); ++k) {
      delete static_cast<VEKListValVEKUnicodeString*>(groups[k]);
    }
    return result;
  }
  vek_test::Ledger& Ledger() { return container_->GetLedger(); }
  std::string All() { return Joined(Ledger().Lines()); }
  std::string Operations() { return Joined(Ledger().Operations()); }

  // Declared before every holder of its objects, so that the holders release first.
  std::unique_ptr<RecordingContainer> container_;
  VEKComPtr<VEKITPSLightSet> set_;
  VEKTPSLightParserUtil parser_;
};

// Every call of one build, references included: the faces are released after their last use.
TEST_F(LegacyRecording, EachBuilderAppliesItsItemsInOrderAndReleasesEveryFace) {
  const struct {
    const std::string* xml;
    HRESULT result;
    const char* lines;
  } rows[] = {
      {&kTTRS, S_OK,
       "CreateTTRS(S1) -> T1 | T1.QueryInterface(VEKITPSLight) -> ok | T1.SetName(\"n\") | "
       "T1.SetId(3) | T1.SetUuid(\"u\") | T1.Release() | T1.AddGeometry([4,7]) | T1.Release()"},
      {&kAnnotation, S_OK,
       "CreateAnnotation(S1) -> A2 | A2.QueryInterface(VEKITPSLight) -> ok | A2.SetType(3) | "
       "A2.SetValue(2.5) | A2.SetName(\"Flat\") | A2.SetId(4) | A2.SetDefault(1) | "
       "A2.SetReference(9) | A2.SetStatus(2) | A2.SetUuid(\"u\") | A2.SetAttribute(\"at\") | "
       "A2.Release() | A2.AddTTRS(7) | A2.Release()"},
      // The view tells each annotation about itself.
      {&kView, S_OK,
       "CreateView(S1) -> V2 | V2.QueryInterface(VEKITPSLight) -> ok | V2.SetType(3) | "
       "V2.SetName(\"Front\") | V2.SetId(8) | V2.SetUuid(\"vu\") | V2.Release() | "
       "S1.QueryInterface(VEKITPSIdBroker) -> ok | S1.GetObjectFromId(1, 1) -> A1 | "
       "A1.QueryInterface(VEKITPSLightModel) -> ok | A1.SetView(V2) | A1.Release() | "
       "V2.AddTPS(A1) | A1.Release() | S1.GetObjectFromId(6, 1) -> fail | S1.Release() | "
       "V2.SetNormal(0, 0, 1) | V2.SetDirection(1, 0, 0) | V2.SetOrigin(4, 5, 6) | V2.Release()"},
      {&kRefFrame, S_OK,
       "CreateRefFrame(S1) -> R1 | R1.QueryInterface(VEKITPSLight) -> ok | R1.SetName(\"R\") | "
       "R1.SetId(32) | R1.SetAttribute(\"at\") | R1.SetUuid(\"ru\") | R1.Release() | "
       "S1.QueryInterface(VEKITPSIdBroker) -> ok | S1.GetObjectFromId(1, 1) -> A1 | "
       "R1.AddDatum(A1) | A1.Release() | S1.Release() | R1.AddTTRS(3) | R1.Release()"},
      // A complete construction geometry build still reports failure.
      {&kCG, E_FAIL,
       "CreateCG(S1) -> G2 | G2.QueryInterface(VEKITPSLight) -> ok | G2.SetType(5) | "
       "G2.SetName(\"Axis\") | G2.SetId(5) | G2.SetStatus(2) | G2.SetAttribute(\"at\") | "
       "G2.SetUuid(\"cu\") | G2.AddTTRS(4) | G2.AddTRep(9) | G2.Release() | G2.Release()"},
      // The capture links both ways only with its active view.
      {&kCapture, S_OK,
       "CreateCapture(S1) -> C1 | S1.QueryInterface(VEKITPSIdBroker) -> ok | "
       "C1.QueryInterface(VEKITPSLight) -> ok | C1.SetId(11) | S1.GetObjectFromId(2, 2) -> V1 | "
       "V1.QueryInterface(VEKITPSLightView) -> ok | C1.QueryInterface(VEKBaseUnknown) -> ok | "
       "V1.AddCapture(C1) | C1.Release() | V1.Release() | C1.SetActiveView(V1) | V1.Release() | "
       "C1.SetClippingPlane(6) | C1.SetName(\"Cap\") | C1.SetUuid(\"cu\") | C1.Release() | "
       "S1.GetObjectFromId(1, 1) -> A1 | C1.AddTPS(A1) | A1.Release() | "
       "S1.GetObjectFromId(2, 2) -> V1 | C1.AddView(V1) | V1.Release() | "
       "S1.GetObjectFromId(5, 5) -> G1 | C1.AddCG(G1) | G1.Release() | "
       "C1.SetCameraPosition(1, 2, 3) | C1.SetCameraDirection(4, 5, 6) | "
       "C1.SetCameraZenith(7, 8, 9) | C1.SetCameraTarget(1, 1, 1) | C1.SetCameraType(3) | "
       "S1.Release() | C1.Release()"},
  };
  for (const auto& row : rows) {
    CheckReleased();
    MakeModel();
    EXPECT_EQ(row.result, Build(*row.xml)) << *row.xml;
    EXPECT_EQ(row.lines, All());
  }
}

TEST_F(LegacyRecording, OrderGroupsResolveAnnotationsOnly) {
  VEKLightXmlElement refused =
      vek_test::ParseXml("<TolerancingData><Annotations><TPS/></Annotations></TolerancingData>");
  VEKLightXmlElement root =
      vek_test::ParseXml("<TolerancingData><Annotations><TPS>" +
                         Values({"1", "0", "A", "7", "0", "0", "0", "", "", "", ";7;x;2;1;"}) +
                         "</TPS></Annotations></TolerancingData>");
  // No annotation built: the pass does not run.
  EXPECT_EQ(S_OK, parser_.GenerateAnnotations(container_.get(), set_.Get(), refused));
  EXPECT_EQ("", All());
  // Two annotations in the set, one list collected: nothing is linked.
  EXPECT_EQ(S_OK, parser_.GenerateAnnotations(container_.get(), set_.Get(), root));
  EXPECT_TRUE(Ledger().Filter("A2.SetOrderGroup").empty());
  EXPECT_EQ("S1.GetAnnotations()", Joined(Ledger().Filter("S1.")));

  // A2 names itself, then "x" (id 0), then the view's id 2 (not an annotation kind), then A1.
  VEKListValVEKUnicodeString none;
  VEKListValVEKUnicodeString ids;
  for (const char* id : {"7", "x", "2", "1"}) ASSERT_EQ(S_OK, ids.Append(id));
  VEKRawCollPV groups(0);
  ASSERT_EQ(S_OK, groups.Append(&none));
  ASSERT_EQ(S_OK, groups.Append(&ids));
  Ledger().Clear();
  EXPECT_EQ(S_OK, parser_.AssoTPSOrderGroup(set_.Get(), groups));
  EXPECT_EQ(
      "S1.GetAnnotations() | S1.GetObjectFromId(7, 1) -> A2 | S1.GetObjectFromId(0, 1) -> fail | "
      "S1.GetObjectFromId(2, 1) -> fail | S1.GetObjectFromId(1, 1) -> A1 | "
      "A2.SetOrderGroup([A2,A1])",
      Operations());

  container_->RemoveBroker();
  Ledger().Clear();
  EXPECT_EQ(S_OK, parser_.AssoTPSOrderGroup(set_.Get(), groups));
  EXPECT_EQ("S1.GetAnnotations()", Operations());
}

TEST_F(LegacyRecording, EmptyIdListsAskForNoBroker) {
  EXPECT_EQ(S_OK, Build("<View>" + Values({"1", "", "1", "", ""}) + "</View>"));
  EXPECT_EQ(S_OK, Build("<RefFrame>" + Values({"", "1", "", "", "", ";3;"}) + "</RefFrame>"));
  EXPECT_TRUE(Ledger().Filter("S1.").empty()) << Ledger().Text();
}

TEST_F(LegacyRecording, CaptureActiveViewFollowsTheSharedNumber) {
  // Item 2 does not convert: the capture's own number 2 is looked up as the view.
  EXPECT_EQ(S_OK, Build("<Capture>" + Values({"2", "x", "", "", "", "", "", ""}) + "</Capture>"));
  EXPECT_EQ(
      "CreateCapture(S1) -> C1 | C1.SetId(2) | S1.GetObjectFromId(2, 2) -> V1 | "
      "V1.AddCapture(C1) | C1.SetActiveView(V1) | C1.SetClippingPlane(2) | C1.SetName(\"\") | "
      "C1.SetUuid(\"\")",
      Operations());
  // Item 2 of 0 looks nothing up.
  Ledger().Clear();
  EXPECT_EQ(S_OK, Build("<Capture>" + Values({"2", "0", "", "", "", "", "", ""}) + "</Capture>"));
  EXPECT_EQ(
      "CreateCapture(S1) -> C2 | C2.SetId(2) | C2.SetClippingPlane(0) | C2.SetName(\"\") | "
      "C2.SetUuid(\"\")",
      Operations());
}

TEST_F(LegacyRecording, RefusalsLeaveTheRestOfTheBuild) {
  enum Control { kCreation, kLight, kBroker };
  const struct {
    const std::string* xml;
    RecordingKind kind;
    Control control;
    HRESULT result;
    const char* operations;
  } rows[] = {
      {&kTTRS, RecordingKind::TTRS, kCreation, E_FAIL, "CreateTTRS(S1) -> refused"},
      {&kTTRS, RecordingKind::TTRS, kLight, S_OK, "CreateTTRS(S1) -> T1 | T1.AddGeometry([4,7])"},
      {&kAnnotation, RecordingKind::Annotation, kCreation, E_FAIL,
       "CreateAnnotation(S1) -> refused"},
      {&kAnnotation, RecordingKind::Annotation, kLight, S_OK,
       "CreateAnnotation(S1) -> A2 | A2.AddTTRS(7)"},
      {&kView, RecordingKind::View, kCreation, E_FAIL, "CreateView(S1) -> refused"},
      {&kView, RecordingKind::View, kLight, S_OK,
       "CreateView(S1) -> V2 | V2.SetNormal(0, 0, 1) | V2.SetDirection(1, 0, 0) | "
       "V2.SetOrigin(4, 5, 6)"},
      {&kView, RecordingKind::Set, kBroker, S_OK,
       "CreateView(S1) -> V2 | V2.SetType(3) | V2.SetName(\"Front\") | V2.SetId(8) | "
       "V2.SetUuid(\"vu\") | V2.SetNormal(0, 0, 1) | V2.SetDirection(1, 0, 0) | "
       "V2.SetOrigin(4, 5, 6)"},
      {&kRefFrame, RecordingKind::RefFrame, kCreation, E_FAIL, "CreateRefFrame(S1) -> refused"},
      {&kRefFrame, RecordingKind::RefFrame, kLight, S_OK,
       "CreateRefFrame(S1) -> R1 | S1.GetObjectFromId(1, 1) -> A1 | R1.AddDatum(A1) | "
       "R1.AddTTRS(3)"},
      {&kRefFrame, RecordingKind::Set, kBroker, S_OK,
       "CreateRefFrame(S1) -> R1 | R1.SetName(\"R\") | R1.SetId(32) | R1.SetAttribute(\"at\") | "
       "R1.SetUuid(\"ru\") | R1.AddTTRS(3)"},
      {&kCG, RecordingKind::CG, kCreation, E_FAIL, "CreateCG(S1) -> refused"},
      {&kCG, RecordingKind::CG, kLight, E_FAIL, "CreateCG(S1) -> G2"},
      {&kCapture, RecordingKind::Capture, kCreation, E_FAIL, "CreateCapture(S1) -> refused"},
      {&kCapture, RecordingKind::Capture, kLight, S_OK,
       "CreateCapture(S1) -> C1 | S1.GetObjectFromId(1, 1) -> A1 | C1.AddTPS(A1) | "
       "S1.GetObjectFromId(2, 2) -> V1 | C1.AddView(V1) | S1.GetObjectFromId(5, 5) -> G1 | "
       "C1.AddCG(G1) | C1.SetCameraPosition(1, 2, 3) | C1.SetCameraDirection(4, 5, 6) | "
       "C1.SetCameraZenith(7, 8, 9) | C1.SetCameraTarget(1, 1, 1) | C1.SetCameraType(3)"},
      {&kCapture, RecordingKind::Set, kBroker, S_OK, "CreateCapture(S1) -> C1"},
  };
  for (const auto& row : rows) {
    CheckReleased();
    MakeModel();
    if (row.control == kCreation) container_->RefuseCreation(row.kind);
    if (row.control == kLight) container_->RefuseInterface(row.kind, VEKITPSLight::kIID);
    if (row.control == kBroker) container_->RemoveBroker();
    EXPECT_EQ(row.result, Build(*row.xml)) << row.operations;
    EXPECT_EQ(row.operations, Operations());
  }
}

TEST_F(LegacyRecording, MissingArgumentsTouchNothing) {
  VEKLightXmlElement root = vek_test::ParseXml("<TolerancingData/>");
  VEKRawCollPV groups(0);
  using Call = std::function<HRESULT(VEKTPSLightContainer*, VEKITPSLightSet*)>;
  const Call calls[] = {
      [&](auto* c, auto* s) { return parser_.GenerateTTRS(c, s, root); },
      [&](auto* c, auto* s) { return parser_.BuildTTRS(c, s, root); },
      [&](auto* c, auto* s) { return parser_.GenerateAnnotations(c, s, root); },
      [&](auto* c, auto* s) { return parser_.BuildAnnotation(c, s, root, &groups); },
      [&](auto* c, auto* s) { return parser_.GenerateViews(c, s, root); },
      [&](auto* c, auto* s) { return parser_.BuildView(c, s, root); },
      [&](auto* c, auto* s) { return parser_.GenerateRefFrame(c, s, root); },
      [&](auto* c, auto* s) { return parser_.BuildRefFrame(c, s, root); },
      [&](auto* c, auto* s) { return parser_.GenerateCG(c, s, root); },
      [&](auto* c, auto* s) { return parser_.BuildCG(c, s, root); },
      [&](auto* c, auto* s) { return parser_.GenerateCapture(c, s, root); },
      [&](auto* c, auto* s) { return parser_.BuildCapture(c, s, root); },
  };
  for (const Call& call : calls) {
    EXPECT_EQ(E_FAIL, call(nullptr, set_.Get()));
    EXPECT_EQ(E_FAIL, call(container_.get(), nullptr));
  }
  EXPECT_EQ(E_FAIL, parser_.BuildAnnotation(container_.get(), set_.Get(), root, nullptr));
  // Without its family root each walker builds nothing and succeeds.
  EXPECT_EQ(S_OK, parser_.GenerateCapture(container_.get(), set_.Get(), root));
  EXPECT_EQ("", All());
}

}  // namespace
