#include "driver/exposure/light_state.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/driver/support/register_space.h"

namespace lidcam::test {
namespace {

using ::testing::IsEmpty;

constexpr std::uint32_t kUnchanged = 0xABCD;

struct LimitRow {
  std::int32_t Type;
  std::uint32_t LongConfig;
  std::uint32_t Ceiling;
  std::uint32_t High;
  std::uint32_t Low;
};

constexpr LimitRow kLimitRows[] = {
    {1, 0, 60, 30, 6},
    {1, 1, 60, 30, 7},
    {1, 193, 60, 30, 7},
    {9, 0, 60, 30, 6},
    {9, 1, 60, 30, 7},
    {7, 0, 100, 20, 0},
    {7, 1, 100, 20, 0},
    {8, 0, 100, 20, 0},
    {8, 1, 100, 20, 0},
    {3, 1, kUnchanged, kUnchanged, kUnchanged},
    {5, 1, kUnchanged, kUnchanged, kUnchanged},
    {6, 0, kUnchanged, kUnchanged, kUnchanged},
    {10, 1, kUnchanged, kUnchanged, kUnchanged},
    {11, 1, kUnchanged, kUnchanged, kUnchanged},
};

std::string RowName(const testing::TestParamInfo<LimitRow>& row) {
  return "Type" + std::to_string(row.param.Type) + "LongConfig" +
         std::to_string(row.param.LongConfig);
}

class LightReset : public testing::TestWithParam<LimitRow> {};
INSTANTIATE_TEST_SUITE_P(LightState, LightReset, testing::ValuesIn(kLimitRows), RowName);

TEST_P(LightReset, SetsTheLimitsOfTheSensorFamilyAndReturnsToInitial) {
  const LimitRow& row = GetParam();
  RegisterSpace space;
  CameraContext& camera = space.Context();
  camera.SensorType = row.Type;
  camera.LongConfigDescriptor = row.LongConfig;
  camera.LightLimitCeiling = kUnchanged;
  camera.LightLimitHigh = kUnchanged;
  camera.LightLimitLow = kUnchanged;
  camera.LightTransitionCount = 4;
  camera.LightBrightCount = 5;
  camera.LightState = LightStateLowLight;
  ResetLightState(camera);
  EXPECT_EQ(camera.LightLimitCeiling, row.Ceiling);
  EXPECT_EQ(camera.LightLimitHigh, row.High);
  EXPECT_EQ(camera.LightLimitLow, row.Low);
  EXPECT_EQ(camera.LightTransitionCount, 0);
  EXPECT_EQ(camera.LightBrightCount, 0);
  EXPECT_EQ(camera.LightState, 2U);
  EXPECT_THAT(space.Packets(), IsEmpty());
}

}  // namespace
}  // namespace lidcam::test
