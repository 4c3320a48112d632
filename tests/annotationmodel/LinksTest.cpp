// The links of a set in both directions: every link kind of a small model, read from the object
// it names; integer references that resolve and ones that do not; objects of other sets.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "FailingAllocator.h"
#include "ModelTestSupport.h"
#include "VEKTPSLightLinks.h"

namespace {

using namespace vek_test;

// By VEKTPSLightRole.
const char* const kRoleNames[] = {"View",       "OrderGroup", "TTRS",  "Reference",
                                  "Annotation", "Capture",    "Datum", "CaptureView",
                                  "ActiveView", "CG"};

class Links : public testing::Test, protected OneSet {
 protected:
  void SetUp() override {
    t1_ = Make<VEKITPSLightTTRS>("T1", 1);
    t2_ = Make<VEKITPSLightTTRS>("T2", 2);
    t3_ = Make<VEKITPSLightTTRS>("T3", 1);  // a second TTRS with id 1: T1 answers for it
    a1_ = Make<VEKITPSLightAnnotation>("A1", 10);
    a2_ = Make<VEKITPSLightAnnotation>("A2", 11);
    v1_ = Make<VEKITPSLightView>("V1", 20);
    r1_ = Make<VEKITPSLightRefFrame>("R1", 30);
    g1_ = Make<VEKITPSLightCG>("G1", 40);
    c1_ = Make<VEKITPSLightCapture>("C1", 50);

    auto model = Query<VEKITPSLightModel>(a2_.Get());
    ASSERT_EQ(model->SetView(v1_.Get()), S_OK);
    auto* group = new VEKLightObjectList();
    ASSERT_EQ(group->Append(a1_.Get()), S_OK);
    ASSERT_EQ(group->Append(a2_.Get()), S_OK);
    ASSERT_EQ(model->SetOrderGroup(group), S_OK);
    for (int ttrs : {1, 2, 99}) ASSERT_EQ(a2_->AddTTRS(ttrs), S_OK);
    ASSERT_EQ(a2_->SetReference(30), S_OK);
    ASSERT_EQ(a1_->SetReference(31), S_OK);  // no reference frame carries 31
    ASSERT_EQ(v1_->AddTPS(a1_.Get()), S_OK);
    ASSERT_EQ(v1_->AddTPS(Query<VEKITPSLight>(a2_.Get()).Get()), S_OK);
    ASSERT_EQ(v1_->AddCapture(c1_.Get()), S_OK);
    ASSERT_EQ(r1_->AddDatum(a1_.Get()), S_OK);
    ASSERT_EQ(r1_->AddTTRS(2), S_OK);
    ASSERT_EQ(g1_->AddTTRS(1), S_OK);
    ASSERT_EQ(c1_->AddTPS(a2_.Get()), S_OK);
    ASSERT_EQ(c1_->AddView(v1_.Get()), S_OK);
    ASSERT_EQ(c1_->SetActiveView(v1_.Get()), S_OK);
    ASSERT_EQ(c1_->AddCG(g1_.Get()), S_OK);
    links_ = VEKTPSLightLinks::Build(set_.Get());
    ASSERT_TRUE(links_);
  }

  template <class I>
  VEKComPtr<I> Make(const std::string& name, int id) {
    VEKComPtr<I> object = OneSet::Make<I>(id);
    names_[Identity(object.Get())] = name;
    return object;
  }

  // The links naming `object`, as "A2.OrderGroup C1.Annotation".
  std::string Named(VEKBaseUnknown* object) {
    std::string text;
    for (const VEKTPSLightLink& link : links_->ReferencedBy(object))
      text += (text.empty() ? "" : " ") + names_[link.from] + "." +
              kRoleNames[static_cast<int>(link.role)];
    return text;
  }

  std::map<const VEKBaseUnknown*, std::string> names_;
  VEKComPtr<VEKITPSLightTTRS> t1_, t2_, t3_;
  VEKComPtr<VEKITPSLightAnnotation> a1_, a2_;
  VEKComPtr<VEKITPSLightView> v1_;
  VEKComPtr<VEKITPSLightRefFrame> r1_;
  VEKComPtr<VEKITPSLightCG> g1_;
  VEKComPtr<VEKITPSLightCapture> c1_;
  std::unique_ptr<VEKTPSLightLinks> links_;
};

TEST_F(Links, EveryObjectListsTheLinksThatNameItAndIdsResolveAsTheBrokerWithoutRecording) {
  auto other = MakeSet(container_.Get());
  auto stranger = Create<VEKITPSLightAnnotation>(container_.Get(), other.Get());
  ASSERT_EQ(Query<VEKITPSLightModel>(stranger.Get())
                ->SetView(Create<VEKITPSLightView>(container_.Get(), other.Get()).Get()),
            S_OK);
  const struct {
    VEKBaseUnknown* object;
    const char* namedBy;
  } kObjects[] = {
      {t1_.Get(), "A2.TTRS G1.TTRS"},
      {t2_.Get(), "A2.TTRS R1.TTRS"},
      {t3_.Get(), ""},
      {a1_.Get(), "A2.OrderGroup V1.Annotation R1.Datum"},
      {a2_.Get(), "A2.OrderGroup V1.Annotation C1.Annotation"},
      {v1_.Get(), "A2.View C1.CaptureView C1.ActiveView"},
      {r1_.Get(), "A2.Reference"},
      {g1_.Get(), "C1.CG"},
      {c1_.Get(), "V1.Capture"},
      {set_.Get(), ""},
      {nullptr, ""},
      {stranger.Get(), ""},  // objects of another set
      {other.Get(), ""},
  };
  for (const auto& row : kObjects) {
    SCOPED_TRACE(names_[Identity(row.object)]);
    EXPECT_EQ(Named(row.object), row.namedBy);
    // Any face of the object gives the same links.
    EXPECT_EQ(Named(Query<VEKITPSLight>(row.object).Get()), row.namedBy);
  }
  // Integer references resolve as the broker does, without recording.
  EXPECT_EQ(links_->ResolveTTRS(1), Identity(t1_.Get())) << "the first created carrying the id";
  EXPECT_EQ(links_->ResolveTTRS(2), Identity(t2_.Get()));
  EXPECT_EQ(links_->ResolveReference(30), Identity(r1_.Get()));
  EXPECT_EQ(links_->Find(10, VEKTPSLightKindAnnotation), Identity(a1_.Get()));
  EXPECT_EQ(links_->Find(50, VEKTPSLightKindCapture), Identity(c1_.Get()));
  EXPECT_EQ(links_->ResolveTTRS(99), nullptr);
  EXPECT_EQ(links_->ResolveReference(31), nullptr);
  EXPECT_EQ(links_->Find(10, VEKTPSLightKindView), nullptr);
  EXPECT_EQ(links_->Find(10, 0), nullptr);
  EXPECT_EQ(links_->Find(10, 7), nullptr);
  EXPECT_TRUE(set_->GetUnresolvedReferences().empty());
  EXPECT_EQ(VEKTPSLightLinks::Build(nullptr), nullptr);
}

TEST_F(Links, RunningOutOfMemoryGivesNoLinksAndLeavesNothing) {
  const std::string whole = Named(a1_.Get());
  for (std::size_t failing = 1;; ++failing) {
    SCOPED_TRACE(failing);
    const std::size_t liveBefore = vektest::LiveBlocks();
    std::unique_ptr<VEKTPSLightLinks> links;
    {
      vektest::FailingAllocations noMemory(failing);
      links = VEKTPSLightLinks::Build(set_.Get());
    }
    if (links) {
      links_ = std::move(links);
      EXPECT_EQ(Named(a1_.Get()), whole);
      break;
    }
    EXPECT_EQ(vektest::LiveBlocks(), liveBefore);
  }
}

class LinksOfABigModel : public testing::Test, protected OneSet {};

TEST_F(LinksOfABigModel, AreBuiltInOnePass) {
  // Every annotation names the same view and TTRS: lists that a quadratic build would feel.
  constexpr int kAnnotations = 50000;
  auto view = Make<VEKITPSLightView>();
  auto ttrs = Make<VEKITPSLightTTRS>(7);
  for (int n = 0; n < kAnnotations; ++n) {
    auto annotation = Make<VEKITPSLightAnnotation>();
    ASSERT_EQ(Query<VEKITPSLightModel>(annotation.Get())->SetView(view.Get()), S_OK);
    ASSERT_EQ(annotation->AddTTRS(7), S_OK);
    ASSERT_EQ(view->AddTPS(annotation.Get()), S_OK);
  }
  auto links = VEKTPSLightLinks::Build(set_.Get());
  ASSERT_TRUE(links);
  EXPECT_EQ(links->ReferencedBy(view.Get()).size(), static_cast<std::size_t>(kAnnotations));
  EXPECT_EQ(links->ReferencedBy(ttrs.Get()).size(), static_cast<std::size_t>(kAnnotations));
  EXPECT_EQ(links->ReferencedBy(set_->GetAnnotations()->Get(kAnnotations - 1)).size(), 1u);
}

}  // namespace
