// Lifetime and ownership of the model: the shared count, what survives which release, set
// chaining, links across models, and the ownership of representations and lists.
#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "FailingAllocator.h"
#include "ModelTestSupport.h"
#include "RecordingModel.h"

namespace {

using namespace vek_test;

class ModelLifetime : public testing::Test, protected OneSet {};

TEST_F(ModelLifetime, SetAndObjectsShareOneCountThatKeepsTheWholeModel) {
  auto annotation = Make<VEKITPSLightAnnotation>();
  ASSERT_EQ(Query<VEKITPSLight>(annotation.Get())->SetName(L"Datum A"), S_OK);
  ASSERT_EQ(Query<VEKITPSLight>(set_.Get())->SetName(L"Part"), S_OK);
  VEKITPSLightView* view = nullptr;
  ASSERT_EQ(container_->CreateView(&view, set_.Get()), S_OK);
  ASSERT_EQ(view->AddTPS(annotation.Get()), S_OK);
  VEKITPSLightSet* set = set_.Detach();
  annotation.Reset();
  container_.Reset();
  EXPECT_EQ(set->AddRef(), 3u);
  EXPECT_EQ(set->Release(), 2u);
  EXPECT_EQ(set->Release(), 1u) << "the view's reference alone keeps the model";
  EXPECT_EQ(Utf8(Query<VEKITPSLight>(view->GetAnnotations().Get(0))->GetName()), "Datum A");
  EXPECT_EQ(Utf8(Query<VEKITPSLight>(set)->GetName()), "Part");
  EXPECT_EQ(view->Release(), 0u);
}

TEST_F(ModelLifetime, SetRepFreesTheEarlierRepAndReleasingTheModelFreesEveryOwnedValue) {
  // Leak checking after this test shows that replaced reps went at once, and the reps, lists and
  // groups still held went with the model.
  auto annotation = Make<VEKITPSLightAnnotation>();
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

  auto ttrs = Make<VEKITPSLightTTRS>();
  EXPECT_EQ(light->SetRep(new VEKRep()), S_OK);
  EXPECT_EQ(Make<VEKITPSLightCapture>()->SetRep(new VEKRep()), S_OK);
  EXPECT_EQ(Query<VEKITPSLight>(set_.Get())->SetRep(new VEKRep()), S_OK);
  EXPECT_EQ(ttrs->AddGeometry(new VEKRawCollint()), S_OK);
  auto* group = new VEKLightObjectList();
  ASSERT_EQ(group->Append(annotation.Get()), S_OK);
  EXPECT_EQ(Query<VEKITPSLightModel>(annotation.Get())->SetOrderGroup(group), S_OK);
  ASSERT_EQ(Query<VEKITPSLight>(ttrs.Get())->SetUuid(L"kept until the end"), S_OK);
  container_.Reset();  // the builders' objects outlive the container
}

TEST_F(ModelLifetime, LinksAndOrderGroupsAcrossModelsOrToForeignObjectsAreRejected) {
  auto away = MakeSet(container_.Get());
  auto view = Make<VEKITPSLightView>();
  auto capture = Make<VEKITPSLightCapture>();
  auto frame = Make<VEKITPSLightRefFrame>();
  auto local = Query<VEKITPSLightModel>(Make<VEKITPSLightAnnotation>().Get());
  auto stranger = Create<VEKITPSLightAnnotation>(container_.Get(), away.Get());
  ForeignObject foreign;

  for (VEKBaseUnknown* outsider :
       {static_cast<VEKBaseUnknown*>(stranger.Get()), static_cast<VEKBaseUnknown*>(&foreign),
        static_cast<VEKBaseUnknown*>(nullptr)}) {
    EXPECT_EQ(view->AddTPS(outsider), E_INVALIDARG);
    EXPECT_EQ(view->AddCapture(outsider), E_INVALIDARG);
    EXPECT_EQ(frame->AddDatum(outsider), E_INVALIDARG);
    EXPECT_EQ(capture->AddTPS(outsider), E_INVALIDARG);
    EXPECT_EQ(capture->AddView(outsider), E_INVALIDARG);
    EXPECT_EQ(capture->AddCG(outsider), E_INVALIDARG);
    EXPECT_EQ(capture->SetActiveView(outsider), E_INVALIDARG);
  }
  EXPECT_EQ(local->SetView(Create<VEKITPSLightView>(container_.Get(), away.Get()).Get()),
            E_INVALIDARG);
  EXPECT_EQ(view->GetAnnotations().Count() + view->GetCaptures().Count(), 0);
  EXPECT_EQ(frame->GetDatums().Count() + local->GetViews().Count(), 0);
  EXPECT_EQ(capture->GetAnnotations().Count() + capture->GetViews().Count(), 0);
  EXPECT_EQ(capture->GetCGs().Count(), 0);
  EXPECT_EQ(capture->GetActiveView(), nullptr);
  EXPECT_EQ(foreign.references, 1u) << "every reference the check took was given back";

  // Any face of an object of the same model is accepted and stored as its identity.
  EXPECT_EQ(view->AddTPS(Query<VEKITPSLight>(local.Get()).Get()), S_OK);
  EXPECT_EQ(view->GetAnnotations().Get(0), Identity(local.Get()));

  // An order group is taken only when every member belongs to the model.
  auto second = Make<VEKITPSLightAnnotation>();
  auto* group = new VEKLightObjectList();
  ASSERT_EQ(group->Append(Query<VEKITPSLight>(second.Get()).Get()), S_OK);
  ASSERT_EQ(group->Append(local.Get()), S_OK);
  ASSERT_EQ(local->SetOrderGroup(group), S_OK);
  ASSERT_NE(local->GetOrderGroup(), nullptr);
  ASSERT_EQ(local->GetOrderGroup()->Count(), 2);
  EXPECT_EQ(local->GetOrderGroup()->Get(0), Identity(second.Get()));
  EXPECT_EQ(local->GetOrderGroup()->Get(1), Identity(local.Get()));

  VEKLightObjectList rejected;
  ASSERT_EQ(rejected.Append(second.Get()), S_OK);
  ASSERT_EQ(rejected.Append(stranger.Get()), S_OK);
  EXPECT_EQ(local->SetOrderGroup(&rejected), E_INVALIDARG);
  EXPECT_EQ(local->GetOrderGroup()->Count(), 2) << "the earlier group stays";

  EXPECT_EQ(local->SetOrderGroup(new VEKLightObjectList()), S_OK);
  EXPECT_EQ(local->GetOrderGroup()->Count(), 0);
  EXPECT_EQ(local->SetOrderGroup(nullptr), S_OK);
  EXPECT_EQ(local->GetOrderGroup(), nullptr);
}

TEST_F(ModelLifetime, CreationFailsCleanlyAtEveryAllocation) {
  auto first = Make<VEKITPSLightTTRS>();
  // Fails allocation 1, 2, ... of `create` until it succeeds; returns the first that succeeds.
  const auto failUntilMade = [](auto made, auto create) {
    for (int failing = 1;; ++failing) {
      HRESULT result;
      {
        vektest::FailingAllocations noMemory(failing);
        result = create(made.ReleaseAndGetAddressOf());
      }
      if (result == S_OK) return failing;
      EXPECT_EQ(result, E_OUTOFMEMORY) << "allocation " << failing;
      EXPECT_FALSE(made);
    }
  };
  EXPECT_EQ(failUntilMade(VEKComPtr<VEKITPSLightTTRS>(),
                          [&](auto out) { return container_->CreateTTRS(out, set_.Get()); }),
            3)
      << "the object, then the family list growing to two slots";
  EXPECT_EQ(set_->GetTTRS().Count(), 2) << "failed creations added nothing";
  EXPECT_GT(failUntilMade(VEKComPtr<VEKITPSLightSet>(),
                          [&](auto out) { return container_->CreateLightSet(out, nullptr); }),
            1);
}

TEST(ModelChaining, ALiveSetInOutIsKeptByTheNewSetAndAnythingElseOverwritten) {
  auto container = MakeContainer();
  VEKComPtr<VEKITPSLightSet> earlier = MakeSet(container.Get());
  VEKComPtr<VEKITPSLightSet> later = MakeSet(container.Get());
  vek_test::RecordingContainer recording;
  VEKComPtr<VEKITPSLightSet> recordedSet;
  ASSERT_EQ(recording.CreateLightSet(recordedSet.ReleaseAndGetAddressOf(), nullptr), S_OK);
  auto annotation = Create<VEKITPSLightAnnotation>(container.Get(), earlier.Get());
  alignas(std::max_align_t) unsigned char stackBytes[64];
  std::vector<StraySet> others = StraySets(stackBytes);
  others.push_back({"another model's set", recordedSet.Get()});
  others.push_back(
      {"an object, not its set", reinterpret_cast<VEKITPSLightSet*>(annotation.Get())});

  EXPECT_TRUE(VEKTPSLightContainer::IsLiveSet(earlier.Get()));
  EXPECT_FALSE(VEKTPSLightContainer::IsLiveSet(nullptr));
  VEKITPSLightTTRS* ttrs = nullptr;
  EXPECT_EQ(container->CreateTTRS(&ttrs, nullptr), E_POINTER);
  EXPECT_EQ(container->CreateCG(nullptr, earlier.Get()), E_POINTER);
  EXPECT_EQ(container->CreateLightSet(nullptr, nullptr), E_POINTER);
  for (const StraySet& other : others) {
    SCOPED_TRACE(other.what);
    EXPECT_FALSE(VEKTPSLightContainer::IsLiveSet(other.value));
    auto* created = reinterpret_cast<VEKITPSLightAnnotation*>(0x1);
    EXPECT_EQ(container->CreateAnnotation(&created, other.value), E_INVALIDARG);
    EXPECT_EQ(created, nullptr);
    // Overwritten, not chained: the new set has no previous one.
    VEKITPSLightSet* slot = other.value;
    ASSERT_EQ(container->CreateLightSet(&slot, nullptr), S_OK);
    VEKComPtr<VEKITPSLightSet> made;
    made.Attach(slot);
    VEKComPtr<VEKITPSLightSet> previous;
    EXPECT_EQ(made->GetPreviousSet(previous.ReleaseAndGetAddressOf()), S_FALSE);
  }
  EXPECT_EQ(recording.GetLedger().Lines().size(), 1u) << "only its own creation";
  EXPECT_EQ(earlier->GetCGs().Count(), 0);

  // Not only the set made last, nor only one of the same container: any live set in *out carries
  // the caller's reference, which the overwrite would lose.
  ASSERT_EQ(Query<VEKITPSLight>(earlier.Get())->SetName(L"earlier"), S_OK);
  VEKITPSLightSet* const earlierAddress = earlier.Get();
  VEKITPSLightSet* slot = earlier.Detach();
  ASSERT_EQ(MakeContainer()->CreateLightSet(&slot, nullptr), S_OK);
  VEKComPtr<VEKITPSLightSet> made;
  made.Attach(slot);
  VEKComPtr<VEKITPSLightSet> previous;
  ASSERT_EQ(made->GetPreviousSet(previous.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(previous.Get(), earlierAddress);
  EXPECT_EQ(Utf8(Query<VEKITPSLight>(previous.Get())->GetName()), "earlier");
  VEKComPtr<VEKITPSLightSet> none;
  EXPECT_EQ(previous->GetPreviousSet(none.ReleaseAndGetAddressOf()), S_FALSE);
  EXPECT_FALSE(none);
  EXPECT_EQ(made->GetPreviousSet(nullptr), E_POINTER);
}

TEST(ModelChaining, ReleasingTheLastSetFreesALongChain) {
  auto container = MakeContainer();
  VEKITPSLightSet* slot = nullptr;  // each set's reference passes to the next one made over it
  for (int n = 0; n < 20000; ++n) ASSERT_EQ(container->CreateLightSet(&slot, nullptr), S_OK);
  VEKComPtr<VEKITPSLightSet> last;
  last.Attach(slot);
  VEKComPtr<VEKITPSLightSet> previous;
  ASSERT_EQ(last->GetPreviousSet(previous.ReleaseAndGetAddressOf()), S_OK);
}

}  // namespace
