#include "driver/core/base/shared_value.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace lidcam::test {
namespace {

TEST(SharedValue, StartsAsZero) {
  const Shared<std::uint32_t> value;
  EXPECT_EQ(value, 0U);
}

TEST(SharedValue, HoldsWhatWasStoredLast) {
  Shared<std::int32_t> value{-7};
  EXPECT_EQ(value, -7);
  value = 9;
  EXPECT_EQ(value, 9);
  const Shared<std::int32_t> other{11};
  value = other;
  EXPECT_EQ(value, 11);
}

TEST(SharedValue, IsAsWideAsWhatItHolds) {
  EXPECT_EQ(sizeof(Shared<std::uint8_t>), 1U);
  EXPECT_EQ(sizeof(Shared<std::uint16_t>), 2U);
  EXPECT_EQ(sizeof(Shared<std::uint32_t>), 4U);
  EXPECT_EQ(sizeof(Shared<void*>), sizeof(void*));
}

}  // namespace
}  // namespace lidcam::test
