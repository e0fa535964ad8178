#include "camera_model/chips/sensor_model.h"

#include <gtest/gtest.h>

#include "tests/camera_model/camera_bench.h"

namespace lidcam::camera_model {
namespace {

struct IdentityRow {
  SensorModel Model;
  std::uint8_t Number;
  const char* Name;
  std::uint8_t BusAddress;
  std::uint8_t DataWidth;
  std::vector<std::pair<std::uint8_t, std::uint8_t>> Registers;  ///< as one-byte reads give them
};

std::ostream& operator<<(std::ostream& to, const IdentityRow& row) {
  return to << row.Name;
}

class SensorIdentity : public testing::TestWithParam<IdentityRow> {};

TEST_P(SensorIdentity, AnswersItsProbeRegisters) {
  const IdentityRow& row = GetParam();
  CameraBench bench{row.Model};
  bench.WriteBridge(0x2B, row.BusAddress);
  bench.WriteBridge(0x7E, row.DataWidth);
  for (const auto& [address, value] : row.Registers) {
    EXPECT_EQ(bench.ReadSensor(address), value) << "register " << int{address};
  }
  EXPECT_EQ(static_cast<int>(row.Model), row.Number);
  EXPECT_EQ(NameOf(row.Model), row.Name);
  EXPECT_EQ(SensorModelByName(row.Name), row.Model);
}

INSTANTIATE_TEST_SUITE_P(
    AllModels, SensorIdentity,
    testing::Values(
        IdentityRow{SensorModel::VGA0408, 1, "VGA0408", 0x42, 1, {{0x02, 0x10}}},
        IdentityRow{SensorModel::Reserved3, 3, "Reserved3", 0x42, 1, {{0x02, 0x00}}},
        IdentityRow{SensorModel::VGA7648, 5, "VGA7648", 0x42, 1, {{0x0A, 0x76}, {0x0B, 0x48}}},
        IdentityRow{SensorModel::K82, 6, "K82", 0xBA, 2, {{0x00, 0x82}}},
        IdentityRow{
            SensorModel::OV7660, 7, "OV7660", 0x42, 1, {{0x0A, 0x76}, {0x0B, 0x60}, {0x29, 0x10}}},
        IdentityRow{
            SensorModel::OV7663, 8, "OV7663", 0x42, 1, {{0x0A, 0x76}, {0x0B, 0x60}, {0x29, 0x00}}},
        IdentityRow{SensorModel::VGA0708, 9, "VGA0708", 0x42, 1, {{0x02, 0x15}}},
        IdentityRow{SensorModel::Mi1318, 10, "Mi1318", 0xBA, 2, {{0x00, 0x14}}},
        IdentityRow{SensorModel::OV7670, 11, "OV7670", 0x42, 1, {{0x0A, 0x76}, {0x0B, 0x73}}}),
    [](const auto& row) { return std::string(row.param.Name); });

TEST(SensorModelNames, UnknownNameHasNoModel) {
  EXPECT_FALSE(SensorModelByName("OV9999").has_value());
  EXPECT_FALSE(SensorModelByName("ov7670").has_value());
}

TEST(Sensor, OverriddenRegisterStandsForAnOddPartAlsoAfterReset) {
  CameraBench bench{SensorModel::OV7660, {{0x29, 0x20}}};
  EXPECT_EQ(bench.ReadSensor(0x29), 0x20);
  bench.WriteSensor(0x12, 0x80);
  EXPECT_EQ(bench.ReadSensor(0x29), 0x20);
}

class SoftReset : public testing::TestWithParam<SensorModel> {};

TEST_P(SoftReset, Register12Bit7RestoresPowerUpValues) {
  CameraBench bench{GetParam()};
  const std::uint8_t control = bench.ReadSensor(0x13);
  bench.WriteSensor(0x13, 0x00);
  bench.WriteSensor(0x55, 0xAA);
  bench.WriteSensor(0x12, 0x80);
  EXPECT_EQ(bench.ReadSensor(0x13), control);
  EXPECT_NE(control, 0);
  EXPECT_EQ(bench.ReadSensor(0x55), 0x00);
  EXPECT_EQ(bench.ReadSensor(0x12), 0x00);
}

INSTANTIATE_TEST_SUITE_P(OvFamily, SoftReset,
                         testing::Values(SensorModel::OV7660, SensorModel::OV7663,
                                         SensorModel::OV7670, SensorModel::VGA7648));

TEST(Sensor, Register12IsPlainOnTheVgaPair) {
  CameraBench bench{SensorModel::VGA0708};
  bench.WriteSensor(0x55, 0xAA);
  bench.WriteSensor(0x12, 0x80);
  EXPECT_EQ(bench.ReadSensor(0x55), 0xAA);
  EXPECT_EQ(bench.ReadSensor(0x12), 0x80);
}

class WideSensor : public testing::TestWithParam<SensorModel> {};

TEST_P(WideSensor, KeepsSixteenBitsAndGivesTheLowByteAfterTheHighOne) {
  CameraBench bench{GetParam()};
  bench.OpenWideBus();
  bench.WriteWide(0x37, 0x0181);
  EXPECT_EQ(bench.ReadSensor(0x37), 0x01);
  EXPECT_EQ(bench.ReadSensor(0xF1), 0x81);
  EXPECT_EQ(bench.ReadSensor(0xF1), 0x81);
  bench.WriteWide(0x38, 0xBEEF);
  EXPECT_EQ(bench.ReadWide(0x38), 0xBEEF);
  EXPECT_EQ(bench.ReadWide(0x37), 0x0181);
}

TEST_P(WideSensor, PagesHoldRegistersOfTheirOwn) {
  CameraBench bench{GetParam()};
  bench.OpenWideBus();
  const std::uint8_t pageRegister = GetParam() == SensorModel::K82 ? 0x01 : 0xF0;
  for (std::uint16_t page = 0; page < 3; ++page) {
    bench.WriteWide(pageRegister, page);
    bench.WriteWide(0x5B, static_cast<std::uint16_t>(0x1230 + page));
  }
  for (std::uint16_t page = 0; page < 3; ++page) {
    bench.WriteWide(pageRegister, page);
    EXPECT_EQ(bench.ReadWide(0x5B), 0x1230 + page);
    EXPECT_EQ(bench.ReadWide(pageRegister), page);
    EXPECT_EQ(bench.sensor.Peek(0x5B, static_cast<std::uint8_t>(page)), 0x1230 + page);
  }
}

TEST_P(WideSensor, ProbeThroughF0SelectsPageZero) {
  CameraBench bench{GetParam()};
  bench.OpenWideBus();
  const std::uint16_t identity = bench.ReadWide(0x00);
  bench.WriteWide(0xF0, 1);
  EXPECT_EQ(bench.ReadWide(0x00), 0);
  bench.WriteWide(0xF0, 0);
  EXPECT_EQ(bench.ReadWide(0x00), identity);
}

TEST_P(WideSensor, IsDeafToOneByteTransactions) {
  CameraBench bench{GetParam()};
  bench.WriteBridge(0x2B, 0xBA);
  EXPECT_EQ(bench.ReadSensor(0x00), 0xFF);
  bench.WriteBridge(0x7E, 2);
  EXPECT_NE(bench.ReadSensor(0x00), 0xFF);
}

INSTANTIATE_TEST_SUITE_P(Both, WideSensor, testing::Values(SensorModel::K82, SensorModel::Mi1318));

TEST(Sensor, Register01IsAPlainRegisterOfMi1318) {
  CameraBench bench{SensorModel::Mi1318};
  bench.OpenWideBus();
  bench.WriteWide(0x01, 2);
  EXPECT_EQ(bench.ReadWide(0x00), 0x1400);
  EXPECT_EQ(bench.ReadWide(0x01), 2);
}

}  // namespace
}  // namespace lidcam::camera_model
