// VEKLightObjectList: the growth sequence with order kept across it, and failed growth.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "FailingAllocator.h"
#include "VEKTPSLightModel.h"

namespace {

// Distinct pointers that are never followed: the list does not look at its elements.
VEKBaseUnknown* Fake(int n) {
  return reinterpret_cast<VEKBaseUnknown*>(static_cast<std::uintptr_t>(n + 1) * 16);
}

TEST(LightObjectList, GrowsToOneSlotThenDoubles) {
  // With every allocation refused, an Append succeeds exactly when a free slot remains, which
  // shows where the capacity ran out.
  VEKLightObjectList list;
  std::vector<int> growthAtCount;
  for (int n = 0; n < 40; ++n) {
    {
      vektest::FailingAllocations noMemory(1);
      if (list.Append(Fake(n)) == S_OK) continue;
    }
    growthAtCount.push_back(list.Count());
    ASSERT_EQ(list.Append(Fake(n)), S_OK);
  }
  EXPECT_EQ(growthAtCount, (std::vector<int>{0, 1, 2, 4, 8, 16, 32}));
  ASSERT_EQ(list.Count(), 40);
  for (int n = 0; n < 40; ++n) ASSERT_EQ(list.Get(n), Fake(n)) << "position " << n;
  EXPECT_EQ(list.Get(-1), nullptr);
  EXPECT_EQ(list.Get(40), nullptr);
}

TEST(LightObjectList, FailedGrowthLeavesTheListUnchanged) {
  VEKLightObjectList list;
  ASSERT_EQ(list.Append(Fake(0)), S_OK);
  ASSERT_EQ(list.Append(Fake(1)), S_OK);
  {
    vektest::FailingAllocations noMemory(1);
    EXPECT_EQ(list.Append(Fake(2)), E_OUTOFMEMORY);
  }
  ASSERT_EQ(list.Count(), 2);
  EXPECT_EQ(list.Get(0), Fake(0));
  EXPECT_EQ(list.Get(1), Fake(1));
  EXPECT_EQ(list.Get(2), nullptr);
  EXPECT_EQ(list.Append(Fake(2)), S_OK);
  EXPECT_EQ(list.Get(2), Fake(2));
}

}  // namespace
