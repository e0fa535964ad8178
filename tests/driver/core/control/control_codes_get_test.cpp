// Reading by control code.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "driver/core/control/control_codes.h"
#include "tests/driver/support/register_space.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// All words of a record after a get; untouched words keep 0xA0 and up.
struct Answer {
  Status Result;
  std::int32_t Value;
  std::int32_t Value2;
  std::uint32_t Flags;
  std::uint32_t Caps;
  std::vector<std::uint32_t> Words;

  bool operator==(const Answer&) const = default;
};

void PrintTo(const Answer& answer, std::ostream* out) {
  *out << "status " << answer.Result << " value " << answer.Value << ' ' << answer.Value2
       << " flags " << answer.Flags << " caps " << answer.Caps << " words";
  for (const std::uint32_t word : answer.Words) *out << ' ' << word;
}

constexpr std::int32_t kValue = 0xA0;
constexpr std::int32_t kValue2 = 0xA1;
constexpr std::uint32_t kFlags = 0xA2;
constexpr std::uint32_t kCaps = 0xA3;
const std::vector<std::uint32_t> kWords = {0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xA9};

class ReadableCamera : public RegisterSpace {
 public:
  Answer Get(std::uint32_t code, std::int32_t value = kValue) {
    ControlRecord record{.Code = code,
                         .Value = value,
                         .Value2 = kValue2,
                         .Flags = kFlags,
                         .Caps = kCaps,
                         .Words = {0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xA9}};
    const Status status = GetControl(Context(), record);
    EXPECT_EQ(record.Code, code);
    return {status,       record.Value, record.Value2,
            record.Flags, record.Caps,  {record.Words, record.Words + 6}};
  }
};

Answer Value(std::int32_t value, std::uint32_t flags = 2, std::uint32_t caps = 2) {
  return {0, value, kValue2, flags, caps, kWords};
}

TEST(GetControlTest, ReportsEachStoredSettingAsManual) {
  ReadableCamera camera;
  CameraContext& context = camera.Context();
  context.Brightness = -41;
  context.Contrast = 2;
  context.Saturation = 3;
  context.Sharpness = 4;
  context.Gamma = 5;
  context.ColorEnable = 6;
  context.BackLight = 7;
  context.Flicker = 8;
  context.Mirror = 9;
  context.Vertical = 10;
  context.StoredControl44 = 0xFFFFFFFE;
  context.StoredControl45 = 20;
  context.StoredControl46 = 15;
  context.Effect = 11;
  struct Row {
    std::uint32_t Code;
    std::int32_t Value;
  };
  constexpr Row kRows[] = {{0, -41}, {1, 2},   {2, 3},   {3, 4},   {4, 5},
                           {5, 6},   {7, 7},   {9, 8},   {38, 9},  {39, 10},
                           {40, 8},  {44, -2}, {45, 20}, {46, 15}, {47, 11}};
  for (const Row& row : kRows) EXPECT_EQ(camera.Get(row.Code), Value(row.Value)) << row.Code;
  EXPECT_THAT(camera.Packets(), IsEmpty());
}

TEST(GetControlTest, BothFlickerCodesReadTheSameField) {
  ReadableCamera camera;
  for (const std::int32_t flicker : {0, 1, 2}) {
    camera.Context().Flicker = flicker;
    EXPECT_EQ(camera.Get(9), camera.Get(40));
    EXPECT_EQ(camera.Get(9), Value(flicker));
  }
}

TEST(GetControlTest, WhiteBalanceModeIsAutomaticForAnyValueBut0) {
  ReadableCamera camera;
  EXPECT_EQ(camera.Get(6), Value(0, 2, 1));
  camera.Context().WhiteBalanceAuto = 1;
  EXPECT_EQ(camera.Get(6), Value(1, 1, 1));
  camera.Context().WhiteBalanceAuto = 2;
  EXPECT_EQ(camera.Get(6), Value(2, 1, 1));
}

TEST(GetControlTest, WhiteBalanceIsAutomaticForExactly1) {
  ReadableCamera camera;
  camera.Context().WhiteBalance = 77;
  EXPECT_EQ(camera.Get(8), Value(77, 2, 1));
  camera.Context().WhiteBalanceAuto = 1;
  EXPECT_EQ(camera.Get(8), Value(77, 1, 1));
  camera.Context().WhiteBalanceAuto = 2;
  EXPECT_EQ(camera.Get(8), Value(77, 2, 1));
}

TEST(GetControlTest, ExposureIsAutomaticForAnyAutoExposureBut0) {
  ReadableCamera camera;
  camera.Context().Exposure = 55;
  EXPECT_EQ(camera.Get(12), Value(55, 2, 3));
  camera.Context().AutoExposure = 1;
  EXPECT_EQ(camera.Get(12), Value(55, 1, 3));
  camera.Context().AutoExposure = 2;
  EXPECT_EQ(camera.Get(12), Value(55, 1, 3));
}

TEST(GetControlTest, TriggerIsManualAsNothingSetsItsFlags) {
  ReadableCamera camera;
  camera.Context().TriggerBase = 1;
  EXPECT_EQ(camera.Get(23), Value(kValue, 2, 2));
}

TEST(GetControlTest, TriggerFlagsShowAsBits) {
  ReadableCamera camera;
  camera.Context().TriggerFlagA = 3;
  EXPECT_EQ(camera.Get(23), Value(kValue, 0x12, 2));
  camera.Context().TriggerFlagB = 1;
  EXPECT_EQ(camera.Get(23), Value(kValue, 0x32, 2));
  camera.Context().TriggerFlagA = 0;
  EXPECT_EQ(camera.Get(23), Value(kValue, 0x22, 2));
}

TEST(GetControlTest, TriggerCapabilitiesLeaveTheValueAlone) {
  ReadableCamera camera;
  EXPECT_EQ(camera.Get(24), Value(kValue, 2, 0x30));
}

TEST(GetControlTest, FrameIntervalComesFromTheLongTableOnEveryCamera) {
  struct Row {
    std::uint32_t MaxAlternateSetting;
    std::int32_t Interval;
  };
  constexpr Row kRows[] = {{0, 0},      {1, 1666666}, {2, 833333}, {3, 666666},
                           {4, 555555}, {5, 500000},  {6, 400000}, {7, 333333}};
  for (const std::uint32_t longConfig : {0U, 1U}) {
    for (const Row& row : kRows) {
      ReadableCamera camera;
      camera.Context().LongConfigDescriptor = longConfig;
      camera.Context().MaxAlternateSetting = row.MaxAlternateSetting;
      camera.Context().CaptureWidth = 639;
      EXPECT_EQ(camera.Get(25), (Answer{0, row.Interval, 333333, 2, 2, kWords}));
      camera.Context().CaptureWidth = 640;
      EXPECT_EQ(camera.Get(25), (Answer{0, row.Interval, 666666, 2, 2, kWords}));
    }
  }
}

TEST(GetControlTest, AnAlternateSettingBeyondTheTableHasNoInterval) {
  ReadableCamera camera;
  camera.Context().MaxAlternateSetting = 8;
  EXPECT_EQ(camera.Get(25), (Answer{0, 0, 333333, 2, 2, kWords}));
}

TEST(GetControlTest, StillSizesOfAnEnlargedStreamAre1280And800) {
  ReadableCamera camera;
  camera.Context().RequestedWidth = 800;
  camera.Context().CaptureWidth = 640;
  camera.Context().CaptureHeight = 480;
  EXPECT_EQ(camera.Get(28), (Answer{0, 0, 2, 1280, 960, {3686400, 0, 800, 600, 1440000, 0}}));
}

TEST(GetControlTest, StillSizesOf640By480Are1280And640) {
  ReadableCamera camera;
  camera.Context().RequestedWidth = 640;
  camera.Context().CaptureWidth = 640;
  camera.Context().CaptureHeight = 480;
  EXPECT_EQ(camera.Get(28), (Answer{0, 0, 2, 1280, 960, {3686400, 0, 640, 480, 921600, 0}}));
}

TEST(GetControlTest, OtherStreamsHaveTheirOwnStillSizeOnly) {
  struct Row {
    std::int32_t Width;
    std::int32_t Height;
    std::uint32_t Bytes;
  };
  constexpr Row kRows[] = {{352, 288, 304128}, {320, 240, 230400}, {176, 144, 76032},
                           {160, 120, 57600},  {640, 400, 768000}, {320, 480, 460800},
                           {0, 0, 0}};
  for (const Row& row : kRows) {
    ReadableCamera camera;
    camera.Context().RequestedWidth = row.Width;
    camera.Context().CaptureWidth = row.Width;
    camera.Context().CaptureHeight = row.Height;
    EXPECT_EQ(camera.Get(28), (Answer{0,
                                      0,
                                      1,
                                      static_cast<std::uint32_t>(row.Width),
                                      static_cast<std::uint32_t>(row.Height),
                                      {row.Bytes, 0, 0xA6, 0xA7, 0xA8, 0xA9}}));
  }
}

TEST(GetControlTest, Code30LeavesTheRecordAsItCame) {
  ReadableCamera camera;
  EXPECT_EQ(camera.Get(30), (Answer{0, kValue, kValue2, kFlags, kCaps, kWords}));
}

TEST(GetControlTest, Code31IsUnknownAndPresetsFlagsAndCaps) {
  ReadableCamera camera;
  EXPECT_EQ(camera.Get(31), (Answer{-1, 0, kValue2, 2, 2, kWords}));
}

TEST(GetControlTest, UnknownCodesClearTheValue) {
  const std::set<std::uint32_t> known = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  12, 23, 24, 25,
                                         28, 30, 33, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47};
  for (std::uint32_t code = 0; code < 300; ++code) {
    ReadableCamera camera;
    if (known.contains(code)) {
      EXPECT_EQ(camera.Get(code).Result, 0) << code;
      continue;
    }
    const bool leavesWords = code == 27 || code == 29;
    EXPECT_EQ(camera.Get(code),
              (Answer{-1, 0, kValue2, leavesWords ? kFlags : 2, leavesWords ? kCaps : 2, kWords}))
        << code;
    EXPECT_THAT(camera.Packets(), IsEmpty());
  }
  ReadableCamera camera;
  EXPECT_EQ(camera.Get(0xFFFFFFFF), (Answer{-1, 0, kValue2, 2, 2, kWords}));
}

TEST(GetControlTest, Code33IsAutomatic) {
  ReadableCamera camera;
  camera.Context().StoredControl33 = 12;
  EXPECT_EQ(camera.Get(33), Value(12, 1, 1));
}

TEST(GetControlTest, RawRegisterIsReadUnderTheSelectInForce) {
  ReadableCamera camera;
  camera.Bridge[0x0B] = 0xFE;
  EXPECT_EQ(camera.Get(37, 0x1234FF0B), Value(0xFE));
  EXPECT_THAT(camera.Packets(), ElementsAre(WirePacket{0xC0, 0xA1, 1, 0, 0x0B, 0xFF, 1, 0}));
}

TEST(GetControlTest, AFailedRawReadGivesItsStatusAnd0) {
  ReadableCamera camera;
  camera.Bridge[0x0B] = 0xFE;
  camera.Failure = [](const std::string&) { return -9; };
  EXPECT_EQ(camera.Get(37, 0xFF0B), (Answer{-9, 0, kValue2, 2, 2, kWords}));
}

TEST(GetControlTest, LightModeComesWithTheLedInCaps) {
  ReadableCamera camera;
  camera.Context().LDMode = 1;
  camera.Context().LED = 4;
  EXPECT_EQ(camera.Get(41), Value(1, 2, 4));
}

TEST(GetControlTest, Code42IsClearedByAsking) {
  ReadableCamera camera;
  EXPECT_EQ(camera.Get(42), Value(0));
  camera.Context().ClearOnReadValue = 9;
  EXPECT_EQ(camera.Get(42), Value(9));
  EXPECT_EQ(camera.Context().ClearOnReadValue, 0U);
  EXPECT_EQ(camera.Get(42), Value(0));
}

TEST(GetControlTest, Code43ReportsStreamingAndNotTheStillRequest) {
  ReadableCamera camera;
  camera.Context().StillRequestValue = 6;
  EXPECT_EQ(camera.Get(43), Value(0));
  camera.Context().Streaming = 0xFF;
  EXPECT_EQ(camera.Get(43), Value(255)) << "widened with zero";
}

}  // namespace
}  // namespace lidcam::test
