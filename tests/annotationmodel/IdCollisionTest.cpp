// Ids chosen to collide cost the id broker no more than ordinary ones: the two are measured side by
// side in one run, so the comparison holds on a loaded machine.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <numeric>
#include <vector>

#include "ModelTestSupport.h"

namespace {

using namespace vek_test;

constexpr std::size_t kIds = 16384;

// Ids that an unkeyed Fibonacci hash (id * 2^64/phi, top bits) sends to the first 256 slots of
// every table of up to 65536 slots: one cluster holding them all, walked by every look-up.
std::vector<int> CollidingIds(std::size_t count) {
  std::vector<int> ids;
  for (std::uint32_t id = 1; ids.size() < count; ++id)
    if (((id * 0x9E3779B97F4A7C15ull) >> 32) % 65536 < 256) ids.push_back(static_cast<int>(id));
  return ids;
}

// Seconds to give the first half of `ids` to new TTRS of a new set, then to look up every id.
double Cost(const std::vector<int>& ids) {
  const auto start = std::chrono::steady_clock::now();
  auto container = MakeContainer();
  auto set = MakeSet(container.Get());
  for (std::size_t n = 0; n < kIds; ++n) {
    EXPECT_EQ(Query<VEKITPSLight>(Create<VEKITPSLightTTRS>(container.Get(), set.Get()).Get())
                  ->SetId(ids[n]),
              S_OK);
  }
  auto broker = Query<VEKITPSIdBroker>(set.Get());
  for (std::size_t n = 0; n < ids.size(); ++n) {
    VEKComPtr<VEKBaseUnknown> found;
    (void)broker->GetObjectFromId(ids[n], VEKTPSLightKindTTRS, found.ReleaseAndGetAddressOf());
    EXPECT_EQ(static_cast<bool>(found), n < kIds);
  }
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST(IdCollision, CollidingIdsCostAboutWhatOrdinaryIdsCost) {
  const std::vector<int> colliding = CollidingIds(2 * kIds);
  std::vector<int> ordinary(2 * kIds);
  std::iota(ordinary.begin(), ordinary.end(), 1);

  // The best of three rounds, taken in turn, so that a pause of the machine hits neither alone.
  double collidingCost = 1e9;
  double ordinaryCost = 1e9;
  for (int round = 0; round < 3; ++round) {
    ordinaryCost = std::min(ordinaryCost, Cost(ordinary));
    collidingCost = std::min(collidingCost, Cost(colliding));
  }
  EXPECT_LT(collidingCost, 5 * ordinaryCost)
      << "colliding " << collidingCost << " s, ordinary " << ordinaryCost << " s";
  RecordProperty("colliding_us", static_cast<int>(collidingCost * 1e6));
  RecordProperty("ordinary_us", static_cast<int>(ordinaryCost * 1e6));
}

}  // namespace
