// Transitions that meet an application access on the bus.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "driver/exposure/light_state.h"
#include "tests/driver/exposure/support/light_camera.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class BusyLightCamera : public LightCamera {
 public:
  explicit BusyLightCamera(LightState state) : LightCamera(state) { Context().AppRegisterBusy = 1; }
  // Only counts have changed, whatever was given up.
  void ExpectStandstill(LightState state) {
    EXPECT_EQ(State(), state);
    EXPECT_EQ(LightMode, 7U);
    EXPECT_EQ(Context().FrameSettleCount, 1U);
    EXPECT_EQ(Context().DriverRegisterBusy, 0U);
    EXPECT_EQ(Context().AppRegisterBusy, 1U);
    EXPECT_THAT(Packets(), IsEmpty());
  }
};

TEST(LightStateGivenUp, NormalCountsAnewWithoutFurtherWord) {
  BusyLightCamera camera(LightStateNormal);
  camera.Light(7, 48, 11);
  camera.ExpectStandstill(LightStateNormal);
  EXPECT_EQ(camera.Dark(), 0);
  EXPECT_THAT(camera.Messages(), ElementsAre(kFromNormal));
  camera.Context().AppRegisterBusy = 0;
  camera.Light(7, 48, 10);
  EXPECT_EQ(camera.State(), 0U);
  camera.Light(7, 48);
  EXPECT_EQ(camera.State(), 3U);
}

TEST(LightStateGivenUp, LowLightSaysSoOnEveryQualifyingFrameUntilItSucceeds) {
  BusyLightCamera camera(LightStateLowLight);
  camera.Light(19, 64, 8);
  camera.ExpectStandstill(LightStateLowLight);
  EXPECT_EQ(camera.Dark(), 8);
  EXPECT_THAT(camera.Messages(), ElementsAre(kFromLowLight, kDoNothing, kFromLowLight, kDoNothing,
                                             kFromLowLight, kDoNothing));
  camera.Context().AppRegisterBusy = 0;
  camera.Light(19, 64);
  EXPECT_EQ(camera.State(), 3U);
  EXPECT_EQ(camera.Messages().size(), 7U);
}

TEST(LightStateGivenUp, LowLightStartsAnewAtAFrameThatDoesNotQualify) {
  BusyLightCamera camera(LightStateLowLight);
  camera.Light(19, 64, 6);
  camera.Light(19, 63);
  EXPECT_EQ(camera.Dark(), 0);
  EXPECT_EQ(camera.Messages().size(), 2U);
}

TEST(LightStateGivenUp, DummyTowardLowLightCountsAnewWithoutFurtherWord) {
  BusyLightCamera camera(LightStateDummy);
  camera.Light(19, 21, 10);
  EXPECT_EQ(UpdateLightState(camera.Context(), 19, 21), 7U);
  camera.ExpectStandstill(LightStateDummy);
  EXPECT_EQ(camera.Dark(), 0);
  EXPECT_THAT(camera.Messages(), ElementsAre(kToLowLight));
}

TEST(LightStateGivenUp, DummyTowardNormalSaysSoAndKeepsTheCount) {
  BusyLightCamera camera(LightStateDummy);
  camera.Light(8, 81, 7);
  camera.ExpectStandstill(LightStateDummy);
  EXPECT_EQ(camera.Bright(), 7);
  EXPECT_THAT(camera.Messages(), ElementsAre(kToNormal, kDoNothing, kToNormal, kDoNothing));
  camera.Context().AppRegisterBusy = 0;
  camera.Light(8, 81);
  EXPECT_EQ(camera.State(), 0U);
  EXPECT_EQ(camera.Bright(), 0);
}

TEST(LightStateGivenUp, InitialStaysAndSaysItsStateOnEveryFrame) {
  BusyLightCamera camera(LightStateInitial);
  camera.Context().LightTransitionCount = 3;
  camera.Light(0, 88, 3);
  camera.ExpectStandstill(LightStateInitial);
  EXPECT_EQ(camera.Dark(), 3);
  EXPECT_THAT(camera.Messages(), ElementsAre(kInitial, kInitial, kInitial));
  camera.Context().AppRegisterBusy = 0;
  camera.Light(0, 88);
  EXPECT_EQ(camera.State(), 0U);
  EXPECT_EQ(camera.Dark(), 0);
  EXPECT_THAT(camera.Messages(), ElementsAre(kInitial, kInitial, kInitial, kInitial));
}

// A transition given up so often that its count reaches the largest number wraps to the least.
TEST(LightStateGivenUp, CountGoesOnPastTheLargestNumber) {
  BusyLightCamera camera(LightStateLowLight);
  camera.Context().LightTransitionCount = 0x7FFFFFFF;
  camera.Light(19, 64);
  EXPECT_EQ(camera.Dark(), std::int32_t{-0x7FFFFFFF} - 1);
  EXPECT_THAT(camera.Messages(), IsEmpty());
}

}  // namespace
}  // namespace lidcam::test
