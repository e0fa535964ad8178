#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <vector>

#include "scenarios/camera/surroundings.h"

namespace lidcam::scenarios {
namespace {

constexpr LONGLONG kMicrosecond = 10;

TEST(Surroundings, RequestsTakeFromAHundredMicrosecondsToFiveMilliseconds) {
  Surroundings around(1);
  std::vector<LONGLONG> times(2000);
  std::ranges::generate(times, [&around] { return around.NextRequestTime(); });
  const auto [shortest, longest] = std::ranges::minmax(times);
  EXPECT_GE(shortest, 100 * kMicrosecond);
  EXPECT_LT(shortest, 120 * kMicrosecond);
  EXPECT_LE(longest, 5000 * kMicrosecond);
  EXPECT_GT(longest, 4000 * kMicrosecond);
}

TEST(Surroundings, LightChangesWithinASecondAndBecomesDarkAndBright) {
  Surroundings around(2);
  std::set<int> lumas;
  for (std::uint64_t second = 0; second < 100; ++second) {
    lumas.insert(around.LumaAt(second * 8000));
    lumas.insert(around.LumaAt(second * 8000 + 1));
  }
  EXPECT_LT(*lumas.begin(), 10);
  EXPECT_GT(*lumas.rbegin(), 200);
}

TEST(Surroundings, AreTheSameForTheSameSeed) {
  std::vector<LONGLONG> first;
  std::vector<LONGLONG> second;
  for (std::vector<LONGLONG>* const times : {&first, &second}) {
    Surroundings around(7);
    for (std::uint64_t i = 0; i < 50; ++i) {
      times->push_back(around.NextRequestTime());
      times->push_back(around.LumaAt(i * 3000));
    }
  }
  EXPECT_EQ(first, second);
}

TEST(Surroundings, SomeSeedsHaveNoDriverKey) {
  int without = 0;
  for (std::uint64_t seed = 1; seed <= 100; ++seed) {
    if (Surroundings(seed).DriverKey().empty()) ++without;
  }
  EXPECT_GT(without, 10);
  EXPECT_LT(without, 40);
}

}  // namespace
}  // namespace lidcam::scenarios
