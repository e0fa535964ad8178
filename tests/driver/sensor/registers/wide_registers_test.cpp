// The 16-bit registers of two of the sensors: requests, results and shadows of their two halves.

#include "driver/sensor/registers/wide_registers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/driver/support/register_space.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;

constexpr std::uint8_t kHeldHigh = 0xA5;
constexpr std::uint8_t kHeldLow = 0x5A;

class WideRegisters : public testing::Test {
 protected:
  void Fail(const std::string& failing) {
    space_.Failure = [failing](const std::string& access) {
      return access == failing ? kRequestFailed : 0;
    };
  }

  RegisterSpace space_;
};

TEST_F(WideRegisters, AreWrittenByTheLatchOfTheLowByteAndThenTheHighByte) {
  EXPECT_EQ(WriteWideSensorRegister(space_.Context(), 0xFF09, 0x1234), 0);
  EXPECT_THAT(space_.Packets(),
              ElementsAre(WirePacket{0x40, 0xA0, 0x00, 0x00, 0xFF, 0xFF, 0x00, 0x00},
                          WirePacket{0x40, 0xA0, 0x34, 0x00, 0x7F, 0xFF, 0x00, 0x00},
                          WirePacket{0x40, 0xA0, 0x02, 0x00, 0xFF, 0xFF, 0x00, 0x00},
                          WirePacket{0x40, 0xA0, 0x12, 0x00, 0x09, 0xFF, 0x00, 0x00}));
}

TEST_F(WideRegisters, GiveTheStatusOfTheSensorWriteWhateverTheLatchGave) {
  Fail("write bridge FF7F=34");
  EXPECT_EQ(WriteWideSensorRegister(space_.Context(), 0xFF09, 0x1234), 0);
  EXPECT_EQ(space_.Sensor[0x09], 0x12);
  Fail("write sensor FF09=12");
  EXPECT_EQ(WriteWideSensorRegister(space_.Context(), 0xFF09, 0x1234), kRequestFailed);
}

TEST_F(WideRegisters, AreReadByTheRegisterForTheHighByteAndThenF1ForTheLow) {
  space_.Sensor[0x06] = 0x12;
  space_.Sensor[0xF1] = 0x34;
  std::uint8_t high = kHeldHigh;
  std::uint8_t low = kHeldLow;
  EXPECT_EQ(ReadWideSensorRegister(space_.Context(), 0xFF06, high, low), 0);
  EXPECT_EQ(high, 0x12);
  EXPECT_EQ(low, 0x34);
  EXPECT_THAT(space_.Packets(),
              ElementsAre(WirePacket{0x40, 0xA0, 0x03, 0x00, 0xFF, 0xFF, 0x00, 0x00},
                          WirePacket{0xC0, 0xA1, 0x01, 0x00, 0x06, 0xFF, 0x01, 0x00},
                          WirePacket{0x40, 0xA0, 0x03, 0x00, 0xFF, 0xFF, 0x00, 0x00},
                          WirePacket{0xC0, 0xA1, 0x01, 0x00, 0xF1, 0xFF, 0x01, 0x00}));
}

TEST_F(WideRegisters, KeepTheHighByteWhenItsReadFailsAndStillReadTheLow) {
  space_.Sensor[0xF1] = 0x34;
  Fail("read sensor FF06");
  std::uint8_t high = kHeldHigh;
  std::uint8_t low = kHeldLow;
  EXPECT_EQ(ReadWideSensorRegister(space_.Context(), 0xFF06, high, low), 0);
  EXPECT_EQ(high, kHeldHigh);
  EXPECT_EQ(low, 0x34);
}

TEST_F(WideRegisters, KeepTheLowByteWhenItsReadFailsAndGiveItsStatus) {
  space_.Sensor[0x06] = 0x12;
  Fail("read sensor FFF1");
  std::uint8_t high = kHeldHigh;
  std::uint8_t low = kHeldLow;
  EXPECT_EQ(ReadWideSensorRegister(space_.Context(), 0xFF06, high, low), kRequestFailed);
  EXPECT_EQ(high, 0x12);
  EXPECT_EQ(low, kHeldLow);
}

TEST_F(WideRegisters, OfK82HaveTheirPageInRegister01) {
  space_.Context().SensorType = SensorTypeK82;
  EXPECT_EQ(SelectSensorPage(space_.Context(), 0x0102), 0);
  EXPECT_THAT(space_.Accesses(), ElementsAre("write bridge FF7F=02", "write sensor FF01=01"));
}

TEST_F(WideRegisters, OfMi1318HaveTheirPageInRegisterF0) {
  space_.Context().SensorType = SensorTypeMi1318;
  EXPECT_EQ(SelectSensorPage(space_.Context(), 0x0102), 0);
  EXPECT_THAT(space_.Accesses(), ElementsAre("write bridge FF7F=02", "write sensor FFF0=01"));
}

TEST_F(WideRegisters, GiveTheStatusOfThePageRegistersWrite) {
  space_.Context().SensorType = SensorTypeMi1318;
  Fail("write bridge FF7F=01");
  EXPECT_EQ(SelectSensorPage(space_.Context(), 1), 0);
  Fail("write sensor FFF0=00");
  EXPECT_EQ(SelectSensorPage(space_.Context(), 1), kRequestFailed);
}

}  // namespace
}  // namespace lidcam::test
