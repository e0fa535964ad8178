#include "base/time_units.h"

#include <gtest/gtest.h>

namespace lidcam::base {
namespace {

TEST(TimeUnits, ASecondIsOneInEveryUnit) {
  EXPECT_EQ(SecondsOfUnits(10'000'000), 1.0);
  EXPECT_EQ(SecondsOfMicroframes(8000), 1.0);
  EXPECT_EQ(kMicrosecondsPerMicroframe, 125);
  EXPECT_EQ(kUnitsPerMillisecond, 10'000);
  EXPECT_EQ(kUnitsPerMicrosecond * kMicrosecondsPerSecond, kUnitsPerSecond);
}

TEST(TimeUnits, PartsOfASecondAreKept) {
  EXPECT_EQ(SecondsOfUnits(-5'000'000), -0.5);
  EXPECT_EQ(SecondsOfMicroframes(1000), 0.125);
}

}  // namespace
}  // namespace lidcam::base
