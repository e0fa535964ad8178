#include "platform/host/nt/processor/floating_point_state.h"

#include <gtest/gtest.h>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {
namespace {

TEST(FloatingPointState, CountsSavesAndRestores) {
  const FloatingPointUse before = FloatingPointUseSoFar();
  KFLOATING_SAVE state;
  EXPECT_EQ(KeSaveFloatingPointState(&state), STATUS_SUCCESS);
  EXPECT_EQ(FloatingPointUseSoFar().Saves, before.Saves + 1);
  EXPECT_EQ(FloatingPointUseSoFar().Restores, before.Restores);
  EXPECT_EQ(KeRestoreFloatingPointState(&state), STATUS_SUCCESS);
  EXPECT_EQ(FloatingPointUseSoFar().Restores, before.Restores + 1);
}

TEST(FloatingPointState, FailsTheSaveThatTheCountdownNamesAndNoOther) {
  const FloatingPointUse before = FloatingPointUseSoFar();
  KFLOATING_SAVE state;
  FailFloatingPointSave(2);
  EXPECT_EQ(KeSaveFloatingPointState(&state), STATUS_SUCCESS);
  EXPECT_EQ(KeSaveFloatingPointState(&state), STATUS_INSUFFICIENT_RESOURCES);
  EXPECT_EQ(KeSaveFloatingPointState(&state), STATUS_SUCCESS);
  EXPECT_EQ(FloatingPointUseSoFar().Saves, before.Saves + 2);
}

TEST(FloatingPointState, ForgetsACountdownThatIsTurnedOff) {
  KFLOATING_SAVE state;
  FailFloatingPointSave(1);
  FailFloatingPointSave(0);
  EXPECT_EQ(KeSaveFloatingPointState(&state), STATUS_SUCCESS);
}

}  // namespace
}  // namespace lidcam::host
