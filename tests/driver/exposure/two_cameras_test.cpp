// Two cameras at once: one exposure, one light mode, two light states.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>

#include "driver/exposure/auto_exposure.h"
#include "driver/exposure/frame_exposure_control.h"
#include "driver/exposure/light_state.h"
#include "tests/driver/core/control/bring_up_world.h"
#include "tests/driver/exposure/support/exposure_bench.h"
#include "tests/driver/support/register_space.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class SecondCamera : public RegisterSpace {
 public:
  SecondCamera() {
    Context().SensorType = SensorTypeVGA0708;
    Context().AutoExposure = 1;
    Context().Flicker = 1;
    Context().FlickerBandStep = 100;
    Context().LightState = LightStateInitial;
  }
  void Deliver(std::uint8_t luma, std::uint8_t level = 0) {
    std::uint8_t header[24] = {};
    header[16] = level;
    header[23] = luma;
    RunFrameExposureControl(Context(), header);
  }
};

struct Pair {
  ExposureBench First;
  SecondCamera Second;
  explicit Pair(std::int32_t ldMode) {
    First.Context().LDMode = ldMode;
    Second.Context().LDMode = ldMode;
  }
};

TEST(TwoCameras, StepOneSharedIndexAndWriteEachStepToTheirOwnSensorOnly) {
  Pair cameras(1);
  cameras.First.Deliver(79);
  EXPECT_EQ(AeIndex, 31);
  EXPECT_EQ(cameras.First.Accesses().size(), 4U);
  EXPECT_THAT(cameras.Second.Packets(), IsEmpty());
  for (int frame = 0; frame < 5; ++frame) cameras.Second.Deliver(79);
  EXPECT_EQ(AeIndex, 31) << "one hold-off for both";
  cameras.Second.ForgetTraffic();
  cameras.Second.Deliver(79);
  EXPECT_EQ(AeIndex, 32);
  EXPECT_THAT(cameras.Second.Accesses(),
              testing::IsSupersetOf({"write sensor FF60=01", "write sensor FF5D=86",
                                     "write sensor FF04=90", "write sensor FF03=01"}));
  EXPECT_EQ(AppliedExposureLines, 400U);
  EXPECT_EQ(cameras.First.Accesses().size(), 4U);
}

TEST(TwoCameras, HoldOffPassesTwiceAsFast) {
  Pair cameras(1);
  cameras.First.Deliver(79);
  cameras.Second.Deliver(0);
  cameras.First.Deliver(0);
  cameras.Second.Deliver(0);
  cameras.First.Deliver(0);
  cameras.Second.Deliver(0);
  EXPECT_EQ(AeHoldOff, 0);
  EXPECT_EQ(AeIndex, 31);
  cameras.First.Deliver(79);
  EXPECT_EQ(AeIndex, 32);
}

TEST(TwoCameras, OneCamerasStepIsAChangeOfExposureForTheCommitsOfBoth) {
  Pair cameras(1);
  cameras.First.Deliver(79);
  cameras.First.Deliver(88);
  EXPECT_EQ(cameras.First.Context().CommitCount, 1);
  cameras.Second.Deliver(88);
  EXPECT_EQ(cameras.Second.Context().CommitExposure, 4U);
  EXPECT_EQ(cameras.Second.Context().CommitCount, 0);
  EXPECT_EQ(cameras.First.Context().CommitCount, 1) << "the count is each camera's own";
}

TEST(TwoCameras, LightModeOfTheOneBoundsTheIndexOfBoth) {
  Pair cameras(0);
  cameras.First.StandIn(LightStateNormal);
  cameras.Second.Context().LightState = LightStateLowLight;
  LightMode = 0;
  AeLightMode = 0;
  AeIndex = 54;
  AeOutput.Exposure = 20;
  cameras.Second.Deliver(60);
  EXPECT_EQ(AeIndex, 54);
  EXPECT_EQ(AeLightMode, 0U) << "its state is LowLight, the shared mode is not";

  cameras.First.Context().LightTransitionCount = 10;
  cameras.First.Deliver(48);
  EXPECT_EQ(LightMode, 2U);
  cameras.Second.Deliver(60);
  EXPECT_EQ(AeIndex, 58) << "the first camera's trial lifted the bound";
  EXPECT_EQ(cameras.Second.Context().LightState, 1U);
}

// Streaming with its chip's own exposure, a camera changes LightMode and not AeLightMode; the other
// takes over the mode with its next frame.
TEST(TwoCameras, CameraWithoutTheLoopLiftsTheBoundByWayOfTheOther) {
  Pair cameras(0);
  cameras.First.StandIn(LightStateNormal);
  cameras.Second.Context().AutoExposure = 0;
  cameras.Second.Deliver(88, 5);
  EXPECT_EQ(LightMode, 1U);
  EXPECT_EQ(AeLightMode, 0U);
  cameras.First.Deliver(88);
  EXPECT_EQ(AeLightMode, 1U);
}

TEST(TwoCameras, CreationOfTheSecondPutsTheIndexOfTheFirstBackTo30) {
  ExposureBench first;
  first.Context().LDMode = 1;
  first.Deliver(0);
  LightMode = 2;
  AeLightMode = 2;
  SharedExposure expected = SharedExposure::Now();
  EXPECT_EQ(expected.Index, 54);
  EXPECT_EQ(expected.HoldOff, 5);
  BringUpWorld world;
  world.BeVga0708();
  const CameraPointer second = world.Create();
  ASSERT_NE(second, nullptr);
  expected.Index = 30;
  EXPECT_EQ(SharedExposure::Now(), expected) << "all but the index stays until the next step";
  first.Deliver(79, 0, 6);
  EXPECT_EQ(AeIndex, 31);
  EXPECT_EQ(AeOutput.Exposure, 4U);
}

TEST(TwoCameras, EachHasALightStateOfItsOwn) {
  Pair cameras(0);
  cameras.First.Deliver(88);
  EXPECT_EQ(cameras.First.Context().LightState, 0U);
  EXPECT_EQ(cameras.Second.Context().LightState, 2U);
  AeOutput.Exposure = 5;
  cameras.Second.Deliver(88);
  EXPECT_EQ(cameras.First.Context().LightState, 0U);
  EXPECT_EQ(cameras.Second.Context().LightState, 1U);
  EXPECT_EQ(LightMode, 1U) << "the mode of the last transition";
}

TEST(TwoCameras, ApplicationAccessOfTheOneRefusesNothingOfTheOther) {
  Pair cameras(1);
  cameras.First.Context().AppRegisterBusy = 1;
  cameras.Second.Deliver(79);
  EXPECT_THAT(cameras.Second.Accesses(),
              ElementsAre("write sensor FF60=01", "write sensor FF5D=80", "write sensor FF04=90",
                          "write sensor FF03=01"));
}

}  // namespace
}  // namespace lidcam::test
