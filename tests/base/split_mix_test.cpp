#include "base/split_mix.h"

#include <gtest/gtest.h>

namespace lidcam::base {
namespace {

// The published first numbers of the generator from seed 1234567.
TEST(SplitMixNumbers, AreThePublishedOnes) {
  SplitMix random{1234567};
  EXPECT_EQ(random.Next(), 6457827717110365317U);
  EXPECT_EQ(random.Next(), 3203168211198807973U);
  EXPECT_EQ(random.Next(), 9817491932198370423U);
  EXPECT_EQ(random.Next(), 4593380528125082431U);
}

TEST(SplitMixNumbers, CanBeEnteredAnywhere) {
  SplitMix walked{0};
  for (int i = 0; i < 1000; ++i) static_cast<void>(walked.Next());
  SplitMix entered = SplitMix::Behind(1000);
  EXPECT_EQ(entered.Next(), walked.Next());
  EXPECT_EQ(entered.Next(), walked.Next());
}

}  // namespace
}  // namespace lidcam::base
