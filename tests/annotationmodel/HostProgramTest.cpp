// A host program's round trip: build a set with one object of every family through the
// container, give each every value and link, drop every builder reference, read it all back.
#include <gtest/gtest.h>

#include "ModelTestSupport.h"

namespace {

using vek_model_test::Identity;
using vek_model_test::MakeContainer;
using vek_model_test::Query;
using vek_model_test::Utf8;

void ExpectVector(const std::optional<VEKVector3>& vector, double x, double y, double z) {
  ASSERT_TRUE(vector);
  EXPECT_EQ(vector->x, x);
  EXPECT_EQ(vector->y, y);
  EXPECT_EQ(vector->z, z);
}

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

void ExpectCommon(VEKBaseUnknown* object, const char* name, int id) {
  auto light = Query<VEKITPSLight>(object);
  ASSERT_TRUE(light);
  EXPECT_EQ(Utf8(light->GetName()), name);
  EXPECT_EQ(Utf8(light->GetUuid()), "uuid");
  EXPECT_EQ(light->GetType(), 2);
  EXPECT_EQ(light->GetId(), id);
  EXPECT_EQ(light->GetStatus(), 1);
  EXPECT_NE(light->GetRep(), nullptr);
}

// What the host keeps: only the set.
VEKComPtr<VEKITPSLightSet> BuildSet(VEKBaseUnknown* father) {
  auto container = MakeContainer();
  VEKComPtr<VEKITPSLightSet> set;
  EXPECT_EQ(container->CreateLightSet(set.GetAddressOf(), father), S_OK);
  EXPECT_EQ(set->SetStandard(L"ISO 1101"), S_OK);
  SetCommon(set.Get(), L"Housing", 100);

  VEKComPtr<VEKITPSLightTTRS> ttrs;
  VEKComPtr<VEKITPSLightAnnotation> datum;
  VEKComPtr<VEKITPSLightAnnotation> flatness;
  VEKComPtr<VEKITPSLightView> view;
  VEKComPtr<VEKITPSLightRefFrame> frame;
  VEKComPtr<VEKITPSLightCG> cg;
  VEKComPtr<VEKITPSLightCapture> capture;
  EXPECT_EQ(container->CreateTTRS(ttrs.GetAddressOf(), set.Get()), S_OK);
  EXPECT_EQ(container->CreateAnnotation(datum.GetAddressOf(), set.Get()), S_OK);
  EXPECT_EQ(container->CreateAnnotation(flatness.GetAddressOf(), set.Get()), S_OK);
  EXPECT_EQ(container->CreateView(view.GetAddressOf(), set.Get()), S_OK);
  EXPECT_EQ(container->CreateRefFrame(frame.GetAddressOf(), set.Get()), S_OK);
  EXPECT_EQ(container->CreateCG(cg.GetAddressOf(), set.Get()), S_OK);
  EXPECT_EQ(container->CreateCapture(capture.GetAddressOf(), set.Get()), S_OK);
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
  EXPECT_EQ(Utf8(set->GetStandard()), "ISO 1101");
  ExpectCommon(set.Get(), "Housing", 100);
  auto broker = Query<VEKITPSIdBroker>(set.Get());
  ASSERT_TRUE(broker);

  ASSERT_EQ(set->GetTTRS().Count(), 1);
  auto ttrs = Query<VEKITPSLightTTRS>(set->GetTTRS().Get(0));
  ExpectCommon(ttrs.Get(), "Plane", 1);
  ASSERT_EQ(ttrs->GetGeometryCount(), 1);
  ASSERT_EQ(ttrs->GetGeometry(0)->Size(), 2);
  EXPECT_EQ((*ttrs->GetGeometry(0))[1], 4);
  EXPECT_EQ((*ttrs->GetGeometry(0))[2], 7);

  ASSERT_EQ(set->GetAnnotations()->Count(), 2);
  VEKBaseUnknown* datum = set->GetAnnotations()->Get(0);
  auto flatness = Query<VEKITPSLightAnnotation>(set->GetAnnotations()->Get(1));
  ExpectCommon(datum, "A", 10);
  ExpectCommon(flatness.Get(), "Flat 1", 11);
  EXPECT_EQ(flatness->GetValue(), 0.05);
  EXPECT_TRUE(flatness->IsDefault());
  EXPECT_EQ(flatness->GetTTRS(), std::vector<int>{1});
  EXPECT_EQ(flatness->GetReference(), 3);
  EXPECT_EQ(Utf8(flatness->GetAttribute()), "CZ");
  EXPECT_NE(flatness->GetGraphicRep(), nullptr);
  EXPECT_NE(flatness->GetGraphicRep(), Query<VEKITPSLight>(flatness.Get())->GetRep());
  auto links = Query<VEKITPSLightModel>(flatness.Get());
  ASSERT_EQ(links->GetOrderGroup()->Count(), 1);
  EXPECT_EQ(links->GetOrderGroup()->Get(0), datum);

  ASSERT_EQ(set->GetViews().Count(), 1);
  VEKBaseUnknown* viewIdentity = set->GetViews().Get(0);
  auto view = Query<VEKITPSLightView>(viewIdentity);
  ExpectCommon(view.Get(), "Front", 20);
  ExpectVector(view->GetOrigin(), 1, 2, 3);
  ExpectVector(view->GetNormal(), 0, 0, 1);
  ExpectVector(view->GetDirection(), 1, 0, 0);
  ASSERT_EQ(view->GetAnnotations().Count(), 1);
  EXPECT_EQ(view->GetAnnotations().Get(0), Identity(flatness.Get()));
  ASSERT_EQ(links->GetViews().Count(), 1);
  EXPECT_EQ(links->GetViews().Get(0), viewIdentity);

  ASSERT_EQ(set->GetRefFrames().Count(), 1);
  auto frame = Query<VEKITPSLightRefFrame>(set->GetRefFrames().Get(0));
  ExpectCommon(frame.Get(), "A|B", 30);
  ASSERT_EQ(frame->GetDatums().Count(), 1);
  EXPECT_EQ(frame->GetDatums().Get(0), datum);
  EXPECT_EQ(frame->GetTTRS(), std::vector<int>{1});
  EXPECT_EQ(Utf8(frame->GetAttribute()), "primary");

  ASSERT_EQ(set->GetCGs().Count(), 1);
  VEKBaseUnknown* cgIdentity = set->GetCGs().Get(0);
  auto cg = Query<VEKITPSLightCG>(cgIdentity);
  ExpectCommon(cg.Get(), "Axis", 40);
  EXPECT_EQ(cg->GetTTRS(), std::vector<int>{1});
  EXPECT_EQ(cg->GetTReps(), std::vector<int>{9});
  EXPECT_EQ(Utf8(cg->GetAttribute()), "construction");

  ASSERT_EQ(set->GetCaptures().Count(), 1);
  VEKBaseUnknown* captureIdentity = set->GetCaptures().Get(0);
  auto capture = Query<VEKITPSLightCapture>(captureIdentity);
  ExpectCommon(capture.Get(), "Shot", 50);
  ASSERT_EQ(capture->GetAnnotations().Count(), 1);
  EXPECT_EQ(capture->GetAnnotations().Get(0), Identity(flatness.Get()));
  ASSERT_EQ(capture->GetViews().Count(), 1);
  EXPECT_EQ(capture->GetViews().Get(0), viewIdentity);
  EXPECT_EQ(capture->GetActiveView(), viewIdentity);
  ASSERT_EQ(view->GetCaptures().Count(), 1);
  EXPECT_EQ(view->GetCaptures().Get(0), captureIdentity);
  EXPECT_EQ(capture->GetClippingPlane(), 1);
  ExpectVector(capture->GetCameraPosition(), 0, 0, 10);
  ExpectVector(capture->GetCameraDirection(), 0, 0, -1);
  ExpectVector(capture->GetCameraZenith(), 0, 1, 0);
  ExpectVector(capture->GetCameraTarget(), 0, 0, 0);
  EXPECT_EQ(capture->GetCameraType(), 2);
  ASSERT_EQ(capture->GetCGs().Count(), 1);
  EXPECT_EQ(capture->GetCGs().Get(0), cgIdentity);
  EXPECT_NE(capture->GetGraphicRep(), nullptr);

  const std::pair<int, VEKBaseUnknown*> byId[] = {
      {VEKTPSLightKindTTRS, ttrs.Get()},   {VEKTPSLightKindAnnotation, datum},
      {VEKTPSLightKindView, viewIdentity}, {VEKTPSLightKindRefFrame, frame.Get()},
      {VEKTPSLightKindCG, cgIdentity},     {VEKTPSLightKindCapture, captureIdentity}};
  for (const auto& [kind, object] : byId) {
    VEKComPtr<VEKBaseUnknown> found;
    const int id = *Query<VEKITPSLight>(object)->GetId();
    ASSERT_EQ(broker->GetObjectFromId(id, kind, found.GetAddressOf()), S_OK) << "kind " << kind;
    EXPECT_EQ(found.Get(), Identity(object));
  }
  EXPECT_TRUE(set->GetUnresolvedReferences().empty());
  EXPECT_TRUE(set->GetDuplicateIds().empty());
}

}  // namespace
