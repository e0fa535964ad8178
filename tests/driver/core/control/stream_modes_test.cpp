#include "driver/core/control/stream_modes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <string>
#include <vector>

#include "tests/driver/support/register_space.h"
#include "tests/driver/support/trace_lines.h"

namespace lidcam::test {
namespace {

using ::testing::Contains;
using ::testing::Not;

constexpr std::int32_t kAllSensors[] = {1, 3, 5, 6, 7, 8, 9, 10, 11};
constexpr std::uint32_t kYuy2 = 0x32595559;
constexpr std::uint32_t kRgb24 = 0xE436EB7D;
constexpr std::uint32_t kI420 = 0x30323449;

struct Negotiated {
  Status Result = -1;
  std::uint32_t BufferSize = 0;
  std::uint8_t AlternateSetting = 0xEE;
};

class StreamModes : public ::testing::Test {
 protected:
  Negotiated Negotiate(const FormatRequest& request) {
    Negotiated negotiated;
    negotiated.Result =
        NegotiateFormat(camera_, request, negotiated.BufferSize, negotiated.AlternateSetting);
    return negotiated;
  }

  Negotiated NegotiateSize(std::int32_t width, std::int32_t height) {
    FormatRequest request{};
    request.Width = width;
    request.Height = height;
    request.Compression = kYuy2;
    return Negotiate(request);
  }

  Time100ns NegotiateInterval(Time100ns interval) {
    FormatRequest request{};
    request.AvgTimePerFrame = interval;
    Negotiate(request);
    EXPECT_EQ(camera_.RequestedFrameInterval, camera_.FrameInterval);
    return camera_.FrameInterval;
  }

  Status Select(std::uint32_t alternateSetting) {
    FormatRequest request{};
    request.AlternateSetting = alternateSetting;
    return SelectStreamMode(camera_, request);
  }

  RegisterSpace space_;
  CameraContext& camera_ = space_.Context();
};

// --- Tables ---

struct TypedBandwidthRow {
  std::uint32_t AlternateSetting;
  std::uint32_t PacketSize;
  Time100ns Interval;
};

template <std::size_t Count>
void ExpectBandwidthRows(const BandwidthRow (&actual)[Count],
                         const std::vector<TypedBandwidthRow>& expected) {
  ASSERT_EQ(Count, expected.size());
  for (std::size_t i = 0; i < Count; ++i) {
    EXPECT_EQ(actual[i].AlternateSetting, expected[i].AlternateSetting) << "row " << i;
    EXPECT_EQ(actual[i].PacketSize, expected[i].PacketSize) << "row " << i;
    EXPECT_EQ(actual[i].Interval, expected[i].Interval) << "row " << i;
  }
}

TEST(BandwidthTables, LongConfigurationHasTheseEightRows) {
  ExpectBandwidthRows(kLongBandwidthTable, {{0, 0, 0},
                                            {1, 128, 1666666},
                                            {2, 512, 833333},
                                            {3, 1024, 666666},
                                            {4, 2816, 555555},
                                            {5, 3072, 500000},
                                            {6, 4992, 400000},
                                            {7, 5120, 333333}});
}

TEST(BandwidthTables, ShortConfigurationHasTheseFourRows) {
  ExpectBandwidthRows(kShortBandwidthTable,
                      {{0, 0, 0}, {1, 128, 2000000}, {2, 512, 666666}, {3, 1023, 333333}});
}

struct SizeRow {
  std::int32_t Sensor;
  std::array<std::uint32_t, 6> Bytes;  // modes 1 to 6
};

constexpr std::uint32_t kBefore = 4711;  // stands where the size is kept

constexpr SizeRow kSizes[] = {
    {1, {614466, 153666, 76866, 38466, 19266, kBefore}},
    {3, {kBefore, kBefore, kBefore, kBefore, kBefore, kBefore}},
    {5, {609346, 152386, kBefore, 38146, kBefore, kBefore}},
    {6, {614458, 153666, 76226, 38462, 19106, kBefore}},
    {7, {614466, 153666, 75750, 38466, 19266, kBefore}},
    {8, {614466, 153666, 75750, 38466, 19266, kBefore}},
    {9, {614466, 153666, 76866, 38466, 19266, kBefore}},
    {10, {655426, 163906, kBefore, 41022, kBefore, 2621506}},
    {11, {614466, 153666, 75750, 38466, 19266, kBefore}},
    {2, {kBefore, kBefore, kBefore, kBefore, kBefore, kBefore}},
    {4, {kBefore, kBefore, kBefore, kBefore, kBefore, kBefore}},
    {12, {kBefore, kBefore, kBefore, kBefore, kBefore, kBefore}},
};

// Alternate setting 1 keeps the mode, so that every cell of the table can be reached.
TEST_F(StreamModes, RawFrameSizeFollowsEveryCellOfItsTable) {
  for (const SizeRow& row : kSizes) {
    for (std::uint32_t mode = 1; mode <= 6; ++mode) {
      camera_.SensorType = row.Sensor;
      camera_.RawSizeMode = mode;
      camera_.RawFrameSize = kBefore;
      EXPECT_EQ(Select(1), 0);
      EXPECT_EQ(camera_.RawFrameSize, row.Bytes[mode - 1])
          << "sensor " << row.Sensor << " mode " << mode;
      EXPECT_EQ(camera_.RawSizeMode, mode);
    }
  }
}

TEST(RawFrameBytes, AreThoseOfTheTableAndNoneWhereTheSizeIsKept) {
  for (const SizeRow& row : kSizes) {
    for (std::uint32_t mode = 1; mode <= 6; ++mode) {
      const std::uint32_t bytes = row.Bytes[mode - 1];
      EXPECT_EQ(RawFrameBytes(row.Sensor, mode), bytes == kBefore ? 0 : bytes)
          << "sensor " << row.Sensor << " mode " << mode;
    }
    for (const std::uint32_t mode : {0U, 7U, 0xFFFFFFFFU}) {
      EXPECT_EQ(RawFrameBytes(row.Sensor, mode), 0U);
    }
  }
}

TEST_F(StreamModes, ModeWithoutASizeKeepsTheRawFrameSize) {
  for (const std::uint32_t mode : {0U, 7U, 0xFFFFFFFFU}) {
    camera_.SensorType = 9;
    camera_.RawSizeMode = mode;
    camera_.RawFrameSize = kBefore;
    EXPECT_EQ(Select(1), 0);
    EXPECT_EQ(camera_.RawFrameSize, kBefore);
  }
}

struct SettingRow {
  std::uint32_t AlternateSetting;
  std::uint32_t RawSizeMode;  // at 640 by 480
  bool SetupRegisters;
};

constexpr std::uint32_t kModeBefore = 5;  // never produced: stands where the mode is kept

constexpr SettingRow kSettings[] = {
    {0, kModeBefore, false},
    {1, kModeBefore, false},
    {2, 4, false},
    {3, 4, false},
    {4, 2, false},
    {5, 2, false},
    {6, 2, false},
    {7, 1, true},
    {8, kModeBefore, false},
    {9, kModeBefore, false},
    {0xFFFFFFFFU, kModeBefore, false},
};

TEST_F(StreamModes, RawSizeFollowsTheAlternateSettingOnEverySensor) {
  for (const std::int32_t sensor : kAllSensors) {
    for (const SettingRow& row : kSettings) {
      SCOPED_TRACE(::testing::Message() << "sensor " << sensor << " " << row.AlternateSetting);
      space_.ForgetTraffic();
      camera_.SensorType = sensor;
      camera_.RawSizeMode = kModeBefore;
      camera_.CaptureWidth = 640;
      camera_.CaptureHeight = 480;
      camera_.Streaming = 0;
      camera_.SetupRegisters.Present = 1;
      camera_.SetupRegisters.Count = 1;
      camera_.SetupRegisters.Entries[0] = {0x11, 0xA5, 0xC3};
      EXPECT_EQ(Select(row.AlternateSetting), 0);
      EXPECT_EQ(camera_.RawSizeMode, row.RawSizeMode);
      EXPECT_EQ(camera_.StreamAlternateSetting, row.AlternateSetting);
      EXPECT_EQ(camera_.Streaming, 1);
      EXPECT_THAT(space_.Accesses(), Contains("write sensor FF2F=85"));
      if (row.SetupRegisters) {
        EXPECT_THAT(space_.Accesses(), Contains("write bridge FFA5=C3"));
      } else {
        EXPECT_THAT(space_.Accesses(), Not(Contains("write bridge FFA5=C3")));
      }
    }
  }
}

struct WidestRow {
  std::int32_t Sensor;
  std::int32_t Width;
  std::int32_t Height;
  std::uint32_t RawSizeMode;
};

constexpr WidestRow kWidest[] = {
    {10, 1280, 1024, 6}, {10, 801, 601, 6},  {10, 800, 601, 1},   {10, 801, 600, 1},
    {10, 640, 480, 1},   {10, 320, 240, 1},  {9, 1280, 1024, 1},  {9, 640, 480, 1},
    {9, 352, 288, 1},    {9, 321, 240, 1},   {9, 320, 240, 2},    {9, 176, 144, 2},
    {9, 160, 120, 2},    {9, -5, 120, 2},    {1, 320, 240, 1},    {1, 1280, 1024, 1},
    {3, 320, 240, 1},    {5, 320, 240, 1},   {6, 320, 240, 1},    {7, 320, 240, 1},
    {8, 320, 240, 1},    {11, 320, 240, 1},  {5, 1280, 1024, 1},  {6, 1280, 1024, 1},
    {7, 1280, 1024, 1},  {8, 1280, 1024, 1}, {11, 1280, 1024, 1}, {10, -1, 1024, 1},
    {10, 1280, -1, 1},
};

TEST_F(StreamModes, WidestSettingChoosesTheRawSizeBySensorAndCaptureSize) {
  for (const WidestRow& row : kWidest) {
    camera_.SensorType = row.Sensor;
    camera_.CaptureWidth = row.Width;
    camera_.CaptureHeight = row.Height;
    camera_.RawSizeMode = kModeBefore;
    EXPECT_EQ(Select(7), 0);
    EXPECT_EQ(camera_.RawSizeMode, row.RawSizeMode)
        << "sensor " << row.Sensor << " " << row.Width << "x" << row.Height;
  }
}

// --- Negotiation ---

TEST_F(StreamModes, EightHundredBy480Becomes800By600CapturedAs640By480) {
  EXPECT_EQ(NegotiateSize(800, 480).Result, 0);
  EXPECT_EQ(camera_.RequestedWidth, 800);
  EXPECT_EQ(camera_.RequestedHeight, 600);
  EXPECT_EQ(camera_.CaptureWidth, 640);
  EXPECT_EQ(camera_.CaptureHeight, 480);
}

TEST_F(StreamModes, OtherSizesAreCapturedAsRequested) {
  constexpr std::array<std::array<std::int32_t, 2>, 8> kRequests = {{{640, 480},
                                                                     {352, 288},
                                                                     {320, 240},
                                                                     {160, 120},
                                                                     {799, 600},
                                                                     {801, 600},
                                                                     {1280, 1024},
                                                                     {640, -480}}};
  for (const auto& [width, height] : kRequests) {
    NegotiateSize(width, height);
    EXPECT_EQ(camera_.RequestedWidth, width);
    EXPECT_EQ(camera_.CaptureWidth, width);
    EXPECT_EQ(camera_.RequestedHeight, height);
    EXPECT_EQ(camera_.CaptureHeight, height);
  }
}

TEST_F(StreamModes, CifStreamTakesTheRawSizeOfItsAlternateSetting) {
  camera_.SensorType = 9;
  NegotiateSize(352, 288);
  EXPECT_EQ(camera_.CaptureWidth, 352);
  EXPECT_EQ(camera_.CaptureHeight, 288);
  Select(3);
  EXPECT_EQ(camera_.RawSizeMode, 4U);
  Select(5);
  EXPECT_EQ(camera_.RawSizeMode, 2U);
  Select(7);
  EXPECT_EQ(camera_.RawSizeMode, 1U);
}

TEST_F(StreamModes, FrameIntervalIsClampedAs64BitNumber) {
  EXPECT_EQ(NegotiateInterval(333333), 333333);
  EXPECT_EQ(NegotiateInterval(333332), 333333);
  EXPECT_EQ(NegotiateInterval(333334), 333334);
  EXPECT_EQ(NegotiateInterval(0), 333333);
  EXPECT_EQ(NegotiateInterval(666666), 666666);
  EXPECT_EQ(NegotiateInterval(9999999), 9999999);
  EXPECT_EQ(NegotiateInterval(10000000), 10000000);
  EXPECT_EQ(NegotiateInterval(10000001), 10000000);
  EXPECT_EQ(NegotiateInterval(Time100ns{1} << 32), 10000000);
  EXPECT_EQ(NegotiateInterval((Time100ns{1} << 32) + 400000), 10000000);
  EXPECT_EQ(NegotiateInterval(-1), 333333);
  EXPECT_EQ(NegotiateInterval(std::numeric_limits<Time100ns>::min()), 333333);
  EXPECT_EQ(NegotiateInterval(std::numeric_limits<Time100ns>::max()), 10000000);
}

TEST_F(StreamModes, FormatTagFollowsTheThreeKnownCompressions) {
  constexpr std::array<std::array<std::uint32_t, 2>, 3> kTags = {
      {{0, kRgb24}, {kI420, kI420}, {kYuy2, kYuy2}}};
  for (const auto& [compression, tag] : kTags) {
    FormatRequest request{};
    request.Compression = compression;
    EXPECT_EQ(Negotiate(request).Result, 0);
    EXPECT_EQ(camera_.FormatTag, tag);
    EXPECT_EQ(camera_.RequestedCompression, compression);
  }
}

TEST_F(StreamModes, UnknownCompressionLeavesTheFormatTagAndStillSucceeds) {
  NegotiateSize(640, 480);
  FormatRequest request{};
  request.Compression = 0x41424344;
  EXPECT_EQ(Negotiate(request).Result, 0);
  EXPECT_EQ(camera_.FormatTag, kYuy2);
  EXPECT_EQ(camera_.RequestedCompression, 0x41424344U);
}

TEST_F(StreamModes, BufferIsSizedForTheSensorsLargestPicture) {
  for (const std::int32_t sensor : kAllSensors) {
    camera_.SensorType = sensor;
    EXPECT_EQ(NegotiateSize(160, 120).BufferSize, sensor == 10 ? 3932226U : 921666U) << sensor;
  }
}

TEST_F(StreamModes, FirstTryIsTheWidestSettingOfTheConfiguration) {
  camera_.LongConfigDescriptor = 0x80000000U;
  EXPECT_EQ(NegotiateSize(160, 120).AlternateSetting, 7);
  EXPECT_EQ(camera_.MaxAlternateSetting, 7U);
  EXPECT_EQ(camera_.MaxAlternateSettingCopy, 7U);
  camera_.LongConfigDescriptor = 0;
  EXPECT_EQ(NegotiateSize(160, 120).AlternateSetting, 3);
  EXPECT_EQ(camera_.MaxAlternateSetting, 3U);
  EXPECT_EQ(camera_.MaxAlternateSettingCopy, 3U);
}

TEST_F(StreamModes, NegotiationKeepsTheRestOfTheRequestAndClearsItsMark) {
  camera_.NegotiationMark = 9;
  camera_.StreamAlternateSetting = 6;
  camera_.RawSizeMode = 2;
  camera_.RawFrameSize = kBefore;
  const FormatRequest request = {.Width = 640,
                                 .Height = 480,
                                 .BitCount = 16,
                                 .Compression = kYuy2,
                                 .ImageSize = 614400,
                                 .Spare = 12,
                                 .AvgTimePerFrame = 400000,
                                 .AlternateSetting = 5};
  EXPECT_EQ(Negotiate(request).Result, 0);
  EXPECT_EQ(camera_.RequestedBitCount, 16U);
  EXPECT_EQ(camera_.RequestedImageSize, 614400U);
  EXPECT_EQ(camera_.RequestedSpare, 12U);
  EXPECT_EQ(camera_.NegotiationMark, 0);
  EXPECT_EQ(camera_.StreamAlternateSetting, 6U);
  EXPECT_EQ(camera_.RawSizeMode, 2U);
  EXPECT_EQ(camera_.RawFrameSize, kBefore);
  EXPECT_TRUE(space_.Packets().empty());
}

// --- Selection ---

TEST_F(StreamModes, Mi1318StreamsItsFullSizeAtTheWidestSetting) {
  camera_.SensorType = 10;
  NegotiateSize(1280, 1024);
  EXPECT_EQ(Select(7), 0);
  EXPECT_EQ(camera_.RawSizeMode, 6U);
  EXPECT_EQ(camera_.RawFrameSize, 2621506U);
}

TEST_F(StreamModes, Mi1318Captures800By600InVga) {
  camera_.SensorType = 10;
  NegotiateSize(800, 600);
  EXPECT_EQ(Select(7), 0);
  EXPECT_EQ(camera_.RawSizeMode, 1U);
  EXPECT_EQ(camera_.RawFrameSize, 655426U);
}

TEST_F(StreamModes, Vga0708CapturesQvgaInHalfSizeWithTheSetupRegistersWritten) {
  camera_.SensorType = 9;
  camera_.SetupRegisters.Present = 1;
  camera_.SetupRegisters.Count = 1;
  camera_.SetupRegisters.Entries[0] = {0x33, 0x7E, 0x11};
  NegotiateSize(320, 240);
  EXPECT_EQ(Select(7), 0);
  EXPECT_EQ(camera_.RawSizeMode, 2U);
  EXPECT_EQ(camera_.RawFrameSize, 153666U);
  ASSERT_FALSE(space_.Accesses().empty());
  EXPECT_EQ(space_.Accesses().front(), "write sensor FF7E=11");
  EXPECT_THAT(space_.Accesses(), Contains("write bridge FF0A=10"));
}

// Manual exposure of the Mi1318 depends on the raw size, which the replay of the controls must see.
TEST_F(StreamModes, SetupRegistersRunAfterTheRawSizeIsSet) {
  camera_.SensorType = 10;
  camera_.RawSizeMode = 4;
  camera_.AutoExposure = 0;
  camera_.Exposure = 1;
  NegotiateSize(1280, 1024);
  EXPECT_EQ(Select(7), 0);
  EXPECT_THAT(space_.Accesses(), Contains("write bridge FF7F=50"));  // 80 lines, not 159
}

TEST_F(StreamModes, ReservedSensorLeavesTheRawFrameSizeInEveryMode) {
  camera_.SensorType = 3;
  camera_.RawFrameSize = kBefore;
  NegotiateSize(640, 480);
  for (std::uint32_t setting = 0; setting < 10; ++setting) {
    EXPECT_EQ(Select(setting), 0);
    EXPECT_EQ(camera_.RawFrameSize, kBefore);
  }
}

TEST_F(StreamModes, Vga7648HasItsOwnFrameSizes) {
  camera_.SensorType = 5;
  NegotiateSize(640, 480);
  Select(7);
  EXPECT_EQ(camera_.RawFrameSize, 609346U);
  Select(2);
  EXPECT_EQ(camera_.RawFrameSize, 38146U);
}

TEST_F(StreamModes, AlternateSettingOneKeepsTheLastStartsSizeAndStillProgramsTheMode) {
  camera_.SensorType = 9;
  NegotiateSize(640, 480);
  Select(5);
  space_.ForgetTraffic();
  EXPECT_EQ(Select(1), 0);
  EXPECT_EQ(camera_.RawSizeMode, 2U);
  EXPECT_EQ(camera_.RawFrameSize, 153666U);
  EXPECT_EQ(camera_.StreamAlternateSetting, 1U);
  EXPECT_THAT(space_.Accesses(), Contains("write bridge FF0A=10"));
  EXPECT_THAT(space_.Accesses(), Contains("write sensor FF2F=85"));
}

TEST_F(StreamModes, ShortConfigurationNeverLeavesTheSmallestSize) {
  camera_.SensorType = 9;
  const Negotiated negotiated = NegotiateSize(640, 480);
  EXPECT_EQ(negotiated.AlternateSetting, 3);
  for (std::uint32_t setting = negotiated.AlternateSetting; setting >= 2; --setting) {
    EXPECT_EQ(Select(setting), 0);
    EXPECT_EQ(camera_.RawSizeMode, 4U);
    EXPECT_EQ(camera_.RawFrameSize, 38466U);
  }
}

TEST_F(StreamModes, SelectionSetsStreamingByItself) {
  camera_.Streaming = 0;
  Select(1);
  EXPECT_EQ(camera_.Streaming, 1);
}

// What must be set before the registers are written: on the widest setting the setup registers'
// replay writes first.
TEST_F(StreamModes, SettingAndModeStandBeforeTheSetupRegistersAndTheFrameSizeBeforeTheProgramming) {
  camera_.SensorType = SensorTypeVGA0708;
  camera_.CaptureWidth = 640;
  camera_.RawSizeMode = 4;
  camera_.SetupRegisters.Present = 1;
  camera_.SetupRegisters.Count = 1;
  camera_.SetupRegisters.Entries[0] = {0x11, 0xA1, 0x01};
  std::string atFirst;
  std::uint32_t frameSizeAtLast = 0;
  space_.OnRequest = [&](const WirePacket&) {
    if (atFirst.empty()) {
      const std::uint32_t values[] = {camera_.StreamAlternateSetting, camera_.RawSizeMode,
                                      camera_.RawFrameSize};
      atFirst = "streaming " + std::to_string(camera_.Streaming);
      for (const std::uint32_t value : values) atFirst += " " + std::to_string(value);
    }
    frameSizeAtLast = camera_.RawFrameSize;
  };
  Select(7);
  EXPECT_EQ(atFirst, "streaming 1 7 1 0");
  EXPECT_EQ(space_.Accesses().front(), "write bridge FFA1=01");
  EXPECT_EQ(frameSizeAtLast, 614466U);
}

TEST_F(StreamModes, TraceTellsSettingModeAndFrameSizeAheadOfTheProgramming) {
  camera_.SensorType = SensorTypeVGA0708;
  camera_.CaptureWidth = 640;
  TraceLines trace(TraceLines::Accesses::Kept);
  Select(5);
  const std::vector<std::string> lines = trace.Take();
  ASSERT_GT(lines.size(), 1U);
  EXPECT_EQ(lines[0], "stream setting=5 size-mode=2 frame-bytes=153666");
  EXPECT_EQ(lines[1].substr(0, 4), "bus ");
}

}  // namespace
}  // namespace lidcam::test
