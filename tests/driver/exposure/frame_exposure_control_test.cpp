#include "driver/exposure/frame_exposure_control.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "driver/core/control/camera_lifecycle.h"
#include "driver/core/control/control_codes.h"
#include "driver/exposure/auto_exposure.h"
#include "driver/exposure/light_state.h"
#include "driver/sensor/modes/mode_programming.h"
#include "tests/driver/exposure/support/exposure_bench.h"
#include "tests/driver/support/record_bytes.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// A camera that has left Initial, with the light machine held so that the exposure shows alone.
class SteeredCamera : public ExposureBench {
 public:
  SteeredCamera() { Context().LDMode = 1; }
};

TEST(FrameExposure, StepWritesGainsAndLinesInOrder) {
  SteeredCamera camera;
  AeIndex = 60;
  camera.Deliver(30);
  EXPECT_THAT(camera.Accesses(), ElementsAre("write sensor FF60=03", "write sensor FF5D=8E",
                                             "write sensor FF04=C2", "write sensor FF03=04"));
  EXPECT_EQ(AppliedExposureLines, 1218U);
  EXPECT_EQ(LastWrittenExposure, 7);
  EXPECT_EQ(camera.Context().DriverRegisterBusy, 0U);
}

// 255 lines times 20 periods make 13 bits: the sensor takes 12 of them.
TEST(FrameExposure, LinesBeyond12BitsLoseTheirTopInTheSensor) {
  SteeredCamera camera;
  camera.Context().FlickerBandStep = 255;
  AeIndex = 76;
  AeLightMode = 1;
  camera.Deliver(0);
  EXPECT_EQ(AeIndex, 80);
  EXPECT_EQ(AppliedExposureLines, 5100U);
  EXPECT_THAT(camera.Accesses(), ElementsAre("write sensor FF60=03", "write sensor FF5D=C0",
                                             "write sensor FF04=EC", "write sensor FF03=03"));
}

TEST(FrameExposure, LinesFollowTheFlickerBandStepAtTheNextStepOnly) {
  SteeredCamera camera;
  camera.Deliver(79);
  EXPECT_EQ(AppliedExposureLines, 696U);
  camera.Context().FlickerBandStep = 100;
  camera.Deliver(79, 0, 5);
  EXPECT_EQ(AppliedExposureLines, 696U);
  camera.Deliver(79);
  EXPECT_EQ(AppliedExposureLines, 400U);
}

TEST(FrameExposure, BusIsHeldDuringAStepAndTheWrittenExposureIsNotedBehindIt) {
  SteeredCamera camera;
  LastWrittenExposure = 99;
  int requests = 0;
  camera.OnRequest = [&](const WirePacket&) {
    ++requests;
    EXPECT_EQ(camera.Context().DriverRegisterBusy, 1U);
    EXPECT_EQ(AppliedExposureLines, 696U);
    EXPECT_EQ(LastWrittenExposure, 99);
  };
  camera.Deliver(79);
  EXPECT_EQ(requests, 8);
  EXPECT_EQ(LastWrittenExposure, 4);
}

TEST(FrameExposure, FrameThatDoesNotMoveTheIndexWritesNothing) {
  SteeredCamera camera;
  camera.Deliver(88);
  EXPECT_THAT(camera.Packets(), IsEmpty());
  EXPECT_EQ(AppliedExposureLines, 0U);
}

TEST(FrameExposure, RefusedWritesLeaveTheSensorBehindTheIndexAndTheNextStepGoesOn) {
  SteeredCamera camera;
  camera.Context().AppRegisterBusy = 1;
  int refused = 0;
  camera.OnTrace = [&](const std::string& line) {
    if (!line.ends_with(" refused")) return;
    ++refused;
    EXPECT_EQ(camera.Context().DriverRegisterBusy, 1U) << "the bus is held throughout";
  };
  camera.Deliver(79);
  EXPECT_EQ(refused, 4);
  EXPECT_THAT(camera.Packets(), IsEmpty());
  EXPECT_EQ(AeIndex, 31);
  EXPECT_EQ(AeOutput.Exposure, 4U);
  EXPECT_EQ(AppliedExposureLines, 696U);
  EXPECT_EQ(LastWrittenExposure, 4);
  EXPECT_EQ(camera.Context().DriverRegisterBusy, 0U);

  camera.Context().AppRegisterBusy = 0;
  camera.Context().CommitExposure = 0;  // prevents commits
  camera.Deliver(79, 0, 1);
  camera.Context().CommitCount = 10;
  camera.Deliver(79, 0, 5);
  EXPECT_EQ(AeIndex, 32);
  EXPECT_THAT(camera.Accesses(), ElementsAre("write sensor FF60=01", "write sensor FF5D=86",
                                             "write sensor FF04=B8", "write sensor FF03=02"));
}

TEST(FrameExposure, FailedWritesAreNotReportedAndStopNothing) {
  SteeredCamera camera;
  camera.Failure = [](const std::string&) { return -1; };
  camera.Deliver(79);
  EXPECT_EQ(camera.Accesses().size(), 4U);
  EXPECT_EQ(AeIndex, 31);
  EXPECT_EQ(LastWrittenExposure, 4);
}

// --- Which frames the loop sees ------------------------------------------------------------------

struct LoopRow {
  std::int32_t Type;
  std::uint32_t AutoExposure;
  std::int32_t Flicker;
  bool Runs;
};

constexpr LoopRow kLoopRows[] = {
    {9, 1, 1, true},  {9, 1, 2, true},  {9, 1, 3, true},   {9, 1, -1, true},
    {9, 1, 0, false}, {9, 0, 1, false}, {9, 2, 1, false},  {9, 0xFFFFFFFF, 1, false},
    {1, 1, 1, false}, {3, 1, 1, false}, {5, 1, 1, false},  {6, 1, 1, false},
    {7, 1, 1, false}, {8, 1, 1, false}, {10, 1, 1, false}, {11, 1, 1, false},
    {0, 1, 1, false},
};

class LoopCondition : public testing::TestWithParam<LoopRow> {};

TEST_P(LoopCondition, DecidesWhetherTheIndexMoves) {
  const LoopRow& row = GetParam();
  SteeredCamera camera;
  camera.Context().SensorType = row.Type;
  camera.Context().AutoExposure = row.AutoExposure;
  camera.Context().Flicker = row.Flicker;
  LightMode = 1;
  AeLightMode = 2;
  camera.Deliver(0);
  EXPECT_EQ(AeIndex, row.Runs ? 54 : 30);
  EXPECT_EQ(AeHoldOff, row.Runs ? 5 : 0);
  EXPECT_EQ(AeLightMode, row.Runs ? 1U : 2U) << "unchanged where the loop is off";
  EXPECT_EQ(camera.Packets().empty(), !row.Runs);
}

INSTANTIATE_TEST_SUITE_P(EveryCondition, LoopCondition, testing::ValuesIn(kLoopRows),
                         [](const auto& row) { return "Row" + std::to_string(row.index); });

TEST(FrameExposure, HoldOffStandsStillWhereTheLoopIsOff) {
  SteeredCamera camera;
  camera.Context().Flicker = 0;
  AeHoldOff = 3;
  camera.Deliver(0, 0, 10);
  EXPECT_EQ(AeHoldOff, 3);
}

// --- What the light machine is shown -------------------------------------------------------------

TEST(FrameExposure, LightMachineSeesTheTableExposureWhileTheLoopRuns) {
  ExposureBench camera;
  AeOutput.Exposure = 5;
  camera.Deliver(88, 0);
  EXPECT_EQ(camera.Context().LightState, 1U);
  EXPECT_EQ(AeLightMode, 1U);
}

TEST(FrameExposure, LightMachineSeesTheHeaderLevelWhereTheLoopIsOff) {
  ExposureBench camera;
  camera.Context().AutoExposure = 0;
  AeOutput.Exposure = 20;
  AeLightMode = 2;
  camera.Deliver(88, 4);
  EXPECT_EQ(camera.Context().LightState, 0U);
  EXPECT_EQ(LightMode, 0U);
  EXPECT_EQ(AeLightMode, 2U);
}

TEST(FrameExposure, LightMachineSeesTheLuminanceEitherWay) {
  for (const std::uint32_t automatic : {0U, 1U}) {
    ExposureBench camera;
    camera.StandIn(LightStateNormal);
    camera.Context().AutoExposure = automatic;
    AeIndex = 54;
    AeOutput.Exposure = 7;
    camera.Deliver(48, 7, 11);
    EXPECT_EQ(camera.Context().LightState, 3U) << automatic;
    EXPECT_EQ(AeLightMode, automatic == 1 ? 2U : 0U);
  }
}

TEST(FrameExposure, LightMachineSeesTheLowByteOfTheExposure) {
  ExposureBench camera;
  AeOutput.Exposure = 0x104;
  camera.Deliver(88);
  EXPECT_EQ(camera.Context().LightState, 0U);
}

// A step is followed by the light machine in the same frame, with the exposure just chosen.
TEST(FrameExposure, LightMachineSeesTheExposureOfTheStepOfTheSameFrame) {
  ExposureBench camera;
  AeIndex = 54;
  AeOutput.Exposure = 7;
  camera.Deliver(255);
  EXPECT_EQ(AeOutput.Exposure, 3U);
  EXPECT_EQ(camera.Context().LightState, 0U);
}

TEST(FrameExposure, BeforeTheFirstStepTheLightMachineSeesExposure0AndEntersNormal) {
  ExposureBench camera;
  LoadList(camera.Context().NormalRegisters, {{0x33, 0x09, 0x2F}});
  LoadList(camera.Context().LowLightRegisters, {{0x33, 0x09, 0x1F}});
  camera.Deliver(88, 200);
  EXPECT_EQ(AeOutput.Exposure, 0U);
  EXPECT_EQ(camera.Context().LightState, 0U);
  EXPECT_THAT(camera.Accesses(), ElementsAre("write sensor FF09=2F"));
}

TEST(FrameExposure, LightModeBoundsTheIndexFromTheNextFrameOn) {
  ExposureBench camera;
  camera.StandIn(LightStateNormal);
  camera.Context().LightTransitionCount = 10;
  AeIndex = 54;
  AeOutput.Exposure = 7;
  camera.Deliver(40);
  EXPECT_EQ(camera.Context().LightState, 3U);
  EXPECT_EQ(AeIndex, 54) << "bounded by Normal in the frame that opened the trial";
  camera.Deliver(40);
  EXPECT_EQ(AeIndex, 62);
}

// From day to night and back: the loop and the light machine bound and drive each other.
TEST(FrameExposure, DarknessDrivesTheIndexThroughDummyIntoLowLightAndLightBringsItBack) {
  ExposureBench camera;
  camera.Deliver(88);
  EXPECT_EQ(camera.Context().LightState, 0U);
  int frames = 0;
  while (camera.Context().LightState != 1U && frames < 1000) {
    camera.Deliver(10);
    ++frames;
    EXPECT_LE(AeIndex, LightMode == 0U ? 54 : 76);
  }
  // A step to 54, ten dark frames more; a step to 76 in the frame after, eleven at its exposure.
  EXPECT_EQ(frames, 22);
  camera.Deliver(10, 0, 6);
  EXPECT_EQ(AeIndex, 80);
  while (camera.Context().LightState != 0U && frames < 1000) {
    camera.Deliver(200);
    ++frames;
  }
  EXPECT_EQ(camera.Context().LightState, 0U);
  EXPECT_LE(AeIndex, 54);
}

// Values that no reset gives, in every variable that the cameras share.
SharedExposure LeaveUnusualExposure() {
  AeHoldOff = 3;
  AeIndex = 61;
  AeOutput.Exposure = 10;
  AeOutput.CoarseGain = 3;
  AeOutput.FineGain = 128;
  AeRatio = 1234;
  AppliedExposureLines = 1740;
  LastWrittenExposure = 10;
  AeLightMode = 2;
  LightMode = 2;
  return SharedExposure::Now();
}

TEST(FrameExposure, SurvivesTheStartAndTheEndOfAStream) {
  for (const std::uint32_t mode : {RawMode640x480, RawMode320x240, RawMode160x120}) {
    ExposureBench camera;
    const SharedExposure before = LeaveUnusualExposure();
    camera.Context().RawSizeMode = mode;
    camera.Context().LightState = LightStateDummy;
    MarkStreaming(camera.Context());
    ProgramStreamMode(camera.Context());
    EXPECT_EQ(camera.Context().LightState, 2U) << "the start did take place";
    EXPECT_EQ(SharedExposure::Now(), before) << "start, mode " << mode;
    EndStream(camera.Context());
    EXPECT_EQ(SharedExposure::Now(), before) << "end, mode " << mode;
  }
}

TEST(FrameExposure, SurvivesEveryControl) {
  for (std::uint32_t code = 0; code <= 47; ++code) {
    for (const std::int32_t value : {0, 1, 2}) {
      ExposureBench camera;
      camera.Context().LDMode = 3;
      const SharedExposure before = LeaveUnusualExposure();
      SetControl(camera.Context(), {.Code = code,
                                    .Value = value,
                                    .Value2 = 0,
                                    .Flags = kControlFlagAuto,
                                    .Caps = 4,
                                    .Words = {}});
      EXPECT_EQ(SharedExposure::Now(), before) << "code " << code << " value " << value;
    }
  }
}

// --- What a frame touches ------------------------------------------------------------------------

TEST(FrameExposure, ReadsTheHeaderAndTouchesNoOtherFieldOfTheRecord) {
  ExposureBench camera;
  CameraContext& context = camera.Context();
  FillRecord(context, 0x5A);
  context.SensorType = SensorTypeVGA0708;
  context.AutoExposure = 1;
  context.Flicker = 1;
  context.NormalRegisters.Present = 0;
  context.LowLightRegisters.Present = 0;
  context.LightState = LightStateNormal;
  context.LightTransitionCount = 10;
  context.CommitExposure = 7;
  context.CommitCount = 2;
  AeIndex = 54;
  AeOutput.Exposure = 7;
  const std::vector<std::uint8_t> before = BytesOf(context);
  const auto header = std::make_unique<std::uint8_t[]>(24);
  header[16] = 200;
  header[23] = 40;
  RunFrameExposureControl(context, header.get());
  EXPECT_EQ(context.LightState, 3U);
  EXPECT_EQ(context.LightTransitionCount, 0);
  EXPECT_EQ(context.LightBrightCount, 0);
  EXPECT_EQ(context.FrameSettleCount, 0U);
  EXPECT_EQ(context.CommitCount, 4);
  context.LightState = LightStateNormal;
  context.LightTransitionCount = 10;
  context.LightBrightCount = 0x5A5A5A5A;
  context.FrameSettleCount = 0x5A5A5A5A;
  context.CommitCount = 2;
  EXPECT_EQ(BytesOf(context), before);
}

}  // namespace
}  // namespace lidcam::test
