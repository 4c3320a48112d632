// Values, interfaces and the id broker of the model.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <utility>
#include <vector>

#include "ModelTestSupport.h"

namespace {

using namespace vek_test;

constexpr int kKindSet = 0;

template <class I>
VEKComPtr<VEKBaseUnknown> MakeAs(VEKTPSLightContainer* container, VEKITPSLightSet* set) {
  return Query<VEKBaseUnknown>(Create<I>(container, set).Get());
}

// A new object of `kind` (VEKTPSLightKind) in `set`, or the set itself for kind 0.
VEKComPtr<VEKBaseUnknown> MakeObject(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                                     int kind) {
  using Maker = VEKComPtr<VEKBaseUnknown> (*)(VEKTPSLightContainer*, VEKITPSLightSet*);
  static const Maker kMakers[] = {MakeAs<VEKITPSLightAnnotation>, MakeAs<VEKITPSLightView>,
                                  MakeAs<VEKITPSLightTTRS>,       MakeAs<VEKITPSLightRefFrame>,
                                  MakeAs<VEKITPSLightCG>,         MakeAs<VEKITPSLightCapture>};
  return kind == kKindSet ? Query<VEKBaseUnknown>(set) : kMakers[kind - 1](container, set);
}

class EveryKind : public testing::TestWithParam<int>, protected OneSet {};

TEST_P(EveryKind, AnswersItsInterfacesWithOneIdentity) {
  const std::vector<std::vector<IID>> offered = {
      {VEKITPSLightSet::kIID, VEKITPSLight::kIID, VEKITPSIdBroker::kIID},
      {VEKITPSLightAnnotation::kIID, VEKITPSLight::kIID, VEKITPSLightModel::kIID},
      {VEKITPSLightView::kIID, VEKITPSLight::kIID},
      {VEKITPSLightTTRS::kIID, VEKITPSLight::kIID},
      {VEKITPSLightRefFrame::kIID, VEKITPSLight::kIID},
      {VEKITPSLightCG::kIID, VEKITPSLight::kIID},
      {VEKITPSLightCapture::kIID, VEKITPSLight::kIID}};
  // Every face of every kind, and the container's: each is asked for, some more than once.
  std::vector<IID> every = {VEKTPSLightContainer::kIID};
  for (const std::vector<IID>& faces : offered)
    every.insert(every.end(), faces.begin(), faces.end());
  const std::vector<IID>& mine = offered[static_cast<std::size_t>(GetParam())];
  auto object = MakeObject(container_.Get(), set_.Get(), GetParam());
  for (const IID& iid : every) {
    const bool expected = std::find(mine.begin(), mine.end(), iid) != mine.end();
    void* face = reinterpret_cast<void*>(0x1);
    ASSERT_EQ(object->QueryInterface(iid, &face), expected ? S_OK : E_NOINTERFACE);
    if (!expected) {
      EXPECT_EQ(face, nullptr);
      continue;
    }
    VEKComPtr<VEKBaseUnknown> answered;
    answered.Attach(static_cast<VEKBaseUnknown*>(face));
    EXPECT_EQ(Identity(answered.Get()), object.Get()) << "every face leads to one identity";
  }
  EXPECT_EQ(object->QueryInterface(VEKITPSLight::kIID, nullptr), E_POINTER);
}

INSTANTIATE_TEST_SUITE_P(Kinds, EveryKind,
                         testing::Values(kKindSet, VEKTPSLightKindAnnotation, VEKTPSLightKindView,
                                         VEKTPSLightKindTTRS, VEKTPSLightKindRefFrame,
                                         VEKTPSLightKindCG, VEKTPSLightKindCapture));

// Values start unset, as the JSON export's test of an empty model shows.
class ModelValues : public testing::Test, protected OneSet {};

TEST_F(ModelValues, TheFatherIsKeptNeverReferencedDefaultFollowsTheLastFlagListsKeepDuplicates) {
  ForeignObject father;
  EXPECT_EQ(MakeSet(container_.Get(), &father)->GetFather(), &father);
  EXPECT_EQ(father.references, 1u);
  auto annotation = Make<VEKITPSLightAnnotation>();
  auto ttrs = Make<VEKITPSLightTTRS>();
  for (const auto& [flag, expected] :
       std::vector<std::pair<int, bool>>{{1, true}, {0, false}, {-5, true}, {INT_MIN, true}}) {
    EXPECT_EQ(annotation->SetDefault(flag), S_OK);
    EXPECT_EQ(annotation->IsDefault(), expected) << "flag " << flag;
  }
  for (int id : {4, 4, 0, -1}) EXPECT_EQ(annotation->AddTTRS(id), S_OK);
  EXPECT_EQ(annotation->GetTTRS(), (std::vector<int>{4, 4, 0, -1}));
  EXPECT_EQ(annotation->SetAttribute(nullptr), E_POINTER);
  EXPECT_FALSE(annotation->GetAttribute());

  auto* ids = new VEKRawCollint();
  ASSERT_EQ(ids->Append(7), S_OK);
  EXPECT_EQ(ttrs->AddGeometry(nullptr), S_OK);
  EXPECT_EQ(ttrs->AddGeometry(ids), S_OK);
  EXPECT_EQ(ttrs->GetGeometryCount(), 2);
  EXPECT_EQ((std::vector<const VEKRawCollint*>{ttrs->GetGeometry(-1), ttrs->GetGeometry(0),
                                               ttrs->GetGeometry(1), ttrs->GetGeometry(2)}),
            (std::vector<const VEKRawCollint*>{nullptr, nullptr, ids, nullptr}));
}

class IdBroker : public testing::Test, protected OneSet {
 protected:
  VEKComPtr<VEKBaseUnknown> Make(int kind, std::optional<int> id) {
    auto object = MakeObject(container_.Get(), set_.Get(), kind);
    if (id) {
      EXPECT_EQ(Query<VEKITPSLight>(object.Get())->SetId(*id), S_OK);
    }
    return object;
  }
  // The object found for (id, kind); null when the lookup fails.
  VEKBaseUnknown* Find(int id, int kind) {
    VEKComPtr<VEKBaseUnknown> found;
    const HRESULT result = broker_->GetObjectFromId(id, kind, found.ReleaseAndGetAddressOf());
    EXPECT_EQ(result, found ? S_OK : E_FAIL);
    return found.Get();
  }
  std::vector<std::pair<int, int>> Recorded(const std::vector<VEKTPSLightUnresolved>& list) {
    std::vector<std::pair<int, int>> pairs;
    for (const VEKTPSLightUnresolved& entry : list) pairs.emplace_back(entry.id, entry.kind);
    return pairs;
  }

  VEKComPtr<VEKITPSIdBroker> broker_ = Query<VEKITPSIdBroker>(set_.Get());
};

TEST_F(IdBroker, FindsEachKindSeparatelyAndRecordsEveryMiss) {
  std::vector<VEKComPtr<VEKBaseUnknown>> objects;
  for (int kind = VEKTPSLightKindAnnotation; kind <= VEKTPSLightKindCapture; ++kind)
    objects.push_back(Make(kind, 7));
  ASSERT_EQ(Query<VEKITPSLight>(set_.Get())->SetId(8), S_OK);
  for (int kind = VEKTPSLightKindAnnotation; kind <= VEKTPSLightKindCapture; ++kind)
    EXPECT_EQ(Find(7, kind), objects[static_cast<std::size_t>(kind - 1)].Get());
  EXPECT_EQ(Find(8, VEKTPSLightKindAnnotation), nullptr);
  EXPECT_EQ(Find(7, 0), nullptr);
  EXPECT_EQ(Find(7, 7), nullptr);
  EXPECT_EQ(Find(7, -1), nullptr);
  EXPECT_EQ(broker_->GetObjectFromId(7, VEKTPSLightKindView, nullptr), E_POINTER);
  EXPECT_EQ(Recorded(set_->GetUnresolvedReferences()),
            (std::vector<std::pair<int, int>>{{8, 1}, {7, 0}, {7, 7}, {7, -1}}));
  EXPECT_TRUE(set_->GetDuplicateIds().empty());
}

TEST_F(IdBroker, TheFirstCreatedHolderOfAnIdWinsAndChangingItHandsTheOldOneOn) {
  auto first = Make(VEKTPSLightKindAnnotation, std::nullopt);
  auto second = Make(VEKTPSLightKindAnnotation, 9);
  auto third = Make(VEKTPSLightKindAnnotation, 9);
  EXPECT_EQ(Find(9, VEKTPSLightKindAnnotation), second.Get());
  ASSERT_EQ(Query<VEKITPSLight>(first.Get())->SetId(9), S_OK);
  EXPECT_EQ(Find(9, VEKTPSLightKindAnnotation), first.Get()) << "created earlier, set later";
  ASSERT_EQ(Query<VEKITPSLight>(first.Get())->SetId(9), S_OK);

  auto cg1 = Make(VEKTPSLightKindCG, 5);
  auto cg2 = Make(VEKTPSLightKindCG, 5);
  auto cg3 = Make(VEKTPSLightKindCG, 5);
  ASSERT_EQ(Query<VEKITPSLight>(cg1.Get())->SetId(6), S_OK);
  EXPECT_EQ(Find(5, VEKTPSLightKindCG), cg2.Get());
  EXPECT_EQ(Find(6, VEKTPSLightKindCG), cg1.Get());
  ASSERT_EQ(Query<VEKITPSLight>(cg3.Get())->SetId(6), S_OK);
  EXPECT_EQ(Find(6, VEKTPSLightKindCG), cg1.Get());
  ASSERT_EQ(Query<VEKITPSLight>(cg2.Get())->SetId(1), S_OK);
  EXPECT_EQ(Find(5, VEKTPSLightKindCG), nullptr);
  EXPECT_EQ(Find(1, VEKTPSLightKindCG), cg2.Get());
  EXPECT_EQ(Recorded(set_->GetDuplicateIds()),
            (std::vector<std::pair<int, int>>{{9, 1}, {9, 1}, {5, 5}, {5, 5}, {6, 5}}));
}

}  // namespace
