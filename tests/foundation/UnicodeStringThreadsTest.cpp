// Reads of one string from two threads at once. A program of its own: the allocation-failure hook
// of the other foundation tests replaces the allocator, as ThreadSanitizer's runtime does.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "VEKUnicodeString.h"

namespace {

// One thread splits the string from the front while the other searches it at scattered places,
// so that each keeps moving the cursor the other starts from.
TEST(UnicodeStringThreads, TwoThreadsSearchOneStringAtOnce) {
  std::vector<std::string> items;
  std::vector<int> starts;
  std::vector<int> ends;
  std::string text;
  int position = 0;
  for (int k = 0; k < 3000; ++k) {
    items.push_back("\xC3\xA9" + std::to_string(k) + "\xE2\x82\xAC");  // "é<k>€"
    starts.push_back(position);
    text += items.back() + ';';
    position += static_cast<int>(std::to_string(k).size()) + 2;
    ends.push_back(position++);
  }
  const VEKUnicodeString shared(text.c_str());
  const VEKUnicodeString separator(";");
  ASSERT_EQ(shared.GetLengthInChar(), position);

  // Splits the string once, taking the items `stride` apart; returns the wrong answers.
  const auto split = [&](std::size_t stride) {
    int wrong = 0;
    for (std::size_t i = 0; i < items.size(); ++i) {
      const std::size_t k = i * stride % items.size();
      const int found =
          shared.SearchSubString(separator, starts[k], VEKUnicodeString::VEKSearchForward);
      wrong +=
          found != ends[k] || shared.SubString(starts[k], ends[k] - starts[k]) != items[k].c_str();
    }
    return wrong;
  };
  // Splitting in order costs linear time, far less than the scattered searches, so it repeats
  // for as long as they run.
  std::atomic<bool> scatteredDone{false};
  int wrongInOrder = 0;
  int wrongScattered = 0;
  std::thread inOrder([&] {
    do {
      wrongInOrder += split(1);
    } while (!scatteredDone.load());
  });
  std::thread scattered([&] {
    for (int pass = 0; pass < 3; ++pass) wrongScattered += split(1009);
    scatteredDone.store(true);
  });
  inOrder.join();
  scattered.join();
  EXPECT_EQ(wrongInOrder, 0);
  EXPECT_EQ(wrongScattered, 0);
}

}  // namespace
