// Light states reached by changes of light only: no test here writes a counter or a state.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "driver/exposure/auto_exposure.h"
#include "tests/closed_loop/closed_loop.h"
#include "tests/driver/support/shared_exposure.h"

namespace lidcam::app {
namespace {

using ::testing::ElementsAre;

std::vector<std::uint32_t> StatesInOrder(const std::vector<FrameRow>& rows) {
  std::vector<std::uint32_t> states;
  for (const FrameRow& row : rows) {
    if (states.empty() || states.back() != row.State) states.push_back(row.State);
  }
  return states;
}

class LoopCycle : public ::testing::Test {
 protected:
  LoopCycle() { test::ResetSharedExposure(); }

  const LoopEnvironment environment_;
};

const FrameRow& FirstIn(const std::vector<FrameRow>& rows, std::uint32_t state, double after) {
  for (const FrameRow& row : rows) {
    if (row.Seconds > after && row.State == state) return row;
  }
  ADD_FAILURE() << LightStateName(state) << " was not entered after " << after << " s";
  return rows.back();
}

TEST_F(LoopCycle, LightAloneLeadsThroughDummyToLowLightAndBack) {
  ClosedLoop loop({.Light = {{0, 300}, {3, 0.5}, {20, 300}}});
  loop.RunFrames(500);
  const std::vector<FrameRow>& rows = loop.Rows();
  EXPECT_THAT(StatesInOrder(rows),
              ElementsAre(LightStateNormal, LightStateDummy, LightStateLowLight, LightStateDummy,
                          LightStateNormal));
  const FrameRow& trial = FirstIn(rows, LightStateDummy, 3);
  EXPECT_GE(trial.Exposure, 7U);
  EXPECT_LE(trial.Luma, 48U);
  const FrameRow& dark = FirstIn(rows, LightStateLowLight, 3);
  EXPECT_GE(dark.Exposure, 19U);
  EXPECT_LE(dark.Luma, 21U);
  const FrameRow& brighter = FirstIn(rows, LightStateDummy, 20);
  EXPECT_LT(brighter.Exposure, 20U);
  EXPECT_GE(brighter.Luma, 64U);
  const FrameRow& day = FirstIn(rows, LightStateNormal, 20);
  EXPECT_LE(day.Exposure, 8U);
  EXPECT_GE(day.Luma, 81U);
}

// At 5 lx the trial's longest exposure gives a luminance well above 21, which is not dark enough for
// LowLight, and well below the dead band: the trial lasts until the light comes back.
TEST_F(LoopCycle, DuskEndsInDummy) {
  ClosedLoop loop({.Light = {{0, 300}, {3, 5}, {20, 300}}});
  loop.RunFrames(400);
  EXPECT_THAT(StatesInOrder(loop.Rows()),
              ElementsAre(LightStateNormal, LightStateDummy, LightStateNormal));
}

// The camera measures before the controls that change the picture: a darker picture that the user
// selects stays darker, and neither the loop nor the light state compensates it.
TEST_F(LoopCycle, TheUsersBrightnessAndContrastDoNotMoveTheLoop) {
  const LoopSetup setup{.Light = {{0, 300}, {3, 0.5}, {20, 300}}};
  ClosedLoop usual(setup);
  usual.RunFrames(400);
  test::ResetSharedExposure();
  ClosedLoop dark(setup);
  constexpr std::uint32_t kBrightness = 0;
  constexpr std::uint32_t kContrast = 1;
  // The first change of the brightness writes the previous value.
  dark.Set(kBrightness, -40);
  dark.Set(kBrightness, -40);
  dark.Set(kContrast, 8);
  dark.RunFrames(400);
  EXPECT_EQ(dark.Rows(), usual.Rows());
}

// In twelve dark frames the loop reaches the longest exposure of Normal, but does not stay there
// for eleven frames.
TEST_F(LoopCycle, AShortDarknessLeavesTheStateAlone) {
  ClosedLoop loop({.Light = {{0, 300}, {3, 0.5}, {3.4, 300}}});
  loop.RunFrames(250);
  EXPECT_THAT(StatesInOrder(loop.Rows()), ElementsAre(LightStateNormal));
}

// Both cameras' lights move one shared index: 16 rows down, then 24 up.
TEST_F(LoopCycle, TwoCamerasStreamingAtOnceStepOneIndex) {
  ClosedLoop bright({.Light = {{0, 2200}}});
  ClosedLoop dark({.Light = {{0, 1}}});
  EXPECT_EQ(std::int32_t{AeIndex}, 30);
  bright.RunFrames(1);
  EXPECT_EQ(std::int32_t{AeIndex}, 14);
  EXPECT_EQ(bright.Rows().back().Events.Steps, 1U);
  // The bright camera's step delays the dark one's, too: five calls of either camera.
  for (int frame = 0; frame < 5; ++frame) {
    dark.RunFrames(1);
    EXPECT_EQ(dark.Rows().back().Events.Steps, 0U) << frame;
    EXPECT_EQ(dark.Rows().back().Index, 14);
  }
  dark.RunFrames(1);
  EXPECT_EQ(dark.Rows().back().Index, 38);
  EXPECT_EQ(dark.Rows().back().Events.Steps, 1U);
}

}  // namespace
}  // namespace lidcam::app
