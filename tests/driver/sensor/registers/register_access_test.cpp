// The requests, results and shadows of each register primitive.

#include "driver/sensor/registers/register_access.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <memory>

#include "driver/core/base/camera_trace.h"
#include "tests/driver/sensor/registers/register_primitives.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::TestWithParam;
using ::testing::ValuesIn;

constexpr std::uint8_t kUntouched = 0xA5;

std::string LineOf(const Primitive& primitive) {
  if (primitive.Packets.size() == 1)
    return primitive.IsRead ? "read raw FF12" : "write raw FF12=0034";
  const std::string chip = primitive.IsSensor ? "sensor" : "bridge";
  return primitive.IsRead ? "read " + chip + " FF12" : "write " + chip + " FF12=34";
}

class EveryPrimitive : public TestWithParam<Primitive> {
 protected:
  RegisterSpace space_;
};

INSTANTIATE_TEST_SUITE_P(RegisterAccess, EveryPrimitive, ValuesIn(AllPrimitives()), PrimitiveName);

TEST_P(EveryPrimitive, SendsItsSetupPacketsAndNothingElse) {
  EXPECT_EQ(GetParam().Run(space_.Context()), 0);
  EXPECT_THAT(space_.Packets(), ElementsAreArray(GetParam().Packets));
}

TEST_P(EveryPrimitive, IsDecodedByTheChipAsTheAccessThatWasMeant) {
  space_.Bridge[0x12] = 0x5B;
  space_.Sensor[0x12] = 0x5E;
  ReadByte() = kUntouched;
  EXPECT_EQ(GetParam().Run(space_.Context()), 0);
  if (GetParam().IsRead) {
    EXPECT_EQ(ReadByte(), GetParam().IsSensor ? 0x5E : 0x5B);
    return;
  }
  EXPECT_EQ(space_.Bridge[0x12], GetParam().IsSensor ? 0x5B : 0x34);
  EXPECT_EQ(space_.Sensor[0x12], GetParam().IsSensor ? 0x34 : 0x5E);
}

TEST_P(EveryPrimitive, GivesTheStatusOfItsDataTransferBack) {
  for (const Status failure : {kRequestFailed, Status{7}}) {
    space_.Failure = [&](const std::string& access) {
      return access == LineOf(GetParam()) ? failure : 0;
    };
    space_.ForgetTraffic();
    ReadByte() = kUntouched;
    EXPECT_EQ(GetParam().Run(space_.Context()), failure);
    EXPECT_EQ(ReadByte(), kUntouched);
    EXPECT_THAT(space_.Packets(), ElementsAreArray(GetParam().Packets));
  }
}

// A device that answers a read with no byte at all.
TEST_P(EveryPrimitive, ReadsZeroWhereASuccessBringsNoByte) {
  if (!GetParam().IsRead) return;
  space_.Context().ReadRequest = [](void*, std::uint32_t, std::uint32_t, std::uint32_t, void*,
                                    std::uint32_t* length) -> Status {
    *length = 0;
    return 0;
  };
  ReadByte() = kUntouched;
  EXPECT_EQ(GetParam().Run(space_.Context()), 0);
  EXPECT_EQ(ReadByte(), 0);
}

TEST_P(EveryPrimitive, DoesNotSeeAFailedSelect) {
  space_.Failure = [](const std::string& access) {
    return access.starts_with("select") ? kRequestFailed : 0;
  };
  EXPECT_EQ(GetParam().Run(space_.Context()), 0);
  EXPECT_THAT(space_.Packets(), ElementsAreArray(GetParam().Packets));
}

struct Flags {
  std::uint32_t App;
  std::uint32_t Driver;
  bool operator==(const Flags&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Flags& flags) {
  return stream << "{app " << flags.App << ", driver " << flags.Driver << "}";
}

Flags FlagsOf(const CameraContext& context) {
  return {context.AppRegisterBusy, context.DriverRegisterBusy};
}

// A flag is set during both transfers of a pair, and clear after it however it ended.
TEST_P(EveryPrimitive, HoldsTheFlagOfItsPathDuringItsTransfersOnly) {
  const Flags expected = {GetParam().Path == RegisterPath::Application ? 1U : 0U,
                          GetParam().Path == RegisterPath::Frame ? 1U : 0U};
  for (const Status status : {Status{0}, kRequestFailed}) {
    std::vector<Flags> seen;
    space_.OnRequest = [&](const WirePacket&) { seen.push_back(FlagsOf(space_.Context())); };
    space_.Failure = [&](const std::string&) { return status; };
    GetParam().Run(space_.Context());
    EXPECT_THAT(seen, ElementsAreArray(std::vector<Flags>(GetParam().Packets.size(), expected)));
    EXPECT_EQ(FlagsOf(space_.Context()), (Flags{0, 0}));
  }
}

TEST(RegisterAccess, ValueAboveEightBitsThroughASelectPrimitiveSendsItsLowByte) {
  RegisterSpace space;
  CameraContext& camera = space.Context();
  using Write = Status (*)(CameraContext&, RegisterAddress, std::uint32_t);
  for (const Write write : {Write{WriteBridgeRegister}, Write{WriteSensorRegister},
                            Write{DriverWriteBridgeRegister}, Write{DriverWriteSensorRegister}}) {
    space.ForgetTraffic();
    EXPECT_EQ(write(camera, 0xFF26, 0x1FF), 0);
    ASSERT_EQ(space.Packets().size(), 2U);
    EXPECT_EQ(space.Packets()[1], (WirePacket{0x40, 0xA0, 0xFF, 0x00, 0x26, 0xFF, 0x00, 0x00}));
  }
  EXPECT_EQ(camera.ShadowFF26, 0xFF);
}

TEST(RegisterAccess, RawWriteKeepsAllSixteenBitsOfValueAndAddress) {
  RegisterSpace space;
  EXPECT_EQ(RawWriteRegister(space.Context(), 0x1234, 0xABCD), 0);
  EXPECT_THAT(space.Packets(),
              ElementsAre(WirePacket{0x40, 0xA0, 0xCD, 0xAB, 0x34, 0x12, 0x00, 0x00}));
}

TEST(RegisterAccess, RawReadKeepsAllSixteenBitsOfTheAddress) {
  RegisterSpace space;
  space.Bridge[0x34] = 0x77;
  std::uint8_t byte = 0;
  EXPECT_EQ(RawReadRegister(space.Context(), 0x1234, byte), 0);
  EXPECT_EQ(byte, 0x77);
  EXPECT_THAT(space.Packets(),
              ElementsAre(WirePacket{0xC0, 0xA1, 0x01, 0x00, 0x34, 0x12, 0x01, 0x00}));
}

TEST(RegisterAccess, RawAccessActsUnderTheSelectOfTheAccessBefore) {
  RegisterSpace space;
  space.Sensor[0x0B] = 0x60;
  std::uint8_t byte = 0;
  ReadSensorRegister(space.Context(), 0xFF0A, byte);
  EXPECT_EQ(RawReadRegister(space.Context(), 0xFF0B, byte), 0);
  EXPECT_EQ(byte, 0x60);
  RawWriteRegister(space.Context(), 0xFF0C, 0x21);
  EXPECT_EQ(space.Sensor[0x0C], 0x21);
}

TEST(RegisterAccess, RawWriteChangesNoShadow) {
  RegisterSpace space;
  RawWriteRegister(space.Context(), 0xFF26, 0x30);
  EXPECT_EQ(space.Context().ShadowFF26, 0);
}

// --- shadows ---

// Every copy that the primitives keep, to be compared as a whole.
struct Shadows {
  int ClockDivider = 0;
  int FF0D = 0;
  int FF26 = 0;
  int FF42 = 0;
  int FF64 = 0;
  int FF68 = 0;
  int Sensor0CVga0408 = 0;
  int Sensor0C = 0;
  int Sensor12 = 0;
  int Sensor75 = 0;
  int BridgeMode = 0;
  bool operator==(const Shadows&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Shadows& shadows) {
  return stream << "divider " << shadows.ClockDivider << " 0D " << shadows.FF0D << " 26 "
                << shadows.FF26 << " 42 " << shadows.FF42 << " 64 " << shadows.FF64 << " 68 "
                << shadows.FF68 << " sensor 0C/0408 " << shadows.Sensor0CVga0408 << " sensor 0C "
                << shadows.Sensor0C << " sensor 12 " << shadows.Sensor12 << " sensor 75 "
                << shadows.Sensor75 << " mode " << shadows.BridgeMode;
}

Shadows ShadowsOf(const CameraContext& camera) {
  return {camera.ClockDivider,
          camera.ShadowFF0D,
          camera.ShadowFF26,
          camera.ShadowFF42,
          camera.ShadowFF64,
          camera.FlickerBandStep,
          camera.ShadowSensor0CVGA0408,
          camera.ShadowSensor0C,
          camera.ShadowSensor12,
          camera.ShadowSensor75,
          camera.BridgeMode};
}

constexpr int kSensorTypes[] = {1, 3, 5, 6, 7, 8, 9, 10, 11};

struct ShadowRow {
  bool IsSensor;
  int Type;  // 0: any
  unsigned Register;
  int Shadows::*Field;
};

// One row each; the divider of bridge register 0xFF0A is not a plain copy and has its own table.
constexpr ShadowRow kShadowRows[] = {
    {false, 0, 0x0D, &Shadows::FF0D},    {false, 0, 0x26, &Shadows::FF26},
    {false, 0, 0x42, &Shadows::FF42},    {false, 0, 0x64, &Shadows::FF64},
    {false, 0, 0x68, &Shadows::FF68},    {true, 1, 0x0C, &Shadows::Sensor0CVga0408},
    {true, 9, 0x0C, &Shadows::Sensor0C}, {true, 5, 0x12, &Shadows::Sensor12},
    {true, 5, 0x75, &Shadows::Sensor75},
};

Shadows ExpectedAfterWrite(bool isSensor, int type, unsigned number, int value) {
  Shadows expected;
  if (!isSensor && number == 0x0A) {
    constexpr int kDividers[] = {1, 2, 4, 8};
    expected.ClockDivider = kDividers[value % 4];
  }
  for (const ShadowRow& row : kShadowRows) {
    const bool matches =
        row.IsSensor == isSensor && row.Register == number && (row.Type == 0 || row.Type == type);
    if (matches) expected.*row.Field = value;
  }
  return expected;
}

// Every register of both chips, on every sensor type, through both paths.
TEST(RegisterShadows, FollowEveryWriteThatTheTableNamesAndNoOther) {
  for (const int type : kSensorTypes) {
    for (unsigned number = 0; number < 0xFF; ++number) {
      for (const bool isSensor : {false, true}) {
        for (const bool isFramePath : {false, true}) {
          SCOPED_TRACE(testing::Message() << "type " << type << " register " << number);
          const auto space = std::make_unique<RegisterSpace>();
          CameraContext& camera = space->Context();
          camera.SensorType = type;
          const auto address = static_cast<RegisterAddress>(0xFF00 + number);
          const auto write = isSensor
                                 ? (isFramePath ? DriverWriteSensorRegister : WriteSensorRegister)
                                 : (isFramePath ? DriverWriteBridgeRegister : WriteBridgeRegister);
          ASSERT_EQ(write(camera, address, 0x9E), 0);
          ASSERT_EQ(ShadowsOf(camera), ExpectedAfterWrite(isSensor, type, number, 0x9E));
        }
      }
    }
  }
}

TEST(RegisterShadows, LookAtTheLowByteOfTheAddressOnly) {
  RegisterSpace space;
  UpdateShadowRegister(space.Context(), 0x1226, 0x31, Chip::Bridge);
  EXPECT_EQ(space.Context().ShadowFF26, 0x31);
}

TEST(RegisterShadows, ClockDividerComesFromTheLowTwoBitsOfTheModeRegister) {
  RegisterSpace space;
  for (unsigned value = 0; value < 256; ++value) {
    constexpr int kDividers[] = {1, 2, 4, 8};
    WriteBridgeRegister(space.Context(), 0xFF0A, value);
    EXPECT_EQ(space.Context().ClockDivider, kDividers[value & 3]) << value;
  }
}

TEST(RegisterShadows, ModeRegisterWrittenWith13DividesByEightUnlessRefusedOrFailed) {
  RegisterSpace space;
  CameraContext& camera = space.Context();
  camera.ClockDivider = 2;
  camera.AppRegisterBusy = 1;
  EXPECT_EQ(DriverWriteBridgeRegister(camera, 0xFF0A, 0x13), 1);
  EXPECT_EQ(camera.ClockDivider, 2);

  camera.AppRegisterBusy = 0;
  space.Failure = [](const std::string& access) { return access.starts_with("write") ? -1 : 0; };
  EXPECT_EQ(WriteBridgeRegister(camera, 0xFF0A, 0x13), -1);
  EXPECT_EQ(camera.ClockDivider, 2);

  space.Failure = nullptr;
  EXPECT_EQ(WriteBridgeRegister(camera, 0xFF0A, 0x13), 0);
  EXPECT_EQ(camera.ClockDivider, 8);
}

TEST(RegisterShadows, StayAsTheyWereWhenTheDataTransferFails) {
  for (const int type : kSensorTypes) {
    RegisterSpace space;
    CameraContext& camera = space.Context();
    camera.SensorType = type;
    space.Failure = [](const std::string& access) { return access.starts_with("write") ? -1 : 0; };
    for (const unsigned number : {0x0AU, 0x0CU, 0x0DU, 0x12U, 0x26U, 0x42U, 0x64U, 0x68U, 0x75U}) {
      const auto address = static_cast<RegisterAddress>(0xFF00 + number);
      WriteBridgeRegister(camera, address, 0x9E);
      WriteSensorRegister(camera, address, 0x9E);
      DriverWriteBridgeRegister(camera, address, 0x9E);
      DriverWriteSensorRegister(camera, address, 0x9E);
    }
    EXPECT_EQ(ShadowsOf(camera), Shadows{});
  }
}

TEST(RegisterShadows, SensorRegister0CHasNoShadowOnVga7648AndOneOnVga0708) {
  RegisterSpace space;
  CameraContext& camera = space.Context();
  camera.SensorType = SensorTypeVGA7648;
  WriteSensorRegister(camera, 0xFF0C, 0x21);
  EXPECT_EQ(ShadowsOf(camera), Shadows{});
  camera.SensorType = SensorTypeVGA0708;
  WriteSensorRegister(camera, 0xFF0C, 0x21);
  EXPECT_EQ(camera.ShadowSensor0C, 0x21);
}

TEST(RegisterShadows, ReadsChangeNone) {
  RegisterSpace space;
  space.Bridge.fill(0x5A);
  space.Sensor.fill(0x5A);
  std::uint8_t byte = 0;
  constexpr RegisterAddress kShadowed[] = {0xFF0A, 0xFF0C, 0xFF26, 0xFF68};
  for (const RegisterAddress address : kShadowed) {
    ReadBridgeRegister(space.Context(), address, byte);
    DriverReadBridgeRegister(space.Context(), address, byte);
    ReadSensorRegister(space.Context(), address, byte);
    RawReadRegister(space.Context(), address, byte);
  }
  EXPECT_EQ(ShadowsOf(space.Context()), Shadows{});
}

// --- filling the shadows at bring-up ---

const std::vector<std::string> kFiveBridgeReads = {
    "read bridge FF26 -> 26", "read bridge FF0D -> 0D", "read bridge FF42 -> 42",
    "read bridge FF64 -> 64", "read bridge FF68 -> 68"};

void FillWithOwnNumbers(RegisterSpace& space) {
  for (std::size_t number = 0; number < 256; ++number) {
    space.Bridge[number] = static_cast<std::uint8_t>(number);
    space.Sensor[number] = static_cast<std::uint8_t>(number ^ 0x80);
  }
}

TEST(ReadShadowRegisters, ReadsFiveBridgeRegistersAndTheSensorsOwnOnTypes1And9) {
  for (const int type : kSensorTypes) {
    SCOPED_TRACE(type);
    RegisterSpace space;
    FillWithOwnNumbers(space);
    CameraContext& camera = space.Context();
    camera.SensorType = type;
    EXPECT_EQ(ReadShadowRegisters(camera), 0);

    std::vector<std::string> reads = kFiveBridgeReads;
    if (type == 1 || type == 9) reads.emplace_back("read sensor FF0C -> 8C");
    EXPECT_THAT(space.Accesses(), ElementsAreArray(reads));

    Shadows expected{.FF0D = 0x0D, .FF26 = 0x26, .FF42 = 0x42, .FF64 = 0x64, .FF68 = 0x68};
    if (type == 1) expected.Sensor0CVga0408 = 0x8C;
    if (type == 9) expected.Sensor0C = 0x8C;
    EXPECT_EQ(ShadowsOf(camera), expected);
  }
}

TEST(ReadShadowRegisters, OnOv7660ReadsOnlyTheFiveBridgeRegisters) {
  RegisterSpace space;
  FillWithOwnNumbers(space);
  space.Context().SensorType = SensorTypeOV7660;
  ReadShadowRegisters(space.Context());
  EXPECT_THAT(space.Accesses(), ElementsAreArray(kFiveBridgeReads));
}

TEST(ReadShadowRegisters, StoresTheByteOfTheReadBeforeWhereAReadFails) {
  RegisterSpace space;
  FillWithOwnNumbers(space);
  CameraContext& camera = space.Context();
  camera.SensorType = SensorTypeVGA0708;
  space.Failure = [](const std::string& access) {
    return access == "read bridge FF42" || access == "read bridge FF64" ? -1 : 0;
  };
  EXPECT_EQ(ReadShadowRegisters(camera), 0);
  EXPECT_EQ(
      ShadowsOf(camera),
      (Shadows{
          .FF0D = 0x0D, .FF26 = 0x26, .FF42 = 0x0D, .FF64 = 0x0D, .FF68 = 0x68, .Sensor0C = 0x8C}));
}

TEST(ReadShadowRegisters, GivesTheStatusOfTheLastReadOnly) {
  const std::vector<std::string> reads = {"read bridge FF26", "read bridge FF0D",
                                          "read bridge FF42", "read bridge FF64",
                                          "read bridge FF68", "read sensor FF0C"};
  for (const int type : kSensorTypes) {
    const std::string last = type == 1 || type == 9 ? "read sensor FF0C" : "read bridge FF68";
    for (const std::string& failing : reads) {
      SCOPED_TRACE(testing::Message() << "type " << type << ", failing " << failing);
      RegisterSpace space;
      space.Context().SensorType = type;
      space.Failure = [&](const std::string& access) { return access == failing ? -1 : 0; };
      EXPECT_EQ(ReadShadowRegisters(space.Context()), failing == last ? -1 : 0);
    }
  }
}

// --- trace ---

std::vector<std::string>& TraceLines() {
  static std::vector<std::string> lines;
  return lines;
}

[[gnu::format(printf, 2, 0)]] void KeepTraceLine(const CameraContext*, const char* format,
                                                 std::va_list arguments) {
  std::array<char, 120> text{};
  std::vsnprintf(text.data(), text.size(), format, arguments);
  TraceLines().emplace_back(text.data());
}

class RegisterTrace : public testing::Test {
 protected:
  RegisterTrace() {
    TraceLines().clear();
    SetCameraTraceSink(KeepTraceLine);
  }
  ~RegisterTrace() override { SetCameraTraceSink(nullptr); }

  RegisterSpace space_;
};

// One access of each primitive, to two registers that hold something.
void AccessByEveryPrimitive(CameraContext& camera) {
  std::uint8_t byte = 0xEE;
  WriteBridgeRegister(camera, 0xFF0A, 0x111);
  WriteSensorRegister(camera, 0xFF0C, 0x122);
  DriverWriteBridgeRegister(camera, 0xFF26, 0x130);
  DriverWriteSensorRegister(camera, 0xFF0D, 0x131);
  ReadBridgeRegister(camera, 0xFF40, byte);
  DriverReadBridgeRegister(camera, 0xFF41, byte);
  RawWriteRegister(camera, 0x1242, 0xABCD);
  RawReadRegister(camera, 0x1243, byte);
  ReadSensorRegister(camera, 0xFF44, byte);
}

TEST_F(RegisterTrace, HasOneLineForEveryAccess) {
  space_.Bridge[0x40] = 0x10;
  space_.Bridge[0x41] = 0x21;
  space_.Bridge[0x43] = 0x43;
  space_.Sensor[0x44] = 0x54;
  AccessByEveryPrimitive(space_.Context());
  EXPECT_THAT(TraceLines(),
              ElementsAre("bus  write bridge FF0A=11", "bus  write sensor FF0C=22",
                          "bus  write bridge FF26=30", "bus  write sensor FF0D=31",
                          "bus  read  bridge FF40 -> 10", "bus  read  bridge FF41 -> 21",
                          "bus  write raw 1242=ABCD", "bus  read  raw 1243 -> 43",
                          "bus  read  sensor FF44 -> 54"));
}

TEST_F(RegisterTrace, NamesTheStatusOfAFailedAccessAndNoByte) {
  space_.Failure = [](const std::string&) { return -1; };
  AccessByEveryPrimitive(space_.Context());
  EXPECT_THAT(
      TraceLines(),
      ElementsAre("bus  write bridge FF0A=11 failed -1", "bus  write sensor FF0C=22 failed -1",
                  "bus  write bridge FF26=30 failed -1", "bus  write sensor FF0D=31 failed -1",
                  "bus  read  bridge FF40 failed -1", "bus  read  bridge FF41 failed -1",
                  "bus  write raw 1242=ABCD failed -1", "bus  read  raw 1243 failed -1",
                  "bus  read  sensor FF44 failed -1"));
}

TEST_F(RegisterTrace, NamesARefusal) {
  CameraContext& camera = space_.Context();
  std::uint8_t byte = 0;
  camera.AppRegisterBusy = 1;
  DriverWriteBridgeRegister(camera, 0xFF26, 0x130);
  DriverWriteSensorRegister(camera, 0xFF0C, 0x122);
  DriverReadBridgeRegister(camera, 0xFF09, byte);
  EXPECT_THAT(TraceLines(),
              ElementsAre("bus  write bridge FF26=30 refused", "bus  write sensor FF0C=22 refused",
                          "bus  read  bridge FF09 refused"));
}

TEST_F(RegisterTrace, HasNoLineOnceTheSinkIsTakenAway) {
  SetCameraTraceSink(nullptr);
  AccessByEveryPrimitive(space_.Context());
  EXPECT_THAT(TraceLines(), IsEmpty());
}

}  // namespace
}  // namespace lidcam::test
