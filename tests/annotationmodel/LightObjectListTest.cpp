// VEKLightObjectList: the growth sequence, with order kept across it and across failed growth.
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
  // shows where the capacity ran out; one that fails leaves the list as it was.
  VEKLightObjectList list;
  std::vector<int> growthAtCount;
  for (int n = 0; n < 40; ++n) {
    {
      vektest::FailingAllocations noMemory(1);
      const HRESULT result = list.Append(Fake(n));
      if (result == S_OK) continue;
      EXPECT_EQ(result, E_OUTOFMEMORY);
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

}  // namespace
