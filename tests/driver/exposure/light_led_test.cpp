// The LED bit as the light state machine sets it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "driver/exposure/light_state.h"
#include "driver/exposure/light_transitions.h"
#include "tests/driver/exposure/support/light_camera.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAreArray;

struct LedRow {
  std::int32_t Type;
  std::uint32_t On;
  std::uint8_t Before;
  std::vector<std::string> Accesses;
};

TEST(LedBit, IsReadAndWrittenOnTheFramePathAndOnlyReadOnVGA0708) {
  const LedRow rows[] = {
      {7, 1, 0xA5, {"read bridge FF09 -> A5", "write bridge FF09=B5"}},
      {7, 5, 0xB5, {"read bridge FF09 -> B5", "write bridge FF09=B5"}},
      {7, 0, 0xB5, {"read bridge FF09 -> B5", "write bridge FF09=A5"}},
      {1, 0, 0xFF, {"read bridge FF09 -> FF", "write bridge FF09=EF"}},
      {9, 1, 0xA5, {"read bridge FF09 -> A5"}},
      {9, 0, 0xB5, {"read bridge FF09 -> B5"}},
  };
  for (const LedRow& row : rows) {
    LightCamera camera(LightStateNormal);
    camera.Context().SensorType = row.Type;
    camera.Bridge[0x09] = row.Before;
    camera.OnRequest = [&](const WirePacket&) {
      EXPECT_EQ(camera.Context().DriverRegisterBusy, 1U);
      EXPECT_EQ(camera.Context().AppRegisterBusy, 0U);
    };
    SetLedBit(camera.Context(), LedState{row.On});
    EXPECT_THAT(camera.Accesses(), ElementsAreArray(row.Accesses));
  }
}

// The LED lights on the way into the trial when it got dark, and goes out there when it got bright.
TEST(LightState, LedIsAskedOnFromNormalAndOffFromLowLight) {
  EXPECT_TRUE(kLightTransitions[0].To.LedOn);
  EXPECT_FALSE(kLightTransitions[1].To.LedOn);
  EXPECT_TRUE(kLightTransitions[2].To.LedOn);
  EXPECT_FALSE(kLightTransitions[3].To.LedOn);
  EXPECT_FALSE(kInitialNormal.LedOn);
  EXPECT_TRUE(kInitialLowLight.LedOn);
}

// No camera's bus shows the argument, so the test changes the sensor type in the middle of the
// transition.
TEST(LightState, LedBitThatATransitionAsksForReachesASensorThatWritesIt) {
  struct Row {
    LightState From;
    std::uint8_t Exposure;
    std::uint8_t Luma;
    int Frames;
    const char* Write;
  };
  constexpr Row kRows[] = {
      {LightStateNormal, 7, 48, 11, "write bridge FF09=12"},
      {LightStateLowLight, 19, 64, 6, "write bridge FF09=02"},
      {LightStateDummy, 19, 21, 11, "write bridge FF09=12"},
      {LightStateDummy, 8, 81, 6, "write bridge FF09=02"},
      {LightStateInitial, 4, 0, 1, "write bridge FF09=02"},
      {LightStateInitial, 5, 0, 1, "write bridge FF09=12"},
  };
  for (const Row& row : kRows) {
    LightCamera camera(row.From);
    camera.Context().LED = 4;
    camera.Bridge[0x09] = row.Write[18] == '1' ? 0x02 : 0x12;
    camera.OnTrace = [&](const std::string& line) {
      if (line.starts_with("light ")) camera.Context().SensorType = SensorTypeK82;
    };
    camera.Light(row.Exposure, row.Luma, row.Frames);
    EXPECT_THAT(camera.Accesses(), testing::Contains(row.Write)) << row.Write;
  }
}

}  // namespace
}  // namespace lidcam::test
