#include "driver/exposure/light_state.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "driver/exposure/light_transitions.h"
#include "tests/driver/exposure/support/light_camera.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

const std::vector<std::string> kTrialWrites = {
    "write sensor FF09=25", "write sensor FF06=F6", "write bridge FF0F=80",
    "write bridge FF13=80", "write bridge FF14=B8", "write bridge FF78=C0",
    "write bridge FF79=C0", "write bridge FF43=C2", "write bridge FF7C=10",
};

// --- The state table -----------------------------------------------------------------------------

enum Registers { Trial, LowLightSet, NormalSet };

struct StateRow {
  const char* Name;
  LightState From;
  std::uint32_t To;
  std::uint8_t Exposure;
  std::uint8_t Luma;
  // Exposures and luminances next to the condition, outside.
  std::vector<std::pair<int, int>> Outside;
  int Frames;
  Registers Written;
  bool Commit;
  std::uint32_t Mode;
  bool ClearsSettleCount;
  const char* Message;
};

const std::vector<StateRow> kStateRows = {
    {"NormalToDummy",
     LightStateNormal,
     3,
     7,
     48,
     {{7, 49}, {6, 48}, {6, 0}, {255, 49}},
     11,
     Trial,
     true,
     2,
     true,
     kFromNormal},
    {"LowLightToDummy",
     LightStateLowLight,
     3,
     19,
     64,
     {{19, 63}, {20, 64}, {20, 255}, {0, 63}},
     6,
     Trial,
     true,
     2,
     true,
     kFromLowLight},
    {"DummyToLowLight",
     LightStateDummy,
     1,
     19,
     21,
     {{19, 22}, {18, 21}, {18, 0}, {255, 22}},
     11,
     LowLightSet,
     true,
     1,
     true,
     kToLowLight},
    {"DummyToNormal",
     LightStateDummy,
     0,
     8,
     81,
     {{8, 80}, {9, 81}, {9, 255}, {0, 80}},
     6,
     NormalSet,
     true,
     0,
     true,
     kToNormal},
    {"InitialToNormal", LightStateInitial, 0, 4, 0, {}, 1, NormalSet, false, 0, false, kInitial},
    {"InitialToLowLight",
     LightStateInitial,
     1,
     5,
     255,
     {},
     1,
     LowLightSet,
     false,
     1,
     false,
     kInitial},
};

void PrintTo(const StateRow& row, std::ostream* out) {
  *out << row.Name;
}

std::vector<std::string> ExpectedAccesses(const StateRow& row, const char* led) {
  std::vector<std::string> expected;
  if (row.Written == Trial) expected = kTrialWrites;
  if (row.Written == NormalSet) expected = {"write sensor FF09=2F", "write bridge FF0F=40"};
  if (row.Written == LowLightSet) expected = {"write sensor FF09=1F", "write bridge FF0F=60"};
  if (led != nullptr) expected.emplace_back(led);
  if (row.Commit) expected.emplace_back("write sensor FF2F=83");
  return expected;
}

class StateTable : public testing::TestWithParam<StateRow> {};

TEST_P(StateTable, TransitionHappensAtItsFrameWithItsRegistersModeAndMessage) {
  const StateRow& row = GetParam();
  LightCamera camera(row.From);
  camera.Light(row.Exposure, row.Luma, row.Frames - 1);
  EXPECT_EQ(camera.State(), row.From);
  EXPECT_THAT(camera.Accesses(), IsEmpty());
  EXPECT_THAT(camera.Messages(), IsEmpty());
  EXPECT_EQ(LightMode, 7U);

  EXPECT_EQ(UpdateLightState(camera.Context(), row.Exposure, row.Luma), row.Mode);
  EXPECT_EQ(camera.State(), row.To);
  EXPECT_EQ(LightMode, row.Mode);
  EXPECT_THAT(camera.Accesses(), ElementsAreArray(ExpectedAccesses(row, nullptr)));
  EXPECT_THAT(camera.Messages(), ElementsAre(row.Message));
  EXPECT_EQ(camera.Context().FrameSettleCount, row.ClearsSettleCount ? 0U : 1U);
  EXPECT_EQ(camera.Context().DriverRegisterBusy, 0U);
  EXPECT_EQ(camera.Dark(), 0);
  EXPECT_EQ(camera.Bright(), 0);
}

TEST_P(StateTable, FrameJustOutsideTheConditionStartsTheCountAnew) {
  const StateRow& row = GetParam();
  for (const auto& [exposure, luma] : row.Outside) {
    SCOPED_TRACE("exposure " + std::to_string(exposure) + " luma " + std::to_string(luma));
    LightCamera camera(row.From);
    camera.Light(row.Exposure, row.Luma, row.Frames - 1);
    camera.Light(static_cast<std::uint8_t>(exposure), static_cast<std::uint8_t>(luma));
    EXPECT_EQ(camera.Dark(), 0);
    EXPECT_EQ(camera.Bright(), 0);
    camera.Light(row.Exposure, row.Luma, row.Frames - 1);
    EXPECT_EQ(camera.State(), row.From);
    camera.Light(row.Exposure, row.Luma);
    EXPECT_EQ(camera.State(), row.To);
  }
}

TEST_P(StateTable, TheLedIsReadAheadOfTheCommitWhereItFollowsTheLight) {
  const StateRow& row = GetParam();
  LightCamera camera(row.From);
  camera.Context().LED = 4;
  camera.Bridge[0x09] = 0xA5;
  camera.Light(row.Exposure, row.Luma, row.Frames);
  EXPECT_THAT(camera.Accesses(), ElementsAreArray(ExpectedAccesses(row, "read bridge FF09 -> A5")));
}

TEST_P(StateTable, OtherLedSettingsLeaveTheLedAlone) {
  const StateRow& row = GetParam();
  for (const std::int32_t led : {0, 1, 2, 3, 5}) {
    LightCamera camera(row.From);
    camera.Context().LED = led;
    camera.Light(row.Exposure, row.Luma, row.Frames);
    EXPECT_THAT(camera.Accesses(), ElementsAreArray(ExpectedAccesses(row, nullptr))) << led;
  }
}

// The new state is stored while its registers are written; the mode follows at the end.
TEST_P(StateTable, StateMovesAheadOfTheWritesAndTheModeBehindThem) {
  const StateRow& row = GetParam();
  LightCamera camera(row.From);
  int requests = 0;
  camera.OnRequest = [&](const WirePacket&) {
    ++requests;
    EXPECT_EQ(camera.State(), row.To);
    EXPECT_EQ(LightMode, 7U);
    EXPECT_EQ(camera.Context().DriverRegisterBusy, 1U);
    EXPECT_EQ(camera.Context().AppRegisterBusy, 0U);
    EXPECT_EQ(camera.Context().FrameSettleCount, 1U);
    EXPECT_EQ(camera.Dark() + camera.Bright(), row.From == LightStateInitial ? 0 : row.Frames);
  };
  camera.Light(row.Exposure, row.Luma, row.Frames);
  EXPECT_EQ(requests, row.Written == Trial ? 20 : row.Commit ? 6 : 4);
}

// An application access that begins after the test of the flag: the writes that it blocks are lost.
TEST_P(StateTable, RefusedWritesAreLostAndTheStateMovesAllTheSame) {
  const StateRow& row = GetParam();
  LightCamera camera(row.From);
  camera.Context().LED = 4;
  int refused = 0;
  camera.OnTrace = [&](const std::string& line) {
    if (line.starts_with("light ")) camera.Context().AppRegisterBusy = 1;
    if (!line.ends_with(" refused")) return;
    ++refused;
    EXPECT_EQ(camera.Context().DriverRegisterBusy, 1U) << "the bus is held throughout";
    EXPECT_EQ(camera.State(), row.To);
  };
  camera.Light(row.Exposure, row.Luma, row.Frames);
  EXPECT_EQ(refused, row.Written == Trial ? 11 : row.Commit ? 4 : 3);
  EXPECT_THAT(camera.Accesses(), IsEmpty());
  EXPECT_EQ(camera.State(), row.To);
  EXPECT_EQ(LightMode, row.Mode);
  EXPECT_EQ(camera.Context().DriverRegisterBusy, 0U);
  EXPECT_EQ(camera.Context().FrameSettleCount, row.ClearsSettleCount ? 0U : 1U);
}

TEST_P(StateTable, FailingWritesStopNothing) {
  const StateRow& row = GetParam();
  LightCamera camera(row.From);
  camera.Failure = [](const std::string&) { return -1; };
  camera.Light(row.Exposure, row.Luma, row.Frames);
  std::vector<std::string> expected = ExpectedAccesses(row, nullptr);
  for (std::string& access : expected) access += " failed";
  EXPECT_THAT(camera.Accesses(), ElementsAreArray(expected));
  EXPECT_EQ(camera.State(), row.To);
  EXPECT_EQ(LightMode, row.Mode);
}

INSTANTIATE_TEST_SUITE_P(LightState, StateTable, testing::ValuesIn(kStateRows),
                         [](const auto& row) { return std::string(row.param.Name); });

// The writes after a state's registers, in order. Of the closing the traffic shows the commit only.
TEST(LightState, EveryTransitionClosesInItsOwnOrder) {
  using enum LightClosing;
  const std::vector<LightClosing> fromNormal = {Commit, FreeBus, ClearCount, SetMode,
                                                DiscardNextFrame};
  const std::vector<LightClosing> fromLowLight = {Commit, FreeBus, ClearCount, SetMode,
                                                  DiscardNextFrame};
  const std::vector<LightClosing> fromDummyToLowLight = {Commit, DiscardNextFrame, SetMode, FreeBus,
                                                         ClearCount};
  const std::vector<LightClosing> fromDummyToNormal = {Commit, FreeBus, ClearCount, SetMode,
                                                       DiscardNextFrame};
  const std::vector<LightClosing> fromInitial = {SetMode, FreeBus, ClearCount};
  ASSERT_EQ(std::size(kLightTransitions), 4U);
  EXPECT_THAT(kLightTransitions[0].To.Closing, ElementsAreArray(fromNormal));
  EXPECT_THAT(kLightTransitions[1].To.Closing, ElementsAreArray(fromLowLight));
  EXPECT_THAT(kLightTransitions[2].To.Closing, ElementsAreArray(fromDummyToLowLight));
  EXPECT_THAT(kLightTransitions[3].To.Closing, ElementsAreArray(fromDummyToNormal));
  EXPECT_THAT(kInitialNormal.Closing, ElementsAreArray(fromInitial));
  EXPECT_THAT(kInitialLowLight.Closing, ElementsAreArray(fromInitial));
}

TEST(LightState, EveryConditionHoldsForExactlyItsExposuresAndLuminances) {
  for (int exposure = 0; exposure <= 255; ++exposure) {
    for (int luma = 0; luma <= 255; ++luma) {
      const LightReading reading{static_cast<std::uint8_t>(exposure),
                                 static_cast<std::uint8_t>(luma)};
      ASSERT_EQ(kLightTransitions[0].Qualifies(reading), luma <= 48 && exposure >= 7);
      ASSERT_EQ(kLightTransitions[1].Qualifies(reading), luma >= 64 && exposure <= 19);
      ASSERT_EQ(kLightTransitions[2].Qualifies(reading), luma <= 21 && exposure >= 19);
      ASSERT_EQ(kLightTransitions[3].Qualifies(reading), luma >= 81 && exposure <= 8);
    }
  }
}

TEST(LightState, InitialIsLeftForNormalBelowExposure5AndForLowLightFromThereOn) {
  for (int exposure = 0; exposure <= 255; ++exposure) {
    LightCamera camera(LightStateInitial);
    camera.Light(static_cast<std::uint8_t>(exposure), 88);
    ASSERT_EQ(camera.State(), exposure < 5 ? 0U : 1U) << exposure;
  }
}

// --- Single frames -------------------------------------------------------------------------------

TEST(LightState, TenDarkFramesInNormalAndOneBrighterLeaveTheCountAt0) {
  LightCamera camera(LightStateNormal);
  camera.Light(7, 48, 10);
  EXPECT_EQ(camera.Dark(), 10);
  camera.Light(7, 49);
  EXPECT_EQ(camera.Dark(), 0);
  EXPECT_EQ(camera.State(), 0U);
  EXPECT_THAT(camera.Packets(), IsEmpty());
}

TEST(LightState, EleventhDarkFrameInNormalEntersDummyAndIsCountedThere) {
  LightCamera camera(LightStateNormal);
  camera.Light(7, 48, 10);
  camera.Light(19, 21);
  EXPECT_EQ(camera.State(), 3U);
  EXPECT_EQ(camera.Dark(), 1);
  EXPECT_EQ(camera.Bright(), 0);
}

TEST(LightState, SixthBrightFrameInLowLightEntersDummyAndIsCountedThere) {
  LightCamera camera(LightStateLowLight);
  camera.Light(19, 64, 5);
  camera.Light(8, 81);
  EXPECT_EQ(camera.State(), 3U);
  EXPECT_EQ(camera.Dark(), 0);
  EXPECT_EQ(camera.Bright(), 1);
}

TEST(LightState, Luma80AtExposure8InDummyIsNeutralAnd81Counts) {
  LightCamera camera(LightStateDummy);
  camera.Light(8, 81, 3);
  EXPECT_EQ(camera.Bright(), 3);
  camera.Light(8, 80);
  EXPECT_EQ(camera.Bright(), 0);
  EXPECT_EQ(camera.Dark(), 0);
  camera.Light(8, 81);
  EXPECT_EQ(camera.Bright(), 1);
}

TEST(LightState, EitherCountInDummyStartsTheOtherAnew) {
  LightCamera camera(LightStateDummy);
  camera.Light(19, 21, 10);
  camera.Light(8, 81, 5);
  EXPECT_EQ(camera.Dark(), 0);
  EXPECT_EQ(camera.Bright(), 5);
  camera.Light(19, 21);
  EXPECT_EQ(camera.Dark(), 1);
  EXPECT_EQ(camera.Bright(), 0);
  EXPECT_EQ(camera.State(), 3U);
}

TEST(LightState, BrightCountIsLeftAloneOutsideDummy) {
  for (const LightState state : {LightStateNormal, LightStateLowLight, LightStateInitial}) {
    LightCamera camera(state);
    camera.Context().LightBrightCount = 4;
    camera.Light(0, 88);
    camera.Light(0, 88);
    EXPECT_EQ(camera.Bright(), 4);
  }
}

TEST(LightState, Exposure20NeverLeavesLowLight) {
  LightCamera camera(LightStateLowLight);
  camera.Light(20, 255, 300);
  EXPECT_EQ(camera.State(), 1U);
  EXPECT_EQ(camera.Dark(), 0);
  EXPECT_THAT(camera.Messages(), IsEmpty());
}

TEST(LightState, Mode2MeansDummyWhileState2MeansInitial) {
  LightCamera camera(LightStateNormal);
  camera.Light(7, 48, 11);
  EXPECT_EQ(camera.State(), 3U);
  EXPECT_EQ(LightMode, 2U);
  ResetLightState(camera.Context());
  EXPECT_EQ(camera.State(), 2U);
  EXPECT_EQ(LightMode, 2U) << "Initial has no mode of its own";
}

TEST(LightState, ChainOfStatesRunsFromNormalToLowLightAndBack) {
  LightCamera camera(LightStateInitial);
  camera.Light(0, 88);
  camera.Light(19, 21, 11);
  EXPECT_EQ(camera.State(), 3U);
  camera.Light(19, 21, 10);  // the frame that opened the trial was the first
  EXPECT_EQ(camera.State(), 1U);
  camera.Light(8, 81, 6);
  EXPECT_EQ(camera.State(), 3U);
  camera.Light(8, 81, 5);
  EXPECT_EQ(camera.State(), 0U);
  EXPECT_THAT(camera.Messages(),
              ElementsAre(kInitial, kFromNormal, kToLowLight, kFromLowLight, kToNormal));
}

// A frame that leaves Dummy is not evaluated again by the new state.
TEST(LightState, FrameThatLeavesDummyIsNotCountedInTheNewState) {
  LightCamera camera(LightStateDummy);
  camera.Context().LightTransitionCount = 10;
  camera.Light(19, 21);
  EXPECT_EQ(camera.State(), 1U);
  EXPECT_EQ(camera.Dark(), 0);
}

TEST(LightState, UserPictureValuesComeBackWithTheNormalListOnly) {
  LightCamera camera(LightStateDummy);
  CameraContext& context = camera.Context();
  const auto picture = {RegisterSetEntry{0x11, 0x43, 0x11}, RegisterSetEntry{0x11, 0x78, 0x22},
                        RegisterSetEntry{0x11, 0x79, 0x33}};
  LoadList(context.NormalRegisters, picture);
  LoadList(context.LowLightRegisters, picture);
  context.UserSharpness = 0x45;
  context.UserSaturation = 0xC8;
  camera.Light(8, 81, 6);
  EXPECT_THAT(camera.Accesses(), ElementsAre("write bridge FF43=45", "write bridge FF78=C8",
                                             "write bridge FF79=C8", "write sensor FF2F=83"));
  camera.ForgetTraffic();
  camera.StandIn(LightStateDummy);
  camera.Light(19, 21, 11);
  EXPECT_THAT(camera.Accesses(), ElementsAre("write bridge FF43=11", "write bridge FF78=22",
                                             "write bridge FF79=33", "write sensor FF2F=83"));
}

TEST(LightState, TransitionsToAbsentListsCommitAllTheSame) {
  LightCamera camera(LightStateDummy);
  camera.Context().NormalRegisters.Present = 0;
  camera.Light(8, 81, 6);
  EXPECT_THAT(camera.Accesses(), ElementsAre("write sensor FF2F=83"));
}

// --- Where the machine stands still --------------------------------------------------------------

TEST(LightState, OtherSensorsAndLDMode1MoveNothing) {
  struct Row {
    std::int32_t Type;
    std::int32_t LDMode;
  };
  for (const Row row : {Row{1, 0}, Row{3, 0}, Row{5, 0}, Row{6, 0}, Row{7, 0}, Row{8, 0},
                        Row{10, 0}, Row{11, 0}, Row{0, 0}, Row{9, 1}, Row{7, 1}}) {
    for (const LightState state :
         {LightStateNormal, LightStateLowLight, LightStateInitial, LightStateDummy}) {
      LightCamera camera(state);
      camera.Context().SensorType = row.Type;
      camera.Context().LDMode = row.LDMode;
      camera.Context().LightTransitionCount = 9;
      camera.Context().LightBrightCount = 4;
      for (const int luma : {0, 255, 88}) {
        for (const int exposure : {0, 8, 19}) {
          EXPECT_EQ(UpdateLightState(camera.Context(), static_cast<std::uint8_t>(exposure),
                                     static_cast<std::uint8_t>(luma)),
                    7U);
        }
      }
      EXPECT_EQ(camera.State(), state);
      EXPECT_EQ(camera.Dark(), 9);
      EXPECT_EQ(camera.Bright(), 4);
      EXPECT_THAT(camera.Messages(), IsEmpty());
      EXPECT_THAT(camera.Packets(), IsEmpty());
    }
  }
}

TEST(LightState, OtherValuesOfLDModeLetTheMachineRun) {
  for (const std::int32_t ldMode : {0, 2, -1}) {
    LightCamera camera(LightStateInitial);
    camera.Context().LDMode = ldMode;
    camera.Light(0, 88);
    EXPECT_EQ(camera.State(), 0U);
  }
}

TEST(LightState, CountsKeptThroughLDMode1GoOnAfterIt) {
  LightCamera camera(LightStateNormal);
  camera.Light(7, 48, 10);
  camera.Context().LDMode = 1;
  camera.Light(0, 255, 3);
  camera.Context().LDMode = 0;
  camera.Light(7, 48);
  EXPECT_EQ(camera.State(), 3U);
}

TEST(LightState, ValueThatIsNoStateStaysAndReturnsTheMode) {
  LightCamera camera(LightStateNormal);
  camera.Context().LightState = 4;
  EXPECT_EQ(UpdateLightState(camera.Context(), 7, 48), 7U);
  EXPECT_EQ(camera.State(), 4U);
  EXPECT_EQ(camera.Dark(), 0);
}

}  // namespace
}  // namespace lidcam::test
