#include "bus/faults/random_faults.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

namespace lidcam::bus {
namespace {

using namespace std::chrono_literals;

TEST(RandomFaultScripts, ReadBackFromTheirText) {
  for (const RandomFaultMix mix :
       {RandomFaultMix::Packets, RandomFaultMix::Requests, RandomFaultMix::Everything}) {
    for (std::uint64_t seed = 0; seed < 300; ++seed) {
      const FaultScript script = RandomFaults(seed, 10s, mix);
      ASSERT_EQ(ParseFaultScript(ToText(script)), script) << "seed " << seed;
    }
  }
}

TEST(RandomFaultScripts, EqualSeedsGiveEqualScriptsAndOthersOthers) {
  std::set<std::string> texts;
  for (std::uint64_t seed = 0; seed < 100; ++seed) {
    EXPECT_EQ(RandomFaults(seed, 5s), RandomFaults(seed, 5s));
    texts.insert(ToText(RandomFaults(seed, 5s)));
  }
  EXPECT_EQ(texts.size(), 100U);
}

TEST(RandomFaultScripts, FourFaultsASecondWithinTheDuration) {
  EXPECT_EQ(RandomFaults(1, 10s).Faults.size(), 40U);
  EXPECT_EQ(RandomFaults(1, 0s).Faults.size(), 1U);
  EXPECT_EQ(RandomFaults(1, -1s).Faults.size(), 1U);
  EXPECT_EQ(RandomFaults(1, std::chrono::microseconds::max()).Faults.size(), 10'000U);
  for (const BusFault& fault : RandomFaults(1, 10s, RandomFaultMix::Packets).Faults) {
    EXPECT_EQ(fault.Place, FaultPlace::Time);
    EXPECT_LT(fault.At, 10'000'000U);
  }
}

std::set<std::pair<FaultPlace, FaultKind>> KindsOf(RandomFaultMix mix) {
  std::set<std::pair<FaultPlace, FaultKind>> kinds;
  for (std::uint64_t seed = 0; seed < 100; ++seed) {
    for (const BusFault& fault : RandomFaults(seed, 20s, mix).Faults) {
      kinds.insert({fault.Place, fault.Kind});
    }
  }
  return kinds;
}

TEST(RandomFaultScripts, MixesHoldWhatTheyPromise) {
  const auto packets = KindsOf(RandomFaultMix::Packets);
  const auto requests = KindsOf(RandomFaultMix::Requests);
  const auto everything = KindsOf(RandomFaultMix::Everything);
  EXPECT_EQ(packets.size(), 9U);
  EXPECT_EQ(requests.size(), 9U + 6U + 4U);
  EXPECT_EQ(everything.size(), 9U + 6U + 4U + 2U);
  EXPECT_TRUE(everything.contains({FaultPlace::Time, FaultKind::Unplug}));
  EXPECT_TRUE(everything.contains({FaultPlace::Time, FaultKind::Silent}));
  for (const auto& [place, kind] : requests) EXPECT_NE(kind, FaultKind::Unplug);
}

// The script of a seed must not change: seeds are kept to reproduce failures.
TEST(RandomFaultScripts, SeedSevenMeansTheSameEverywhere) {
  EXPECT_EQ(ToText(RandomFaults(7, 2s)),
            "bits 7191089600892374487\n"
            "control 14 short 1\n"
            "control 147 fail 2\n"
            "setting 0 late 85ms 1\n"
            "at 974750us marker 2\n"
            "at 1148750us error 8\n"
            "at 1863250us corrupt 6\n"
            "at 1885375us lose 31\n"
            "at 1974625us lose 24\n");
}

}  // namespace
}  // namespace lidcam::bus
