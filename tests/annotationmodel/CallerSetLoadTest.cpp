// What a current-schema load does with the caller's *set before the first "AnnotationSet": a live
// set of this model is built into, any other value (freed, uninitialised) is never looked through.
#include <gtest/gtest.h>

#include <cstddef>

#include "ModelTestSupport.h"
#include "ScratchDirectory.h"
#include "VEKTPSLightParserUtil.h"

namespace {

using namespace vek_test;

const char kFamiliesFirst[] =
    "<Functional_Tolerancing_Annotation>"
    "<RootTTRSs><TTRS><TPSLoc Id='1'/></TTRS></RootTTRSs>"
    "<RootTPSs><TPS><TPSLoc Id='2'/></TPS></RootTPSs>"
    "<AnnotationSet Standard='ISO'/>"
    "<RootTTRSs><TTRS><TPSLoc Id='3'/></TTRS></RootTTRSs>"
    "</Functional_Tolerancing_Annotation>";

const char kFamiliesOnly[] =
    "<Functional_Tolerancing_Annotation>"
    "<RootTTRSs><TTRS><TPSLoc Id='1'/></TTRS></RootTTRSs>"
    "</Functional_Tolerancing_Annotation>";

class CallerSetLoad : public testing::Test {
 protected:
  HRESULT Load(const char* document, VEKITPSLightSet** set) {
    VEKUnicodeString source(document);
    return parser_.GenerateLightModelFromBase(source, nullptr, set, 0, nullptr, 0, 0);
  }

  vek_test::ScratchDirectory directory_;  // the load's dump goes here
  VEKTPSLightParserUtil parser_;
};

TEST_F(CallerSetLoad, ValuesThatAreNotLiveSetsAreNeverHandedOn) {
  alignas(std::max_align_t) unsigned char stackBytes[64];
  for (const StraySet& caller : StraySets(stackBytes)) {
    SCOPED_TRACE(caller.what);
    VEKITPSLightSet* slot = caller.value;
    {
      ASSERT_EQ(Load(kFamiliesFirst, &slot), S_OK);
      VEKComPtr<VEKITPSLightSet> set;
      set.Attach(slot);
      // Only what follows "AnnotationSet" was built; the families before it went nowhere.
      ASSERT_EQ(set->GetTTRS().Count(), 1);
      EXPECT_EQ(Query<VEKITPSLight>(set->GetTTRS().Get(0))->GetId(), 3);
      EXPECT_EQ(set->GetAnnotations()->Count(), 0);
      VEKComPtr<VEKITPSLightSet> previous;
      EXPECT_EQ(set->GetPreviousSet(previous.ReleaseAndGetAddressOf()), S_FALSE);
    }  // freed before the next load, which may otherwise find the freed address in use again

    // Without any "AnnotationSet" the load fails as always, and the value is dropped.
    slot = caller.value;
    EXPECT_EQ(Load(kFamiliesOnly, &slot), E_FAIL);
    EXPECT_EQ(slot, nullptr);
  }
}

TEST_F(CallerSetLoad, ALiveSetIsBuiltIntoAndChainedOrLeftOnFailure) {
  VEKComPtr<VEKITPSLightSet> callers = MakeSet(MakeContainer().Get());
  VEKITPSLightSet* const callersAddress = callers.Get();
  VEKITPSLightSet* slot = callers.Detach();  // its reference passes to the load's set
  ASSERT_EQ(Load(kFamiliesFirst, &slot), S_OK);
  VEKComPtr<VEKITPSLightSet> set;
  set.Attach(slot);
  VEKComPtr<VEKITPSLightSet> previous;
  ASSERT_EQ(set->GetPreviousSet(previous.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(previous.Get(), callersAddress);
  EXPECT_EQ(previous->GetTTRS().Count(), 1);
  EXPECT_EQ(previous->GetAnnotations()->Count(), 1);
  EXPECT_EQ(set->GetTTRS().Count(), 1);
  // Without any "AnnotationSet" the builders still fill it, but the load fails and leaves it.
  VEKITPSLightSet* kept = set.Get();
  EXPECT_EQ(Load(kFamiliesOnly, &kept), E_FAIL);
  EXPECT_EQ(kept, set.Get());
  EXPECT_EQ(set->GetTTRS().Count(), 2);
}

}  // namespace
