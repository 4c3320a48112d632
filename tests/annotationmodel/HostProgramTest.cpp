// A host program's round trip: build a set with one object of every family through the
// container, give each every value and link, drop every builder reference, read it all back.
#include <gtest/gtest.h>

#include "ModelTestSupport.h"
#include "RecordingModel.h"

namespace {

using vek_model_test::Create;
using vek_model_test::Identity;
using vek_model_test::MakeContainer;
using vek_model_test::Query;

void SetCommon(VEKBaseUnknown* object, const wchar_t* name, int id) {
  auto light = Query<VEKITPSLight>(object);
  ASSERT_TRUE(light);
  EXPECT_EQ(light->SetName(name), S_OK);
  EXPECT_EQ(light->SetUuid(L"uuid"), S_OK);
  EXPECT_EQ(light->SetType(2), S_OK);
  EXPECT_EQ(light->SetId(id), S_OK);
  EXPECT_EQ(light->SetStatus(1), S_OK);
  EXPECT_EQ(light->SetRep(new VEKRep()), S_OK);
}

// What the host keeps: only the set.
VEKComPtr<VEKITPSLightSet> BuildSet(VEKBaseUnknown* father) {
  auto container = MakeContainer();
  VEKComPtr<VEKITPSLightSet> set;
  EXPECT_EQ(container->CreateLightSet(set.ReleaseAndGetAddressOf(), father), S_OK);
  EXPECT_EQ(set->SetStandard(L"ISO 1101"), S_OK);
  SetCommon(set.Get(), L"Housing", 100);

  auto ttrs = Create<VEKITPSLightTTRS>(container.Get(), set.Get());
  auto datum = Create<VEKITPSLightAnnotation>(container.Get(), set.Get());
  auto flatness = Create<VEKITPSLightAnnotation>(container.Get(), set.Get());
  auto view = Create<VEKITPSLightView>(container.Get(), set.Get());
  auto frame = Create<VEKITPSLightRefFrame>(container.Get(), set.Get());
  auto cg = Create<VEKITPSLightCG>(container.Get(), set.Get());
  auto capture = Create<VEKITPSLightCapture>(container.Get(), set.Get());
  container.Reset();

  SetCommon(ttrs.Get(), L"Plane", 1);
  auto* geometry = new VEKRawCollint();
  EXPECT_EQ(geometry->Append(4), S_OK);
  EXPECT_EQ(geometry->Append(7), S_OK);
  EXPECT_EQ(ttrs->AddGeometry(geometry), S_OK);

  SetCommon(datum.Get(), L"A", 10);
  SetCommon(flatness.Get(), L"Flat 1", 11);
  EXPECT_EQ(flatness->SetValue(0.05), S_OK);
  EXPECT_EQ(flatness->SetDefault(1), S_OK);
  EXPECT_EQ(flatness->AddTTRS(1), S_OK);
  EXPECT_EQ(flatness->SetReference(3), S_OK);
  EXPECT_EQ(flatness->SetAttribute(L"CZ"), S_OK);
  EXPECT_EQ(flatness->SetRep(new VEKRep()), S_OK);

  SetCommon(view.Get(), L"Front", 20);
  EXPECT_EQ(view->SetOrigin(1, 2, 3), S_OK);
  EXPECT_EQ(view->SetNormal(0, 0, 1), S_OK);
  EXPECT_EQ(view->SetDirection(1, 0, 0), S_OK);
  EXPECT_EQ(view->AddTPS(flatness.Get()), S_OK);
  EXPECT_EQ(Query<VEKITPSLightModel>(flatness.Get())->SetView(view.Get()), S_OK);

  auto* group = new VEKLightObjectList();
  EXPECT_EQ(group->Append(datum.Get()), S_OK);
  EXPECT_EQ(Query<VEKITPSLightModel>(flatness.Get())->SetOrderGroup(group), S_OK);

  SetCommon(frame.Get(), L"A|B", 30);
  EXPECT_EQ(frame->AddDatum(datum.Get()), S_OK);
  EXPECT_EQ(frame->AddTTRS(1), S_OK);
  EXPECT_EQ(frame->SetAttribute(L"primary"), S_OK);

  SetCommon(cg.Get(), L"Axis", 40);
  EXPECT_EQ(cg->AddTTRS(1), S_OK);
  EXPECT_EQ(cg->AddTRep(9), S_OK);
  EXPECT_EQ(cg->SetAttribute(L"construction"), S_OK);

  SetCommon(capture.Get(), L"Shot", 50);
  EXPECT_EQ(capture->AddTPS(flatness.Get()), S_OK);
  EXPECT_EQ(capture->AddView(view.Get()), S_OK);
  EXPECT_EQ(capture->SetActiveView(view.Get()), S_OK);
  EXPECT_EQ(view->AddCapture(Identity(capture.Get())), S_OK);
  EXPECT_EQ(capture->SetClippingPlane(1), S_OK);
  EXPECT_EQ(capture->SetCameraPosition(0, 0, 10), S_OK);
  EXPECT_EQ(capture->SetCameraDirection(0, 0, -1), S_OK);
  EXPECT_EQ(capture->SetCameraZenith(0, 1, 0), S_OK);
  EXPECT_EQ(capture->SetCameraTarget(0, 0, 0), S_OK);
  EXPECT_EQ(capture->SetCameraType(2), S_OK);
  EXPECT_EQ(capture->AddCG(cg.Get()), S_OK);
  EXPECT_EQ(capture->SetRep(new VEKRep()), S_OK);
  return set;
}

TEST(HostProgram, ReadsBackEveryValueAndLinkThroughTheSet) {
  vek_model_test::ForeignObject father;
  auto set = BuildSet(&father);
  ASSERT_TRUE(set);
  EXPECT_EQ(set->GetFather(), &father);
  EXPECT_EQ(father.references, 1u) << "the father is kept, never referenced";
  EXPECT_EQ(vek_test::ModelText(set.Get()),
            "S1 Housing/uuid/2/100/1 rep=0 standard=ISO 1101 unresolved=[] duplicates=[]\n"
            "T1 Plane/uuid/2/1/1 rep=0 geometry=[4,7]\n"
            "A1 A/uuid/2/10/1 rep=0 value=- default=0 reference=- attribute=- graphic=- ttrs=[] "
            "group=- views=[]\n"
            "A2 Flat 1/uuid/2/11/1 rep=0 value=0.05 default=1 reference=3 attribute=CZ graphic=0 "
            "ttrs=[1] group=[A1] views=[V1]\n"
            "V1 Front/uuid/2/20/1 rep=0 origin=1,2,3 normal=0,0,1 direction=1,0,0 tps=[A2] "
            "captures=[C1]\n"
            "R1 A|B/uuid/2/30/1 rep=0 attribute=primary datums=[A1] ttrs=[1]\n"
            "G1 Axis/uuid/2/40/1 rep=0 attribute=construction ttrs=[1] treps=[9]\n"
            "C1 Shot/uuid/2/50/1 rep=0 graphic=0 active=V1 clip=1 position=0,0,10 "
            "direction=0,0,-1 zenith=0,1,0 target=0,0,0 type=2 tps=[A2] views=[V1] cgs=[G1]");
  VEKBaseUnknown* flatness = set->GetAnnotations()->Get(1);
  EXPECT_NE(Query<VEKITPSLightAnnotation>(flatness)->GetGraphicRep(),
            Query<VEKITPSLight>(flatness)->GetRep());

  // The broker finds every object by its id and family.
  auto broker = Query<VEKITPSIdBroker>(set.Get());
  ASSERT_TRUE(broker);
  const std::pair<int, const VEKLightObjectList*> families[] = {
      {VEKTPSLightKindTTRS, &set->GetTTRS()},  {VEKTPSLightKindAnnotation, set->GetAnnotations()},
      {VEKTPSLightKindView, &set->GetViews()}, {VEKTPSLightKindRefFrame, &set->GetRefFrames()},
      {VEKTPSLightKindCG, &set->GetCGs()},     {VEKTPSLightKindCapture, &set->GetCaptures()}};
  for (const auto& [kind, list] : families) {
    for (int position = 0; position < list->Count(); ++position) {
      VEKComPtr<VEKBaseUnknown> found;
      const int id = *Query<VEKITPSLight>(list->Get(position))->GetId();
      ASSERT_EQ(broker->GetObjectFromId(id, kind, found.ReleaseAndGetAddressOf()), S_OK) << id;
      EXPECT_EQ(found.Get(), Identity(list->Get(position)));
    }
  }
}

}  // namespace
