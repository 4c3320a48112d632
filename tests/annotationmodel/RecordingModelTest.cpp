// The recording model that the parser's tests rely on: its ledger lines, its controls and its
// reference accounting.
#include <gtest/gtest.h>

#include "ModelTestSupport.h"
#include "RecordingModel.h"

namespace {

using vek_model_test::Query;
using vek_test::Joined;
using vek_test::RecordingContainer;
using vek_test::RecordingKind;

TEST(RecordingModel, WritesOneLinePerCallInTheDocumentedFormat) {
  RecordingContainer container;
  vek_model_test::ForeignObject father;
  VEKComPtr<VEKITPSLightSet> set;
  ASSERT_EQ(container.CreateLightSet(set.ReleaseAndGetAddressOf(), &father), S_OK);
  {
    VEKComPtr<VEKITPSLightAnnotation> annotation;
    VEKComPtr<VEKITPSLightView> view;
    VEKComPtr<VEKITPSLightTTRS> ttrs;
    ASSERT_EQ(container.CreateAnnotation(annotation.ReleaseAndGetAddressOf(), set.Get()), S_OK);
    ASSERT_EQ(container.CreateView(view.ReleaseAndGetAddressOf(), set.Get()), S_OK);
    ASSERT_EQ(container.CreateTTRS(ttrs.ReleaseAndGetAddressOf(), set.Get()), S_OK);
    auto light = Query<VEKITPSLight>(annotation.Get());
    (void)light->SetName(L"Flat \u00e9");
    (void)light->SetId(7);
    (void)light->SetRep(new VEKRep());
    (void)annotation->SetRep(nullptr);
    (void)annotation->SetValue(0.125);
    (void)view->SetOrigin(1, -2.5, 1e20);
    (void)view->AddTPS(annotation.Get());
    auto* ids = new VEKRawCollint();
    (void)ids->Append(4);
    (void)ids->Append(7);
    (void)ttrs->AddGeometry(ids);
    auto* group = new VEKLightObjectList();
    (void)group->Append(annotation.Get());
    (void)group->Append(&father);
    (void)Query<VEKITPSLightModel>(annotation.Get())->SetOrderGroup(group);
    VEKComPtr<VEKBaseUnknown> found;
    (void)Query<VEKITPSIdBroker>(set.Get())->GetObjectFromId(7, 1, found.ReleaseAndGetAddressOf());
    (void)Query<VEKITPSIdBroker>(set.Get())->GetObjectFromId(7, 2, found.ReleaseAndGetAddressOf());
  }
  EXPECT_EQ(Joined(container.GetLedger().Lines()),
            "CreateLightSet(father) -> S1 | CreateAnnotation(S1) -> A1 | CreateView(S1) -> V1 | "
            "CreateTTRS(S1) -> T1 | A1.QueryInterface(VEKITPSLight) -> ok | "
            "A1.SetName(\"Flat \u00e9\") | A1.SetId(7) | A1.SetRep(rep) | "
            "A1.SetGraphicRep(null) | A1.SetValue(0.125) | V1.SetOrigin(1, -2.5, 1e+20) | "
            "V1.AddTPS(A1) | T1.AddGeometry([4,7]) | A1.QueryInterface(VEKITPSLightModel) -> ok | "
            "A1.SetOrderGroup([A1,?]) | A1.Release() | S1.QueryInterface(VEKITPSIdBroker) -> ok | "
            "S1.GetObjectFromId(7, 1) -> A1 | S1.Release() | "
            "S1.QueryInterface(VEKITPSIdBroker) -> ok | A1.Release() | "
            "S1.GetObjectFromId(7, 2) -> fail | S1.Release() | A1.Release() | T1.Release() | "
            "V1.Release() | A1.Release()")
      << container.GetLedger().Text();
  EXPECT_EQ(Joined(container.GetLedger().Filter("T1.")), "T1.AddGeometry([4,7]) | T1.Release()");
  EXPECT_EQ(container.References("S1"), 1) << "the test's own reference";
  EXPECT_EQ(container.OutstandingReferences(), 1);
  EXPECT_EQ(container.OverReleases(), 0);
  EXPECT_EQ(container.NameOf(container.Get<VEKITPSLightView>("V1")), "V1");
  EXPECT_EQ(container.Get<VEKITPSLightAnnotation>("A1")->GetValue(), 0.125);
}

TEST(RecordingModel, ControlsRefuseCreationsAndInterfaces) {
  RecordingContainer container;
  container.RefuseCreation(RecordingKind::Annotation, 2);
  container.RefuseCreation(RecordingKind::CG);
  container.RefuseInterface("A2", VEKITPSLightModel::kIID);
  container.RefuseInterface(RecordingKind::View, VEKITPSLight::kIID);
  container.RemoveBroker();
  VEKComPtr<VEKITPSLightSet> set;
  ASSERT_EQ(container.CreateLightSet(set.ReleaseAndGetAddressOf(), nullptr), S_OK);
  container.GetLedger().Clear();

  VEKComPtr<VEKITPSLightAnnotation> first;
  VEKComPtr<VEKITPSLightAnnotation> refused;
  VEKComPtr<VEKITPSLightAnnotation> second;
  VEKComPtr<VEKITPSLightCG> cg;
  VEKComPtr<VEKITPSLightView> view;
  EXPECT_EQ(container.CreateAnnotation(first.ReleaseAndGetAddressOf(), set.Get()), S_OK);
  EXPECT_EQ(container.CreateAnnotation(refused.ReleaseAndGetAddressOf(), set.Get()), E_FAIL);
  EXPECT_FALSE(refused);
  EXPECT_EQ(container.CreateAnnotation(second.ReleaseAndGetAddressOf(), set.Get()), S_OK);
  EXPECT_EQ(container.CreateCG(cg.ReleaseAndGetAddressOf(), set.Get()), E_FAIL);
  EXPECT_EQ(container.CreateView(view.ReleaseAndGetAddressOf(), nullptr), E_POINTER);
  EXPECT_EQ(container.CreateView(view.ReleaseAndGetAddressOf(), set.Get()), S_OK);
  EXPECT_FALSE(Query<VEKITPSLightModel>(second.Get()));
  EXPECT_TRUE(Query<VEKITPSLightModel>(first.Get()));
  EXPECT_FALSE(Query<VEKITPSLight>(view.Get()));
  EXPECT_FALSE(Query<VEKITPSIdBroker>(set.Get()));
  EXPECT_EQ(Joined(container.GetLedger().Operations()),
            "CreateAnnotation(S1) -> A1 | CreateAnnotation(S1) -> refused | "
            "CreateAnnotation(S1) -> A2 | CreateCG(S1) -> refused | CreateView(null) -> fail | "
            "CreateView(S1) -> V1");
  EXPECT_EQ(Joined(container.GetLedger().Filter("A2.Q")),
            "A2.QueryInterface(VEKITPSLightModel) -> refused");
  EXPECT_EQ(Joined(container.GetLedger().Filter("S1.")),
            "S1.QueryInterface(VEKITPSIdBroker) -> refused");
}

TEST(RecordingModel, BrokerFindsTheFirstCreatedHolderAndCountsReferences) {
  RecordingContainer container;
  VEKComPtr<VEKITPSLightSet> set;
  ASSERT_EQ(container.CreateLightSet(set.ReleaseAndGetAddressOf(), nullptr), S_OK);
  for (int n = 0; n < 2; ++n) {
    VEKComPtr<VEKITPSLightCG> cg;
    ASSERT_EQ(container.CreateCG(cg.ReleaseAndGetAddressOf(), set.Get()), S_OK);
    (void)Query<VEKITPSLight>(cg.Get())->SetId(5);
  }
  auto broker = Query<VEKITPSIdBroker>(set.Get());
  VEKBaseUnknown* found = nullptr;
  ASSERT_EQ(broker->GetObjectFromId(5, VEKTPSLightKindCG, &found), S_OK);
  EXPECT_EQ(container.NameOf(found), "G1");
  EXPECT_EQ(container.References("G1"), 1);
  EXPECT_EQ(container.OutstandingReferences(), 3) << "set, broker face and the found CG";
  found->Release();
  found->Release();
  EXPECT_EQ(container.OverReleases(), 1);
  EXPECT_EQ(container.GetLedger().Lines().back(), "G1.Release() -> over-release");
  EXPECT_EQ(broker->GetObjectFromId(5, VEKTPSLightKindAnnotation, &found), E_FAIL);
  EXPECT_EQ(found, nullptr);
  ASSERT_EQ(set->GetUnresolvedReferences().size(), 1u);
}

}  // namespace
