#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <vector>

#include "scenarios/camera/surroundings.h"

namespace lidcam::scenarios {
namespace {

constexpr LONGLONG kMicrosecond = 10;

TEST(Surroundings, RequestsTakeFromAHundredMicrosecondsToFiveMilliseconds) {
  Swarm swarm;
  Surroundings around(1, swarm);
  std::vector<LONGLONG> times(2000);
  std::ranges::generate(times, [&around] { return around.NextRequestTime(); });
  const auto [shortest, longest] = std::ranges::minmax(times);
  EXPECT_GE(shortest, 100 * kMicrosecond);
  EXPECT_LT(shortest, 120 * kMicrosecond);
  EXPECT_LE(longest, 5000 * kMicrosecond);
  EXPECT_GT(longest, 4000 * kMicrosecond);
}

TEST(Surroundings, LightChangesWithinASecondAndBecomesDarkAndBright) {
  Swarm swarm;
  Surroundings around(2, swarm);
  std::set<int> lumas;
  for (std::uint64_t second = 0; second < 100; ++second) {
    lumas.insert(around.LumaAt(second * 8000));
    lumas.insert(around.LumaAt(second * 8000 + 1));
  }
  EXPECT_LT(*lumas.begin(), 10);
  EXPECT_GT(*lumas.rbegin(), 200);
}

// In light of one kind the loop comes to its end, and writes no register any more.
TEST(Surroundings, LightForABusyLoopBecomesDarkAndBrightInEverySwarm) {
  for (std::uint64_t seed = 1; seed <= 50; ++seed) {
    Swarm swarm(seed);
    Surroundings around(seed, swarm);
    around.KeepLoopBusy();
    std::set<int> lumas;
    for (std::uint64_t half = 0; half < 200; ++half) lumas.insert(around.LumaAt(half * 4000));
    EXPECT_LT(*lumas.begin(), 10) << seed;
    EXPECT_GT(*lumas.rbegin(), 200) << seed;
  }
}

TEST(Surroundings, AreTheSameForTheSameSeed) {
  std::vector<LONGLONG> first;
  std::vector<LONGLONG> second;
  for (std::vector<LONGLONG>* const times : {&first, &second}) {
    Swarm swarm;
    Surroundings around(7, swarm);
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
    Swarm swarm;
    if (Surroundings(seed, swarm).DriverKey().empty()) ++without;
  }
  EXPECT_GT(without, 10);
  EXPECT_LT(without, 40);
}

TEST(Surroundings, NightNeverComesWhereTheSeedLeavesDarknessOut) {
  int without = 0;
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    Swarm swarm(seed);
    if (swarm.Has("darkness")) continue;
    Surroundings around(seed, swarm);
    for (std::uint64_t second = 0; second < 200; ++second) {
      EXPECT_GE(around.LumaAt(second * 8000), 30);
    }
    ++without;
  }
  EXPECT_GT(without, 0);
}

}  // namespace
}  // namespace lidcam::scenarios
