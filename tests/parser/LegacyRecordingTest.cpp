// Legacy-schema builders and the order-group pass against the recording model: how they react to
// refusals, that a capture tells its active view first, and that every reference they obtain is
// released. LegacyBuildersTest reads their values back from the real model.
#include <gtest/gtest.h>

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
      ASSERT_EQ(S_OK,
                container_->CreateAnnotation(annotation.ReleaseAndGetAddressOf(), set_.Get()));
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
  std::string Operations() { return Joined(Ledger().Operations()); }

  // Declared before every holder of its objects, so that the holders release first.
  std::unique_ptr<RecordingContainer> container_;
  VEKComPtr<VEKITPSLightSet> set_;
  VEKTPSLightParserUtil parser_;
};

TEST_F(LegacyRecording, OrderGroupsNeedTheBroker) {
  VEKListValVEKUnicodeString ids;
  ASSERT_EQ(S_OK, ids.Append("1"));
  VEKRawCollPV groups(0);
  ASSERT_EQ(S_OK, groups.Append(&ids));
  container_->RemoveBroker();
  EXPECT_EQ(S_OK, parser_.AssoTPSOrderGroup(set_.Get(), groups));
  EXPECT_EQ("S1.GetAnnotations()", Operations());
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
  // Without a control only the result and the release balance are checked.
  enum Control { kNone, kCreation, kLight, kBroker };
  const struct {
    const std::string* xml;
    RecordingKind kind;
    Control control;
    HRESULT result;
    const char* operations;
  } rows[] = {
      {&kTTRS, RecordingKind::TTRS, kNone, S_OK, nullptr},
      {&kAnnotation, RecordingKind::Annotation, kNone, S_OK, nullptr},
      {&kView, RecordingKind::View, kNone, S_OK, nullptr},
      {&kRefFrame, RecordingKind::RefFrame, kNone, S_OK, nullptr},
      // A complete construction geometry build still reports failure.
      {&kCG, RecordingKind::CG, kNone, E_FAIL, nullptr},
      {&kCapture, RecordingKind::Capture, kNone, S_OK, nullptr},
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
    EXPECT_EQ(row.result, Build(*row.xml)) << *row.xml;
    if (row.operations) {
      EXPECT_EQ(row.operations, Operations());
    }
  }
}

}  // namespace
