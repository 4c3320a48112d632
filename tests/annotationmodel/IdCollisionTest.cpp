// Ids chosen to collide cost the id broker no more than ordinary ones: the two are measured side by
// side in one run, so the comparison holds on a loaded machine.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <vector>

#include "ModelTestSupport.h"

namespace {

using namespace vek_test;

constexpr std::size_t kIds = 16384;

// The first `count` ids that an unkeyed Fibonacci hash (id * 2^64/phi, top bits) sends to the
// first `homes` slots of every table of up to 65536 slots. With 256, one cluster holds them all,
// walked by every look-up; with 65536, any id qualifies.
std::vector<int> Ids(std::size_t count, std::uint32_t homes) {
  std::vector<int> ids;
  for (std::uint32_t id = 1; ids.size() < count; ++id)
    if (((id * 0x9E3779B97F4A7C15ull) >> 32) % 65536 < homes) ids.push_back(static_cast<int>(id));
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
  const std::vector<int> colliding = Ids(2 * kIds, 256);
  const std::vector<int> ordinary = Ids(2 * kIds, 65536);

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
