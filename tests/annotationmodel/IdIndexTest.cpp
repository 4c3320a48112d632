// The id index under seeds the test chooses: ids made to collide under a seed run past the probe
// bound, the index redraws its seed and, when the seed never changes, answers from its ordered
// map. Whatever happens it answers as a map does.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <map>
#include <random>
#include <vector>

#include "VEKIdIndex.h"

namespace {

using VEKModelDetail::IdIndex;
using VEKModelDetail::LightObject;

// Seeds handed out so far, and how many of the first ones are 0.
int draws = 0;
int zeroDraws = 0;

std::uint64_t CountedSeed(const void* table) {
  return ++draws <= zeroDraws ? 0 : IdIndex::UnpredictableSeed(table);
}

LightObject* Object(int number) { return reinterpret_cast<LightObject*>((number + 1) * 16); }

// The first `count` ids whose hash under seed 0 has its top 10 bits below `homes`: with 16, their
// homes are the first slots of every table of up to 1024 slots; with 1024, any id qualifies.
std::vector<int> Ids(std::size_t count, std::uint64_t homes) {
  std::vector<int> ids;
  for (int id = 1; ids.size() < count; ++id)
    if ((IdIndex::Hash(id, 0) >> 54) < homes) ids.push_back(id);
  return ids;
}

TEST(IdIndex, AnswersAsAMapWhateverTheRuns) {
  const struct {
    const char* what;
    std::vector<int> ids;
    int zeroDraws;  // INT_MAX: the seed is always 0
    bool ordered;
    int leastDraws;
  } kCases[] = {
      {"ordinary ids", Ids(400, 1024), INT_MAX, false, 7},
      {"a run just within the bound", Ids(100, 16), INT_MAX, false, 5},
      {"runs past the bound under one seed", Ids(400, 16), INT_MAX, true, 9},
      // Six tables (16 to 512 slots) under seed 0, then the run past the bound redraws the seed.
      {"runs past the bound, then a fresh seed", Ids(400, 16), 6, false, 8},
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.what);
    draws = 0;
    zeroDraws = row.zeroDraws;
    IdIndex index(CountedSeed);
    std::map<int, LightObject*> oracle;
    for (std::size_t n = 0; n < row.ids.size(); ++n) {
      const auto [entry, made] = index.TryEmplace(row.ids[n], Object(static_cast<int>(n)));
      ASSERT_TRUE(made);
      ASSERT_EQ(*entry, Object(static_cast<int>(n)));
      oracle.emplace(row.ids[n], Object(static_cast<int>(n)));
    }
    EXPECT_EQ(index.IsOrdered(), row.ordered);
    EXPECT_GE(draws, row.leastDraws);

    std::mt19937 random(7);
    for (int step = 0; step < 20000; ++step) {
      const int id = row.ids[random() % row.ids.size()];
      if (random() % 2 == 0) {
        index.Erase(id);
        oracle.erase(id);
      } else {
        const auto [entry, made] = index.TryEmplace(id, Object(step));
        const auto [expected, inserted] = oracle.emplace(id, Object(step));
        ASSERT_EQ(made, inserted) << "step " << step;
        ASSERT_EQ(*entry, expected->second) << "step " << step;
      }
      const int probe = row.ids[random() % row.ids.size()];
      const auto found = oracle.find(probe);
      LightObject** entry = index.Find(probe);
      ASSERT_EQ(entry ? *entry : nullptr, found == oracle.end() ? nullptr : found->second)
          << "step " << step;
    }
    EXPECT_EQ(index.Find(-1), nullptr);
  }
}

}  // namespace
