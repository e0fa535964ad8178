#include "driver/sensor/controls/orientation_and_flicker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <tuple>
#include <vector>

#include "tests/driver/support/register_space.h"
#include "tests/driver/support/trace_lines.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using Lines = std::vector<std::string>;

constexpr std::int32_t kAllSensors[] = {1, 3, 5, 6, 7, 8, 9, 10, 11};
constexpr std::uint32_t kYuy2 = 0x32595559;
constexpr std::uint32_t kRgb24 = 0xE436EB7D;
constexpr std::uint32_t kI420 = 0x30323449;

std::string Hex(unsigned value) {
  std::array<char, 4> text{};
  std::snprintf(text.data(), text.size(), "%02X", value & 0xFF);
  return text.data();
}

Status FailEverything(const std::string&) {
  return -1;
}

class OrientationAndFlicker : public ::testing::Test {
 protected:
  Status Fails(const std::string& access) {
    space_.Failure = [access](const std::string& asked) { return asked == access ? -7 : 0; };
    return -7;
  }

  RegisterSpace space_;
  CameraContext& camera_ = space_.Context();
};

// --- Orientation ---

struct OrientationCase {
  std::uint32_t Format;
  std::uint8_t Old;
  // What the register becomes for mirror/vertical off/off, off/on, on/on, on/off.
  std::array<std::uint8_t, 4> New;
};

constexpr std::array<std::array<std::int32_t, 2>, 4> kMirrorVertical = {
    {{0, 0}, {0, 1}, {1, 1}, {1, 0}}};

constexpr OrientationCase kBridgeCases[] = {
    {kYuy2, 0x00, {0x20, 0x30, 0x00, 0x10}},  {kYuy2, 0xFF, {0xEF, 0xFF, 0xCF, 0xDF}},
    {kYuy2, 0x5A, {0x6A, 0x7A, 0x4A, 0x5A}},  {kYuy2, 0x3B, {0x2B, 0x3B, 0x0B, 0x1B}},
    {kYuy2, 0xA5, {0xA5, 0xB5, 0x85, 0x95}},  {kRgb24, 0x00, {0x20, 0x30, 0x00, 0x10}},
    {kRgb24, 0xFF, {0xE4, 0xFF, 0xC4, 0xD4}}, {kRgb24, 0x5A, {0x60, 0x7A, 0x40, 0x50}},
    {kRgb24, 0x3B, {0x20, 0x3B, 0x00, 0x10}}, {kRgb24, 0xA5, {0xA4, 0xB5, 0x84, 0x94}},
    {kI420, 0x00, {0x20, 0x30, 0x00, 0x10}},  {kI420, 0xFF, {0xE4, 0xFF, 0xC4, 0xD4}},
    {kI420, 0x5A, {0x60, 0x7A, 0x40, 0x50}},  {kI420, 0x3B, {0x20, 0x3B, 0x00, 0x10}},
    {kI420, 0xA5, {0xA4, 0xB5, 0x84, 0x94}},  {0, 0x00, {0x20, 0x30, 0x00, 0x10}},
    {0, 0xFF, {0xE4, 0xFF, 0xC4, 0xD4}},      {0, 0x5A, {0x60, 0x7A, 0x40, 0x50}},
};

constexpr OrientationCase kSensorCases[] = {
    {kYuy2, 0x00, {0x60, 0x20, 0x00, 0x40}},  {kYuy2, 0xFF, {0xFF, 0xBF, 0x9F, 0xDF}},
    {kYuy2, 0x5A, {0x7A, 0x3A, 0x1A, 0x5A}},  {kRgb24, 0x00, {0x20, 0x60, 0x40, 0x00}},
    {kRgb24, 0xFF, {0xBF, 0xFF, 0xDF, 0x9F}}, {kRgb24, 0x5A, {0x3A, 0x7A, 0x5A, 0x1A}},
    {kI420, 0x00, {0x20, 0x20, 0x00, 0x00}},  {kI420, 0xFF, {0xFF, 0xFF, 0xDF, 0xDF}},
    {kI420, 0x5A, {0x7A, 0x7A, 0x5A, 0x5A}},  {0, 0x00, {0x20, 0x20, 0x00, 0x00}},
    {0, 0xFF, {0xFF, 0xFF, 0xDF, 0xDF}},
};

TEST_F(OrientationAndFlicker, BridgeOrientationFollowsEveryRowOfItsTable) {
  for (const OrientationCase& row : kBridgeCases) {
    for (std::size_t i = 0; i < kMirrorVertical.size(); ++i) {
      SCOPED_TRACE(::testing::Message() << std::hex << row.Format << " old " << int{row.Old}
                                        << " mirror/vertical " << i);
      RegisterSpace space;
      CameraContext& camera = space.Context();
      camera.SensorType = 9;
      camera.FormatTag = row.Format;
      camera.Mirror = kMirrorVertical[i][0];
      camera.Vertical = kMirrorVertical[i][1];
      camera.ShadowFF26 = row.Old;
      EXPECT_EQ(ProgramMirrorFlip(camera), 0);
      ASSERT_EQ(space.Accesses().size(), 2U);
      EXPECT_EQ(space.Accesses()[1], "write bridge FF26=" + Hex(row.New[i]));
      EXPECT_EQ(camera.ShadowFF26, row.New[i]);
    }
  }
}

TEST_F(OrientationAndFlicker, SensorOrientationHasOppositeSensesForYuy2AndRgb24) {
  for (const OrientationCase& row : kSensorCases) {
    for (std::size_t i = 0; i < kMirrorVertical.size(); ++i) {
      SCOPED_TRACE(::testing::Message() << std::hex << row.Format << " old " << int{row.Old}
                                        << " mirror/vertical " << i);
      RegisterSpace space;
      CameraContext& camera = space.Context();
      camera.SensorType = 9;
      camera.FormatTag = row.Format;
      camera.Mirror = kMirrorVertical[i][0];
      camera.Vertical = kMirrorVertical[i][1];
      camera.ShadowSensor0C = row.Old;
      EXPECT_EQ(ProgramMirrorFlip(camera), 0);
      ASSERT_EQ(space.Accesses().size(), 2U);
      EXPECT_EQ(space.Accesses()[0], "write sensor FF0C=" + Hex(row.New[i]));
      EXPECT_EQ(camera.ShadowSensor0C, row.New[i]);
    }
  }
}

TEST_F(OrientationAndFlicker, I420LeavesTheSensorsFlipBitAndTakesTheOtherColumnOfTheBridge) {
  camera_.SensorType = 9;
  camera_.FormatTag = kI420;
  camera_.ShadowSensor0C = 0x40;
  camera_.ShadowFF26 = 0x0B;
  EXPECT_EQ(ProgramMirrorFlip(camera_), 0);
  EXPECT_THAT(space_.Accesses(), ElementsAre("write sensor FF0C=60", "write bridge FF26=20"));
}

TEST_F(OrientationAndFlicker, AnyNonzeroSettingCountsAsOn) {
  camera_.SensorType = 9;
  camera_.FormatTag = kYuy2;
  camera_.Mirror = -3;
  camera_.Vertical = 256;
  EXPECT_EQ(ProgramMirrorFlip(camera_), 0);
  EXPECT_THAT(space_.Accesses(), ElementsAre("write sensor FF0C=00", "write bridge FF26=00"));
}

TEST_F(OrientationAndFlicker, OnlyTheVga0708HasAnOrientation) {
  for (const std::int32_t sensor : kAllSensors) {
    if (sensor == 9) continue;
    camera_.SensorType = sensor;
    camera_.FormatTag = kYuy2;
    camera_.ShadowFF26 = 0x11;
    camera_.ShadowSensor0C = 0x22;
    EXPECT_EQ(ProgramMirrorFlip(camera_), 0);
    EXPECT_THAT(space_.Accesses(), IsEmpty());
    EXPECT_EQ(camera_.ShadowFF26, 0x11);
    EXPECT_EQ(camera_.ShadowSensor0C, 0x22);
  }
}

TEST_F(OrientationAndFlicker, OrientationShadowsMoveAlsoWhenTheWritesFail) {
  camera_.SensorType = 9;
  camera_.FormatTag = kYuy2;
  camera_.ShadowFF26 = 0x13;
  space_.Failure = FailEverything;
  EXPECT_EQ(ProgramMirrorFlip(camera_), -1);
  EXPECT_EQ(camera_.ShadowSensor0C, 0x60);
  EXPECT_EQ(camera_.ShadowFF26, 0x23);
}

// Until then a register list of the frame path keeps the orientation that the bridge has.
TEST_F(OrientationAndFlicker, BridgeShadowMovesBehindTheSensorsWrite) {
  camera_.SensorType = 9;
  camera_.FormatTag = kYuy2;
  camera_.ShadowFF26 = 0x13;
  std::vector<int> during;
  space_.OnRequest = [&](const WirePacket&) { during.push_back(camera_.ShadowFF26); };
  EXPECT_EQ(ProgramMirrorFlip(camera_), 0);
  EXPECT_THAT(during, ElementsAre(0x13, 0x13, 0x23, 0x23));
}

TEST_F(OrientationAndFlicker, OrientationReturnsTheBridgeWritesStatusOnly) {
  camera_.SensorType = 9;
  camera_.FormatTag = kYuy2;
  Fails("write sensor FF0C=60");
  EXPECT_EQ(ProgramMirrorFlip(camera_), 0);
  EXPECT_THAT(space_.Accesses(),
              ElementsAre("write sensor FF0C=60 failed", "write bridge FF26=20"));
  const Status failure = Fails("write bridge FF26=20");
  EXPECT_EQ(ProgramMirrorFlip(camera_), failure);
}

// --- Flicker ---

constexpr std::array<std::int32_t, 4> kDividers = {1, 2, 4, 8};

// Lines in half a mains cycle for dividers 1, 2, 4 and 8.
struct BandCase {
  std::uint8_t Line13;
  std::uint8_t Line14;
  std::uint8_t ShadowFF64;         // before
  const char* AutoExposureAccess;  // what then switches the chip's exposure on
  std::array<std::uint8_t, 4> Hz50;
  std::array<std::uint8_t, 4> Hz60;
};

// Lines of 860, 1151 (the high nibble is no part of it) and 4955 clocks.
constexpr BandCase kBandCases[] = {
    {0x00, 0x00, 0x00, "write bridge FF64=80", {174, 87, 43, 21}, {145, 72, 36, 18}},
    {0xF1, 0x23, 0x13, "write bridge FF64=93", {130, 65, 32, 16}, {108, 54, 27, 13}},
    {0xFF, 0xFF, 0xEC, "write bridge FF64=EC", {30, 15, 7, 3}, {25, 12, 6, 3}},
};

// Each sensor, mains light 0, 1, 2 and an unknown one, divider and exposure mode.
class FlickerTable
    : public ::testing::TestWithParam<std::tuple<int, std::int32_t, std::size_t, std::uint32_t>> {
 protected:
  FlickerTable() {
    camera_.SensorType = Sensor();
    camera_.Flicker = Flicker();
    camera_.ClockDivider = kDividers[DividerIndex()];
    camera_.AutoExposure = AutoExposure();
    camera_.ShadowFF64 = 0x13;
    camera_.FlickerBandStep = 0x5A;
  }

  static std::int32_t Sensor() { return std::get<0>(GetParam()); }
  static std::int32_t Flicker() { return std::get<1>(GetParam()); }
  static std::size_t DividerIndex() { return std::get<2>(GetParam()); }
  static std::uint32_t AutoExposure() { return std::get<3>(GetParam()); }

  std::uint8_t Band(const BandCase& row) const {
    if (Flicker() == 1) return row.Hz50[DividerIndex()];
    if (Flicker() == 2) return row.Hz60[DividerIndex()];
    return 0x5A;
  }

  RegisterSpace space_;
  CameraContext& camera_ = space_.Context();
};

INSTANTIATE_TEST_SUITE_P(EverySetting, FlickerTable,
                         ::testing::Combine(::testing::ValuesIn(kAllSensors),
                                            ::testing::Values(0, 1, 2, 3, -1),
                                            ::testing::Range(std::size_t{0}, std::size_t{4}),
                                            ::testing::Values(0U, 1U)));

Lines ExpectedVga0408(std::int32_t flicker, const BandCase& row, unsigned band,
                      std::uint32_t autoExposure) {
  Lines lines = {flicker == 0 ? "write bridge FF70=9C" : "write bridge FF70=1C",
                 "read sensor FF13 -> " + Hex(row.Line13), "read sensor FF14 -> " + Hex(row.Line14),
                 "write bridge FF68=" + Hex(band)};
  if (autoExposure != 0) lines.emplace_back(row.AutoExposureAccess);
  return lines;
}

Lines ExpectedVga0708(std::int32_t flicker, const BandCase& row) {
  if (flicker == 0) {
    return {"write sensor FF1A=10", "write bridge FF0D=3B", "write bridge FF61=88",
            "write bridge FF62=58", "write bridge FF70=9C", "write sensor FF60=02",
            "write sensor FF5D=80"};
  }
  return {"write sensor FF1A=10",
          "write bridge FF0D=38",
          "write bridge FF61=88",
          "write bridge FF62=78",
          "write bridge FF70=1C",
          "read sensor FF13 -> " + Hex(row.Line13),
          "read sensor FF14 -> " + Hex(row.Line14)};
}

Lines ExpectedVga7648(std::size_t dividerIndex, const BandCase& row, std::uint32_t autoExposure) {
  constexpr std::array<std::uint8_t, 4> kBands = {131, 65, 32, 16};
  Lines lines = {"write bridge FF68=" + Hex(kBands[dividerIndex])};
  if (autoExposure != 0) lines.emplace_back(row.AutoExposureAccess);
  return lines;
}

Lines ExpectedByLightAlone(std::int32_t sensor, std::int32_t flicker) {
  switch (sensor * 10 + flicker) {
    case 70:
    case 80:
      return {"write sensor FF3B=06"};
    case 71:
    case 81:
      return {"write sensor FF3B=08", "write sensor FF42=09"};
    case 72:
    case 82:
      return {"write sensor FF3B=00", "write sensor FF42=08"};
    case 110:
      return {"write sensor FF3B=CB"};
    case 111:
      return {"write sensor FF3B=C9"};
    case 112:
      return {"write sensor FF3B=C1"};
    case 100:
    case 101:
      return {"write bridge FF7F=02", "write sensor FFF0=00",  // page 2
              "write bridge FF7F=01", "write sensor FF5B=00"};
    case 102:
      return {"write bridge FF7F=02", "write sensor FFF0=00",  // page 2
              "write bridge FF7F=03", "write sensor FF5B=00"};
    case 60:
      return {"write bridge FF7F=01", "write sensor FF01=00",  // page 1
              "write bridge FF7F=80", "write sensor FF37=01"};
    case 61:
      return {"write bridge FF7F=01", "write sensor FF01=00",  // page 1
              "write bridge FF7F=81", "write sensor FF37=01",
              "write bridge FF7F=01", "write sensor FF01=00",  // page 1
              "write bridge FF7F=01", "write sensor FF5B=00"};
    case 62:
      return {"write bridge FF7F=01", "write sensor FF01=00",  // page 1
              "write bridge FF7F=81", "write sensor FF37=01",
              "write bridge FF7F=01", "write sensor FF01=00",  // page 1
              "write bridge FF7F=03", "write sensor FF5B=00"};
    default:
      return {};
  }
}

TEST_P(FlickerTable, WritesItsRowInOrderAndComputesTheBand) {
  for (const BandCase& row : kBandCases) {
    space_.ForgetTraffic();
    space_.Sensor[0x13] = row.Line13;
    space_.Sensor[0x14] = row.Line14;
    camera_.FlickerBandStep = 0x5A;
    camera_.ShadowFF64 = row.ShadowFF64;
    EXPECT_EQ(ProgramFlicker(camera_), 0);

    Lines expected;
    unsigned band = 0x5A;
    if (Sensor() == 1) {
      band = Band(row);
      expected = ExpectedVga0408(Flicker(), row, band, AutoExposure());
    } else if (Sensor() == 9) {
      band = Band(row);
      expected = ExpectedVga0708(Flicker(), row);
    } else if (Sensor() == 5) {
      expected = ExpectedVga7648(DividerIndex(), row, AutoExposure());
      band = std::array<unsigned, 4>{131, 65, 32, 16}[DividerIndex()];
    } else if (Flicker() >= 0) {
      expected = ExpectedByLightAlone(Sensor(), Flicker());
    }
    EXPECT_THAT(space_.Accesses(), ElementsAreArray(expected));
    EXPECT_EQ(camera_.FlickerBandStep, band);
  }
}

TEST_P(FlickerTable, FailingWritesShowOnlyWhereTheRowReturnsThem) {
  space_.Failure = FailEverything;
  const bool isOv7660 = Sensor() == 7 || Sensor() == 8;
  const bool isReturned = Sensor() == 1 || (isOv7660 && Flicker() >= 0 && Flicker() <= 2);
  EXPECT_EQ(ProgramFlicker(camera_), isReturned ? -1 : 0);
  EXPECT_EQ(camera_.ShadowFF64, 0x13);
}

TEST_F(OrientationAndFlicker, BandIs174At50HzAnd145At60HzWithAnEmptyLineRegister) {
  camera_.SensorType = 9;
  camera_.ClockDivider = 1;
  camera_.Flicker = 1;
  ProgramFlicker(camera_);
  EXPECT_EQ(camera_.FlickerBandStep, 174);
  camera_.Flicker = 2;
  ProgramFlicker(camera_);
  EXPECT_EQ(camera_.FlickerBandStep, 145);
}

TEST_F(OrientationAndFlicker, Vga0708KeepsTheBandToItself) {
  camera_.SensorType = 9;
  camera_.Flicker = 1;
  ProgramFlicker(camera_);
  EXPECT_EQ(camera_.FlickerBandStep, 174);
  EXPECT_EQ(space_.Bridge[0x68], 0);
}

TEST_F(OrientationAndFlicker, ChangeFromNoFlickerTo50HzTakesTheChipsExposureOffOnTheVga0708) {
  camera_.SensorType = 9;
  camera_.Flicker = 0;
  ProgramFlicker(camera_);
  EXPECT_EQ(space_.Bridge[0x0D], 0x3B);
  EXPECT_EQ(camera_.ShadowFF0D, 0x3B);
  camera_.Flicker = 1;
  ProgramFlicker(camera_);
  EXPECT_EQ(space_.Bridge[0x0D], 0x38);
  EXPECT_EQ(camera_.ShadowFF0D, 0x38);
}

TEST_F(OrientationAndFlicker, Vga7648IgnoresTheMainsLight) {
  camera_.SensorType = 5;
  camera_.ClockDivider = 2;
  for (const std::int32_t flicker : {0, 1, 2, 3}) {
    camera_.Flicker = flicker;
    space_.ForgetTraffic();
    EXPECT_EQ(ProgramFlicker(camera_), 0);
    EXPECT_THAT(space_.Accesses(), ElementsAre("write bridge FF68=41"));
  }
}

TEST_F(OrientationAndFlicker, Mi1318ProgramsTheSameForNoFlickerAnd50Hz) {
  camera_.SensorType = 10;
  camera_.Flicker = 0;
  ProgramFlicker(camera_);
  const Lines off = space_.Accesses();
  space_.ForgetTraffic();
  camera_.Flicker = 1;
  ProgramFlicker(camera_);
  EXPECT_EQ(space_.Accesses(), off);
  EXPECT_EQ(off.size(), 4U);
}

TEST_F(OrientationAndFlicker, DividerOfZeroIsRepairedOnEverySensor) {
  for (const std::int32_t sensor : kAllSensors) {
    camera_.SensorType = sensor;
    camera_.Flicker = 7;
    camera_.ClockDivider = 0;
    ProgramFlicker(camera_);
    EXPECT_EQ(camera_.ClockDivider, 1) << sensor;
  }
}

TEST_F(OrientationAndFlicker, DividerThatWrapsTheProductToZeroGivesBandZero) {
  camera_.SensorType = 9;
  camera_.Flicker = 1;
  camera_.FlickerBandStep = 0x5A;
  camera_.ClockDivider = 0x40000000;
  ProgramFlicker(camera_);
  EXPECT_EQ(camera_.FlickerBandStep, 0);
}

TEST_F(OrientationAndFlicker, BandIsASignedQuotientCutToEightBits) {
  camera_.SensorType = 9;
  camera_.Flicker = 1;
  camera_.ClockDivider = -1;
  ProgramFlicker(camera_);
  EXPECT_EQ(camera_.FlickerBandStep, 0x52);  // -174
}

TEST_F(OrientationAndFlicker, FailedLineReadsCountAsZero) {
  camera_.SensorType = 1;
  camera_.Flicker = 1;
  space_.Sensor[0x13] = 0x01;
  space_.Sensor[0x14] = 0x23;
  Fails("read sensor FF13");
  ProgramFlicker(camera_);
  EXPECT_EQ(camera_.FlickerBandStep, 167);  // 895 clocks
  Fails("read sensor FF14");
  ProgramFlicker(camera_);
  EXPECT_EQ(camera_.FlickerBandStep, 134);  // 1116 clocks
  space_.Failure = [](const std::string& access) { return access.starts_with("read") ? -1 : 0; };
  EXPECT_EQ(ProgramFlicker(camera_), 0);
  EXPECT_EQ(camera_.FlickerBandStep, 174);  // 860 clocks
}

TEST_F(OrientationAndFlicker, Vga0408ReturnsTheBandWritesStatusAndKeepsTheBand) {
  camera_.SensorType = 1;
  camera_.Flicker = 1;
  camera_.AutoExposure = 1;
  camera_.ShadowFF64 = 0x05;
  const Status failure = Fails("write bridge FF68=AE");
  EXPECT_EQ(ProgramFlicker(camera_), failure);
  EXPECT_EQ(camera_.FlickerBandStep, 0xAE);
  EXPECT_EQ(camera_.ShadowFF64, 0x85);

  camera_.ShadowFF64 = 0x05;
  Fails("write bridge FF64=85");
  EXPECT_EQ(ProgramFlicker(camera_), 0);
  EXPECT_EQ(camera_.ShadowFF64, 0x05);
}

TEST_F(OrientationAndFlicker, Vga7648KeepsTheComputedBandWhenItsWriteFails) {
  camera_.SensorType = 5;
  camera_.ClockDivider = 4;
  Fails("write bridge FF68=20");
  EXPECT_EQ(ProgramFlicker(camera_), 0);
  EXPECT_EQ(camera_.FlickerBandStep, 0x20);
}

TEST_F(OrientationAndFlicker, Ov7660ReturnsItsLastWritesStatusOnly) {
  for (const std::int32_t sensor : {7, 8}) {
    camera_.SensorType = sensor;
    camera_.Flicker = 1;
    Fails("write sensor FF3B=08");
    EXPECT_EQ(ProgramFlicker(camera_), 0);
    const Status failure = Fails("write sensor FF42=09");
    EXPECT_EQ(ProgramFlicker(camera_), failure);
    camera_.Flicker = 0;
    Fails("write sensor FF3B=06");
    EXPECT_EQ(ProgramFlicker(camera_), failure);
  }
}

TEST_F(OrientationAndFlicker, TraceTellsEachBandWithWhatItCameFrom) {
  camera_.SensorType = SensorTypeVGA0708;
  camera_.ClockDivider = 1;
  TraceLines trace;
  camera_.Flicker = 1;
  ProgramFlicker(camera_);
  camera_.Flicker = 2;
  camera_.ClockDivider = 4;
  space_.Sensor[0x13] = 0xF1;
  space_.Sensor[0x14] = 0x05;
  ProgramFlicker(camera_);
  camera_.Flicker = 0;
  ProgramFlicker(camera_);
  EXPECT_THAT(trace.Take(), ElementsAre("flicker band=174 line=860 divider=1",
                                        "flicker band=27 line=1121 divider=4"));
}

}  // namespace
}  // namespace lidcam::test
