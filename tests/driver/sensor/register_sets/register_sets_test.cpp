// From the files of a sensor to the programmed chip.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "driver/sensor/controls/image_controls.h"
#include "driver/sensor/modes/setup_registers.h"
#include "driver/sensor/register_sets/register_set_file.h"
#include "tests/driver/sensor/register_sets/register_set_bytes.h"
#include "tests/driver/support/register_space.h"
#include "tests/driver/support/system_root.h"

namespace lidcam::test {
namespace {

using ::testing::IsEmpty;

// --- Files by sensor type ---------------------------------------------------------------------

struct FilesOfSensor {
  std::int32_t Type;
  std::vector<int> Files;  // the digit in the name, in loading order
};

const FilesOfSensor kFilesOfSensors[] = {
    {0, {}},  {1, {}},  {2, {}},  {3, {}},      {4, {}},   {5, {6}}, {6, {0}},
    {7, {2}}, {8, {3}}, {9, {1}}, {10, {4, 5}}, {11, {7}}, {12, {}},
};

class RegisterSetFiles : public ::testing::TestWithParam<FilesOfSensor> {};

// Each file alone in the folder fills the setup table if and only if the sensor loads it.
TEST_P(RegisterSetFiles, OfASensorAreLoadedAndNoOthers) {
  for (int file = 0; file <= 9; ++file) {
    const TemporarySystemRoot disk;
    disk.Write("S00" + std::to_string(file) + ".set",
               SetFile({Section(1, {0x11, 0x50, static_cast<std::uint8_t>(file)})}));
    const auto context = std::make_unique<CameraContext>();
    context->SensorType = GetParam().Type;
    LoadRegisterSets(*context);
    const std::vector<int>& files = GetParam().Files;
    const bool loads = std::find(files.begin(), files.end(), file) != files.end();
    EXPECT_EQ(context->SetupRegisters.Count, loads ? 1U : 0U) << "file " << file;
    EXPECT_EQ(context->SetupRegisters.Entries[0].Value, loads ? file : 0);
  }
}

INSTANTIATE_TEST_SUITE_P(AllSensors, RegisterSetFiles, ::testing::ValuesIn(kFilesOfSensors),
                         [](const auto& row) { return "Type" + std::to_string(row.param.Type); });

TEST(RegisterSets, SecondFileOfMi1318ReplacesTheSectionsOfItsTypesOnly) {
  const TemporarySystemRoot disk;
  disk.Write("S004.set", SetFile({Section(1, {0x11, 0x50, 4}), Section(2, {0x11, 0x51, 4}),
                                  Section(3, {0x11, 0x52, 4, 0x11, 0x53, 4})}));
  disk.Write("S005.set", SetFile({Section(2, {}), Section(3, {0x11, 0x52, 5})}));
  const auto context = std::make_unique<CameraContext>();
  context->SensorType = SensorTypeMi1318;
  LoadRegisterSets(*context);
  EXPECT_EQ(context->SetupRegisters.Entries[0].Value, 4);
  EXPECT_EQ(context->LowLightRegisters.Present, 0U);
  EXPECT_EQ(context->NormalRegisters.Count, 1U);
  EXPECT_EQ(context->NormalRegisters.Entries[0].Value, 5);
}

TEST(RegisterSets, SecondFileOfMi1318IsLoadedWithoutTheFirst) {
  const TemporarySystemRoot disk;
  disk.Write("S005.set", SetFile({Section(3, {0x11, 0x52, 5})}));
  const auto context = std::make_unique<CameraContext>();
  context->SensorType = SensorTypeMi1318;
  LoadRegisterSets(*context);
  EXPECT_EQ(context->NormalRegisters.Count, 1U);
}

// --- The setup table and the replay -----------------------------------------------------------

// The picture settings of a camera that was never adjusted.
void LoadDefaults(CameraContext& context) {
  context.Brightness = 20;
  context.Contrast = 10;
  context.Saturation = 120;
  context.Sharpness = 3;
  context.Gamma = 11;
  context.ColorEnable = 1;
  context.Flicker = 1;
  context.Exposure = 1;
  context.AutoExposure = 1;
  context.ClockDivider = 1;
  context.RawSizeMode = 1;
}

std::unique_ptr<RegisterSpace> AdjustedCamera(std::int32_t type) {
  auto space = std::make_unique<RegisterSpace>();
  space->Context().SensorType = type;
  LoadDefaults(space->Context());
  return space;
}

// What the replay sends, from the steps one by one.
std::vector<std::string> ReplayOf(std::int32_t type) {
  const auto space = AdjustedCamera(type);
  for (const std::uint32_t step : {1U, 2U, 6U, 4U, 8U, 5U, 9U, 11U, 12U, 10U, 14U}) {
    ApplyImageControl(step, space->Context());
  }
  return space->Accesses();
}

class SetupRegisters : public ::testing::TestWithParam<std::int32_t> {};

TEST_P(SetupRegisters, AbsentTableReplaysTheControlsOnly) {
  const auto space = AdjustedCamera(GetParam());
  space->Context().SetupRegisters.Count = 1;
  space->Context().SetupRegisters.Entries[0] = {0x11, 0x50, 0x01};
  ApplySetupRegisters(space->Context());
  EXPECT_EQ(space->Accesses(), ReplayOf(GetParam()));
}

TEST_P(SetupRegisters, TableComesFirstWithoutPatchesThenTheReplay) {
  const auto space = AdjustedCamera(GetParam());
  CameraContext& context = space->Context();
  context.Flicker = 2;
  context.UserSharpness = 0x45;
  context.UserSaturation = 0xC8;
  RegisterSetTable& table = context.SetupRegisters;
  table.Present = 1;
  table.Count = 6;
  const RegisterSetEntry entries[] = {{0x11, 0x50, 0x01}, {0x33, 0x3B, 0xCB}, {0x22, 0x51, 0x02},
                                      {0x11, 0x43, 0x4F}, {0x11, 0x78, 0x60}, {0x33, 0x50, 0x03}};
  std::copy(std::begin(entries), std::end(entries), table.Entries);
  ApplySetupRegisters(context);
  const std::vector<std::string> head(space->Accesses().begin(), space->Accesses().begin() + 5);
  EXPECT_THAT(head, ::testing::ElementsAre("write bridge FF50=01", "write sensor FF3B=CB",
                                           "write bridge FF43=4F", "write bridge FF78=60",
                                           "write sensor FF50=03"));
  // The first step of the replay is the brightness.
  EXPECT_EQ(space->Accesses().at(5), "write bridge FF77=14");
}

INSTANTIATE_TEST_SUITE_P(AllSensors, SetupRegisters, ::testing::ValuesIn(kSensorTypes));

std::size_t WritesOfRegister50(const RegisterSpace& space) {
  return static_cast<std::size_t>(
      std::count(space.Accesses().begin(), space.Accesses().end(), "write bridge FF50=01"));
}

TEST(SetupTable, Of600EntriesIsWrittenWholeUnlikeAList) {
  const auto space = AdjustedCamera(SensorTypeK82);
  RegisterSetTable& table = space->Context().SetupRegisters;
  table.Present = 1;
  table.Count = 600;
  std::fill(std::begin(table.Entries), std::end(table.Entries), RegisterSetEntry{0x11, 0x50, 0x01});
  ApplySetupRegisters(space->Context());
  EXPECT_EQ(WritesOfRegister50(*space), 600U);
}

// A shorter set leaves the entries of a longer one behind its own.
TEST(SetupTable, IsWrittenAsFarAsItsCount) {
  const auto space = AdjustedCamera(SensorTypeK82);
  RegisterSetTable& table = space->Context().SetupRegisters;
  table.Present = 1;
  table.Count = 3;
  std::fill(std::begin(table.Entries), std::end(table.Entries), RegisterSetEntry{0x11, 0x50, 0x01});
  ApplySetupRegisters(space->Context());
  EXPECT_EQ(WritesOfRegister50(*space), 3U);
}

TEST(SetupTable, LongerThanItsRoomIsWrittenAsFarAsItWasStored) {
  const auto space = AdjustedCamera(SensorTypeK82);
  RegisterSetTable& table = space->Context().SetupRegisters;
  table.Present = 1;
  table.Count = 657;
  std::fill(std::begin(table.Entries), std::end(table.Entries), RegisterSetEntry{0x11, 0x50, 0x01});
  ApplySetupRegisters(space->Context());
  EXPECT_EQ(WritesOfRegister50(*space), 600U);
}

TEST(SetupTable, FailingWritesStopNeitherTheTableNorTheReplay) {
  const auto space = AdjustedCamera(SensorTypeK82);
  RegisterSetTable& table = space->Context().SetupRegisters;
  table.Present = 1;
  table.Count = 2;
  table.Entries[0] = {0x11, 0x50, 0x01};
  table.Entries[1] = {0x33, 0x51, 0x02};
  space->Failure = [](const std::string& access) {
    return access.starts_with("write") ? Status{-1} : Status{0};
  };
  ApplySetupRegisters(space->Context());
  EXPECT_EQ(space->Accesses().at(0), "write bridge FF50=01 failed");
  EXPECT_EQ(space->Accesses().at(1), "write sensor FF51=02 failed");
  EXPECT_EQ(space->Accesses().at(2), "write bridge FF77=14 failed");
}

}  // namespace
}  // namespace lidcam::test
