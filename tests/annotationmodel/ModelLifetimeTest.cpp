// Lifetime and ownership of the model: the shared count, what survives which release, set
// chaining, links across models, and the ownership of representations and lists.
#include <gtest/gtest.h>

#include "FailingAllocator.h"
#include "ModelTestSupport.h"
#include "RecordingModel.h"

namespace {

using vek_model_test::ForeignObject;
using vek_model_test::Identity;
using vek_model_test::MakeContainer;
using vek_model_test::MakeSet;
using vek_model_test::Query;
using vek_model_test::Utf8;

TEST(ModelLifetime, SetAndObjectsShareOneCount) {
  auto container = MakeContainer();
  VEKITPSLightSet* set = nullptr;
  ASSERT_EQ(container->CreateLightSet(&set, nullptr), S_OK);
  VEKITPSLightView* view = nullptr;
  ASSERT_EQ(container->CreateView(&view, set), S_OK);
  EXPECT_EQ(set->AddRef(), 3u);
  EXPECT_EQ(view->Release(), 2u);
  EXPECT_EQ(set->Release(), 1u);
  EXPECT_EQ(set->Release(), 0u);
}

TEST(ModelLifetime, ObjectsOutliveTheContainerAndTheirBuilders) {
  auto container = MakeContainer();
  auto set = MakeSet(container.Get());
  {
    VEKComPtr<VEKITPSLightAnnotation> annotation;
    ASSERT_EQ(container->CreateAnnotation(annotation.GetAddressOf(), set.Get()), S_OK);
    ASSERT_EQ(Query<VEKITPSLight>(annotation.Get())->SetName(L"Flat 1"), S_OK);
  }
  container.Reset();
  ASSERT_EQ(set->GetAnnotations()->Count(), 1);
  EXPECT_EQ(Utf8(Query<VEKITPSLight>(set->GetAnnotations()->Get(0))->GetName()), "Flat 1");
}

TEST(ModelLifetime, AReferenceToOneObjectKeepsTheWholeModel) {
  auto container = MakeContainer();
  auto set = MakeSet(container.Get());
  VEKComPtr<VEKITPSLightView> view;
  VEKComPtr<VEKITPSLightAnnotation> annotation;
  ASSERT_EQ(container->CreateView(view.GetAddressOf(), set.Get()), S_OK);
  ASSERT_EQ(container->CreateAnnotation(annotation.GetAddressOf(), set.Get()), S_OK);
  ASSERT_EQ(Query<VEKITPSLight>(annotation.Get())->SetName(L"Datum A"), S_OK);
  ASSERT_EQ(view->AddTPS(annotation.Get()), S_OK);
  ASSERT_EQ(Query<VEKITPSLight>(set.Get())->SetName(L"Part"), S_OK);
  VEKITPSLightSet* setAddress = set.Get();
  set.Reset();
  annotation.Reset();
  container.Reset();
  EXPECT_EQ(Utf8(Query<VEKITPSLight>(view->GetAnnotations().Get(0))->GetName()), "Datum A");
  EXPECT_EQ(Utf8(Query<VEKITPSLight>(setAddress)->GetName()), "Part");
}

TEST(ModelLifetime, ReleasingTheLastReferenceFreesEveryOwnedValue) {
  // Leak checking after this test shows that reps, lists and groups all went with the model.
  auto container = MakeContainer();
  auto set = MakeSet(container.Get());
  VEKComPtr<VEKITPSLightAnnotation> annotation;
  VEKComPtr<VEKITPSLightTTRS> ttrs;
  VEKComPtr<VEKITPSLightCapture> capture;
  ASSERT_EQ(container->CreateAnnotation(annotation.GetAddressOf(), set.Get()), S_OK);
  ASSERT_EQ(container->CreateTTRS(ttrs.GetAddressOf(), set.Get()), S_OK);
  ASSERT_EQ(container->CreateCapture(capture.GetAddressOf(), set.Get()), S_OK);
  EXPECT_EQ(Query<VEKITPSLight>(annotation.Get())->SetRep(new VEKRep()), S_OK);
  EXPECT_EQ(annotation->SetRep(new VEKRep()), S_OK);
  EXPECT_EQ(capture->SetRep(new VEKRep()), S_OK);
  EXPECT_EQ(Query<VEKITPSLight>(set.Get())->SetRep(new VEKRep()), S_OK);
  EXPECT_EQ(ttrs->AddGeometry(new VEKRawCollint()), S_OK);
  auto* group = new VEKLightObjectList();
  ASSERT_EQ(group->Append(annotation.Get()), S_OK);
  EXPECT_EQ(Query<VEKITPSLightModel>(annotation.Get())->SetOrderGroup(group), S_OK);
  ASSERT_EQ(Query<VEKITPSLight>(ttrs.Get())->SetUuid(L"kept until the end"), S_OK);
}

TEST(ModelLifetime, SetRepFreesTheEarlierRepAndKeepsTheTwoRepsApart) {
  auto container = MakeContainer();
  auto set = MakeSet(container.Get());
  VEKComPtr<VEKITPSLightAnnotation> annotation;
  ASSERT_EQ(container->CreateAnnotation(annotation.GetAddressOf(), set.Get()), S_OK);
  auto light = Query<VEKITPSLight>(annotation.Get());
  VEKRep* common = new VEKRep();
  VEKRep* graphic = new VEKRep();
  EXPECT_EQ(light->SetRep(new VEKRep()), S_OK);
  EXPECT_EQ(light->SetRep(common), S_OK);
  EXPECT_EQ(annotation->SetRep(graphic), S_OK);
  EXPECT_EQ(light->GetRep(), common);
  EXPECT_EQ(annotation->GetGraphicRep(), graphic);
  EXPECT_EQ(light->SetRep(common), S_OK) << "handing back the held rep keeps it";
  EXPECT_EQ(light->GetRep(), common);
  EXPECT_EQ(light->SetRep(nullptr), S_OK);
  EXPECT_EQ(light->GetRep(), nullptr);
  EXPECT_EQ(annotation->GetGraphicRep(), graphic);
}

TEST(ModelLifetime, LinksAcrossModelsAndToForeignObjectsAreRejected) {
  auto container = MakeContainer();
  auto home = MakeSet(container.Get());
  auto away = MakeSet(container.Get());
  VEKComPtr<VEKITPSLightView> view;
  VEKComPtr<VEKITPSLightCapture> capture;
  VEKComPtr<VEKITPSLightRefFrame> frame;
  VEKComPtr<VEKITPSLightAnnotation> local;
  VEKComPtr<VEKITPSLightAnnotation> stranger;
  VEKComPtr<VEKITPSLightView> strangerView;
  ASSERT_EQ(container->CreateView(view.GetAddressOf(), home.Get()), S_OK);
  ASSERT_EQ(container->CreateCapture(capture.GetAddressOf(), home.Get()), S_OK);
  ASSERT_EQ(container->CreateRefFrame(frame.GetAddressOf(), home.Get()), S_OK);
  ASSERT_EQ(container->CreateAnnotation(local.GetAddressOf(), home.Get()), S_OK);
  ASSERT_EQ(container->CreateAnnotation(stranger.GetAddressOf(), away.Get()), S_OK);
  ASSERT_EQ(container->CreateView(strangerView.GetAddressOf(), away.Get()), S_OK);
  ForeignObject foreign;

  VEKBaseUnknown* const outsiders[] = {stranger.Get(), &foreign, nullptr};
  for (VEKBaseUnknown* outsider : outsiders) {
    EXPECT_EQ(view->AddTPS(outsider), E_INVALIDARG);
    EXPECT_EQ(view->AddCapture(outsider), E_INVALIDARG);
    EXPECT_EQ(frame->AddDatum(outsider), E_INVALIDARG);
    EXPECT_EQ(capture->AddTPS(outsider), E_INVALIDARG);
    EXPECT_EQ(capture->AddView(outsider), E_INVALIDARG);
    EXPECT_EQ(capture->AddCG(outsider), E_INVALIDARG);
    EXPECT_EQ(capture->SetActiveView(outsider), E_INVALIDARG);
  }
  EXPECT_EQ(Query<VEKITPSLightModel>(local.Get())->SetView(strangerView.Get()), E_INVALIDARG);
  EXPECT_EQ(view->GetAnnotations().Count(), 0);
  EXPECT_EQ(view->GetCaptures().Count(), 0);
  EXPECT_EQ(frame->GetDatums().Count(), 0);
  EXPECT_EQ(capture->GetAnnotations().Count() + capture->GetViews().Count(), 0);
  EXPECT_EQ(capture->GetCGs().Count(), 0);
  EXPECT_EQ(capture->GetActiveView(), nullptr);
  EXPECT_EQ(Query<VEKITPSLightModel>(local.Get())->GetViews().Count(), 0);
  EXPECT_EQ(foreign.references, 1u) << "every reference the check took was given back";

  // Any face of an object of the same model is accepted and stored as its identity.
  EXPECT_EQ(view->AddTPS(Query<VEKITPSLight>(local.Get()).Get()), S_OK);
  EXPECT_EQ(view->GetAnnotations().Get(0), Identity(local.Get()));
}

TEST(ModelLifetime, CreationNeedsASetOfThisModel) {
  auto container = MakeContainer();
  vek_test::RecordingContainer recording;
  VEKComPtr<VEKITPSLightSet> recordedSet;
  ASSERT_EQ(recording.CreateLightSet(recordedSet.GetAddressOf(), nullptr), S_OK);
  VEKITPSLightAnnotation* annotation = reinterpret_cast<VEKITPSLightAnnotation*>(0x1);
  EXPECT_EQ(container->CreateAnnotation(&annotation, recordedSet.Get()), E_INVALIDARG);
  EXPECT_EQ(annotation, nullptr);
  EXPECT_EQ(container->CreateAnnotation(&annotation, nullptr), E_POINTER);
  auto set = MakeSet(container.Get());
  EXPECT_EQ(container->CreateCG(nullptr, set.Get()), E_POINTER);
  EXPECT_EQ(container->CreateLightSet(nullptr, nullptr), E_POINTER);
  EXPECT_EQ(set->GetCGs().Count(), 0);
}

TEST(ModelLifetime, CreationFailsCleanlyAtEveryAllocation) {
  auto container = MakeContainer();
  auto set = MakeSet(container.Get());
  VEKComPtr<VEKITPSLightTTRS> first;
  ASSERT_EQ(container->CreateTTRS(first.GetAddressOf(), set.Get()), S_OK);
  int failing = 1;
  for (;; ++failing) {
    VEKComPtr<VEKITPSLightTTRS> made;
    HRESULT result;
    {
      vektest::FailingAllocations noMemory(failing);
      result = container->CreateTTRS(made.GetAddressOf(), set.Get());
    }
    if (result == S_OK) break;
    EXPECT_EQ(result, E_OUTOFMEMORY) << "allocation " << failing;
    EXPECT_FALSE(made);
    EXPECT_EQ(set->GetTTRS().Count(), 1);
  }
  EXPECT_EQ(failing, 3) << "the object, then the family list growing to two slots";

  for (failing = 1;; ++failing) {
    VEKComPtr<VEKITPSLightSet> made;
    HRESULT result;
    {
      vektest::FailingAllocations noMemory(failing);
      result = container->CreateLightSet(made.GetAddressOf(), nullptr);
    }
    if (result == S_OK) break;
    EXPECT_EQ(result, E_OUTOFMEMORY) << "allocation " << failing;
    EXPECT_FALSE(made);
  }
  EXPECT_GT(failing, 1);
}

TEST(ModelLifetime, OrderGroupIsTakenOnlyWhenEveryMemberBelongsToTheModel) {
  auto container = MakeContainer();
  auto set = MakeSet(container.Get());
  auto other = MakeSet(container.Get());
  VEKComPtr<VEKITPSLightAnnotation> first;
  VEKComPtr<VEKITPSLightAnnotation> second;
  VEKComPtr<VEKITPSLightAnnotation> stranger;
  ASSERT_EQ(container->CreateAnnotation(first.GetAddressOf(), set.Get()), S_OK);
  ASSERT_EQ(container->CreateAnnotation(second.GetAddressOf(), set.Get()), S_OK);
  ASSERT_EQ(container->CreateAnnotation(stranger.GetAddressOf(), other.Get()), S_OK);
  auto model = Query<VEKITPSLightModel>(first.Get());

  auto* group = new VEKLightObjectList();
  ASSERT_EQ(group->Append(Query<VEKITPSLight>(second.Get()).Get()), S_OK);
  ASSERT_EQ(group->Append(first.Get()), S_OK);
  ASSERT_EQ(model->SetOrderGroup(group), S_OK);
  ASSERT_NE(model->GetOrderGroup(), nullptr);
  ASSERT_EQ(model->GetOrderGroup()->Count(), 2);
  EXPECT_EQ(model->GetOrderGroup()->Get(0), Identity(second.Get()));
  EXPECT_EQ(model->GetOrderGroup()->Get(1), Identity(first.Get()));

  VEKLightObjectList rejected;
  ASSERT_EQ(rejected.Append(second.Get()), S_OK);
  ASSERT_EQ(rejected.Append(stranger.Get()), S_OK);
  EXPECT_EQ(model->SetOrderGroup(&rejected), E_INVALIDARG);
  EXPECT_EQ(model->GetOrderGroup()->Count(), 2) << "the earlier group stays";

  EXPECT_EQ(model->SetOrderGroup(new VEKLightObjectList()), S_OK);
  EXPECT_EQ(model->GetOrderGroup()->Count(), 0);
  EXPECT_EQ(model->SetOrderGroup(nullptr), S_OK);
  EXPECT_EQ(model->GetOrderGroup(), nullptr);
}

TEST(ModelChaining, ASetMadeOverTheLastOneKeepsIt) {
  VEKComPtr<VEKITPSLightSet> first;
  VEKITPSLightSet* slot = nullptr;
  {
    auto container = MakeContainer();
    ASSERT_EQ(container->CreateLightSet(&slot, nullptr), S_OK);
    first.Attach(slot);
    ASSERT_EQ(Query<VEKITPSLight>(first.Get())->SetName(L"first"), S_OK);
  }
  auto container = MakeContainer();
  ASSERT_EQ(container->CreateLightSet(&slot, nullptr), S_OK);
  VEKComPtr<VEKITPSLightSet> second;
  second.Attach(slot);
  ASSERT_NE(second.Get(), first.Get());
  // The reference the slot held passed to the new set.
  VEKITPSLightSet* firstAddress = first.Detach();

  VEKComPtr<VEKITPSLightSet> previous;
  ASSERT_EQ(second->GetPreviousSet(previous.GetAddressOf()), S_OK);
  EXPECT_EQ(previous.Get(), firstAddress);
  EXPECT_EQ(Utf8(Query<VEKITPSLight>(previous.Get())->GetName()), "first");
  VEKComPtr<VEKITPSLightSet> none;
  EXPECT_EQ(previous->GetPreviousSet(none.GetAddressOf()), S_FALSE);
  EXPECT_FALSE(none);
  EXPECT_EQ(second->GetPreviousSet(nullptr), E_POINTER);
}

TEST(ModelChaining, OtherValuesInOutAreNeverFollowed) {
  auto container = MakeContainer();
  VEKITPSLightSet* slot = reinterpret_cast<VEKITPSLightSet*>(0x1);
  ASSERT_EQ(container->CreateLightSet(&slot, nullptr), S_OK);
  VEKComPtr<VEKITPSLightSet> fresh;
  fresh.Attach(slot);
  VEKComPtr<VEKITPSLightSet> previous;
  EXPECT_EQ(fresh->GetPreviousSet(previous.GetAddressOf()), S_FALSE);

  // A freed set's address is stale: it must not be looked through or kept.
  VEKITPSLightSet* stale = fresh.Get();
  fresh.Reset();
  slot = stale;
  ASSERT_EQ(container->CreateLightSet(&slot, nullptr), S_OK);
  VEKComPtr<VEKITPSLightSet> after;
  after.Attach(slot);
  EXPECT_EQ(after->GetPreviousSet(previous.GetAddressOf()), S_FALSE);
  EXPECT_FALSE(previous);
}

TEST(ModelChaining, ReleasingTheLastSetFreesALongChain) {
  auto container = MakeContainer();
  VEKITPSLightSet* slot = nullptr;
  VEKComPtr<VEKITPSLightSet> last;
  for (int n = 0; n < 20000; ++n) {
    (void)last.Detach();  // the reference in the slot passes to the new set
    ASSERT_EQ(container->CreateLightSet(&slot, nullptr), S_OK);
    last.Attach(slot);
  }
  VEKComPtr<VEKITPSLightSet> previous;
  ASSERT_EQ(last->GetPreviousSet(previous.GetAddressOf()), S_OK);
  previous.Reset();
  last.Reset();
}

}  // namespace
