// The camera's creation: the order of its steps, and what makes it fail.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>

#include "driver/exposure/auto_exposure.h"
#include "platform/host/nt/objects/handles.h"
#include "platform/host/nt/registry/registry.h"
#include "tests/driver/core/control/bring_up_world.h"

namespace lidcam::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::Not;

using Lines = std::vector<std::string>;

Lines Head(const Lines& lines, std::size_t count) {
  return {lines.begin(),
          lines.begin() + static_cast<std::ptrdiff_t>(std::min(count, lines.size()))};
}

Lines Tail(const Lines& lines, std::size_t count) {
  return {lines.end() - static_cast<std::ptrdiff_t>(std::min(count, lines.size())), lines.end()};
}

bool IsSameCapabilities(const CameraCapabilities& found,
                        const std::array<std::uint32_t, 7>& values) {
  return std::tuple(found.DeviceClass, found.SpeedClass, found.AlternateSettingLimit,
                    std::uint32_t{found.SearchDownward}, found.TransferCount, found.FormatListIndex,
                    found.FormatCount) == std::tuple_cat(values);
}

constexpr std::array<std::uint32_t, 7> kShortCapabilities = {1, 1, 3, 1, 3, 0, 5};
constexpr std::array<std::uint32_t, 7> kLongCapabilities = {1, 2, 7, 1, 7, 0, 5};

TEST(CameraCapabilities, FollowFromTheLengthOfTheConfigurationAlone) {
  for (const std::uint32_t longConfig : {0U, 1U, 193U}) {
    BringUpWorld world;
    const CameraPointer camera = world.Create(longConfig);
    ASSERT_NE(camera, nullptr);
    EXPECT_TRUE(IsSameCapabilities(world.Capabilities,
                                   longConfig == 0 ? kShortCapabilities : kLongCapabilities));
    EXPECT_EQ(camera->LongConfigDescriptor, longConfig);
  }
}

TEST(CameraCapabilities, AreFilledBeforeTheHardwareIsTouched) {
  BringUpWorld world;
  bool isFilled = false;
  world.Space.OnRequest = [&](const WirePacket&) {
    if (world.Space.Packets().empty()) {
      isFilled = IsSameCapabilities(world.Capabilities, kLongCapabilities);
    }
  };
  const CameraPointer camera = world.Create(1);
  EXPECT_TRUE(isFilled);
}

// The whole order.
TEST(CameraBringUp, GoesFromTheModeRegisterOverSettingsIdentityAndSetFileToTheShadows) {
  BringUpWorld world;
  world.BeVga0708();
  world.InstallSetupTable("S001.set", {{0x11, 0xA1, 0x01}, {0x33, 0xA2, 0x02}});
  world.Space.Bridge[0x0A] = 0x11;
  std::vector<std::size_t> accessesBeforeSettings;
  host::SetRegistryCallHook([&](const host::RegistryCall&) {
    accessesBeforeSettings.push_back(world.Space.Accesses().size());
    return STATUS_SUCCESS;
  });
  const CameraPointer camera = world.Create();
  ASSERT_NE(camera, nullptr);

  const Lines& accesses = world.Space.Accesses();
  EXPECT_THAT(Head(accesses, 5),
              ElementsAreArray({
                  "read bridge FF0A -> 11", "read sensor FF02 -> 15", "write bridge FFA1=01",
                  "write sensor FFA2=02",
                  "write bridge FF77=14",  // the replay's first step, with the brightness loaded
              }));
  EXPECT_THAT(accessesBeforeSettings, Not(IsEmpty()));
  EXPECT_THAT(accessesBeforeSettings, Each(1U));
  const Lines tail = Tail(accesses, 7);
  EXPECT_EQ(tail.front(), "write bridge FF0C=00");  // the replay's last step
  EXPECT_THAT(Tail(accesses, 6),
              ElementsAreArray({
                  "read bridge FF26 -> 20",  // the orientation that the replay set
                  "read bridge FF0D -> 38",
                  "read bridge FF42 -> 00",
                  "read bridge FF64 -> 00",
                  "read bridge FF68 -> 00",
                  "read sensor FF0C -> 20",
              }));
}

TEST(CameraBringUp, OfAnUnknownIdentityKeepsType1AndEmptyTables) {
  BringUpWorld world;
  world.InstallSetupTable("S001.set", {{0x11, 0xA1, 0x01}});
  world.SetIdentity(0x1234, 0x5678);
  const CameraPointer camera = world.Create();
  ASSERT_NE(camera, nullptr);
  EXPECT_EQ(camera->SensorType, 1);
  EXPECT_EQ(camera->SetupRegisters.Present, 0U);
  EXPECT_EQ(camera->NormalRegisters.Present, 0U);
  EXPECT_EQ(camera->LowLightRegisters.Present, 0U);
  EXPECT_THAT(Head(world.Space.Accesses(), 2),
              ElementsAreArray({"read bridge FF0A -> 00", "write bridge FF77=14"}));
}

TEST(CameraBringUp, SucceedsOnTypesWithoutASetFile) {
  for (const unsigned product : {0x6100U, 0x6101U}) {
    BringUpWorld world;
    world.SetIdentity(0x1B17, product);
    const CameraPointer camera = world.Create();
    ASSERT_NE(camera, nullptr);
    EXPECT_EQ(camera->SensorType, product == 0x6100 ? 3 : 1);
    EXPECT_EQ(camera->SetupRegisters.Present, 0U);
  }
}

TEST(CameraBringUp, WithoutASettingsRootLeavesTheImageControlsZero) {
  BringUpWorld world;
  world.Uninstall();
  const CameraPointer camera = world.Create();
  ASSERT_NE(camera, nullptr);
  EXPECT_EQ(camera->Brightness, 0);
  EXPECT_EQ(camera->Saturation, 0);
  EXPECT_EQ(camera->LED, 0);
  EXPECT_EQ(camera->AutoExposure, 0U);
  EXPECT_EQ(world.Space.Accesses().at(1), "write bridge FF77=00");
}

// The divider from the setup table is lost after the bring-up; the next write of the mode register
// restores it.
TEST(CameraBringUp, SetsTheClockDividerTo1WhateverTheSetupTableImplied) {
  BringUpWorld world;
  world.BeVga0708();
  world.Space.Bridge[0x0A] = 0x11;
  world.InstallSetupTable("S001.set", {{0x11, 0x0A, 0x13}});
  const CameraPointer camera = world.Create();
  ASSERT_NE(camera, nullptr);
  EXPECT_EQ(world.Space.Bridge[0x0A], 0x13);
  EXPECT_EQ(camera->ClockDivider, 1);
  EXPECT_EQ(camera->BridgeMode, 0x11);
}

TEST(CameraBringUp, SetsTheExposureIndexOfTheWholeSystemTo30) {
  BringUpWorld world;
  AeIndex = 5;
  const CameraPointer camera = world.Create();
  EXPECT_EQ(AeIndex, 30);
}

// The last shadow read decides, after the sensor was programmed and the state was set.
TEST(CameraBringUp, FailsWhenTheLastShadowReadFailsWithTheHardwareProgrammed) {
  BringUpWorld world;
  world.BeVga0708();
  world.InstallSetupTable("S001.set", {{0x11, 0xA1, 0x42}});
  world.Space.Failure = [](const std::string& access) {
    return access == "read sensor FF0C" ? -1 : 0;
  };
  AeIndex = 5;
  const std::size_t before = CameraBlocks();
  EXPECT_EQ(world.Create(1), nullptr);
  EXPECT_EQ(CameraBlocks(), before);
  EXPECT_EQ(world.Space.Bridge[0xA1], 0x42);
  EXPECT_EQ(AeIndex, 30);
  EXPECT_TRUE(IsSameCapabilities(world.Capabilities, kLongCapabilities));
}

TEST(CameraBringUp, OnASensorWithoutAShadowFailsByTheLastBridgeRead) {
  BringUpWorld world;
  world.SetIdentity(0x1B17, 0x6110);
  world.Space.Failure = [](const std::string& access) {
    return access == "read bridge FF68" ? -1 : 0;
  };
  EXPECT_EQ(world.Create(), nullptr);
}

// Each access of a bring-up fails in its turn.
TEST(CameraBringUp, SurvivesTheFailureOfEveryAccessButTheLast) {
  std::size_t count = 0;
  {
    BringUpWorld world;
    world.BeVga0708();
    ASSERT_NE(world.Create(), nullptr);
    count = world.Space.Accesses().size();
  }
  ASSERT_GT(count, 60U);
  for (std::size_t failing = 0; failing < count; ++failing) {
    BringUpWorld world;
    world.BeVga0708();
    std::size_t at = 0;
    world.Space.Failure = [&](const std::string& access) {
      return !access.starts_with("select") && at++ == failing ? -1 : 0;
    };
    const std::size_t before = CameraBlocks();
    EXPECT_EQ(world.Create() == nullptr, failing == count - 1) << failing;
    EXPECT_EQ(CameraBlocks(), before) << failing;
  }
}

TEST(CameraBringUp, SurvivesTheFailureOfEveryWriteAndShadowsWhatTheChipHolds) {
  BringUpWorld world;
  world.BeVga0708();
  for (const std::size_t number : {0x0DU, 0x26U, 0x42U, 0x64U, 0x68U}) {
    world.Space.Bridge[number] = static_cast<std::uint8_t>(number + 0x80);
  }
  world.Space.Sensor[0x0C] = 0x8C;
  world.Space.Failure = [](const std::string& access) {
    return access.starts_with("write") ? -1 : 0;
  };
  const CameraPointer camera = world.Create();
  ASSERT_NE(camera, nullptr);
  EXPECT_EQ(camera->ShadowFF0D, 0x8D);
  EXPECT_EQ(camera->ShadowFF26, 0xA6);
  EXPECT_EQ(camera->ShadowFF42, 0xC2);
  EXPECT_EQ(camera->ShadowFF64, 0xE4);
  EXPECT_EQ(camera->FlickerBandStep, 0xE8);
  EXPECT_EQ(camera->ShadowSensor0C, 0x8C);
}

TEST(CameraBringUp, IgnoresAFailedReadOfTheModeRegister) {
  BringUpWorld world;
  world.Space.Bridge[0x0A] = 0x11;
  world.Space.Failure = [](const std::string& access) {
    return access == "read bridge FF0A" ? -1 : 0;
  };
  const CameraPointer camera = world.Create();
  ASSERT_NE(camera, nullptr);
  EXPECT_EQ(camera->BridgeMode, 0);
}

// Record and spare block are needed; the settings' own allocations are not.
TEST(CameraBringUp, FailsForLackOfMemoryOnlyAtItsFirstTwoAllocations) {
  for (std::uint32_t failing = 1; failing <= 60; ++failing) {
    BringUpWorld world;
    world.BeVga0708();
    const std::size_t before = host::PoolUsageOfAll().Blocks;
    host::FailPoolAllocation(failing);
    {
      const CameraPointer camera = world.Create();
      host::FailPoolAllocation(0);
      EXPECT_EQ(camera == nullptr, failing <= 2) << failing;
    }
    EXPECT_EQ(host::PoolUsageOfAll().Blocks, before) << failing;
    EXPECT_EQ(host::OpenHandleCount(), 0U) << failing;
  }
}

TEST(CameraBringUp, TouchesNothingWithoutMemoryForTheRecord) {
  BringUpWorld world;
  host::FailPoolAllocation(1);
  EXPECT_EQ(world.Create(1), nullptr);
  EXPECT_THAT(world.Space.Packets(), IsEmpty());
  EXPECT_EQ(world.Capabilities.DeviceClass, 0U);
}

TEST(CameraBringUp, HasReadTheModeRegisterOnlyWhenTheSpareBlockFails) {
  BringUpWorld world;
  host::FailPoolAllocation(2);
  EXPECT_EQ(world.Create(), nullptr);
  EXPECT_THAT(world.Space.Accesses(), ElementsAreArray({"read bridge FF0A -> 00"}));
}

TEST(CameraBringUp, TakesTheRecordAndEightBytesFromThePool) {
  BringUpWorld world;
  const host::PoolUsage before = host::PoolUsageOfTag(kTagOfWdm);
  const CameraPointer camera = world.Create();
  const host::PoolUsage after = host::PoolUsageOfTag(kTagOfWdm);
  EXPECT_EQ(after.Blocks - before.Blocks, 2U);
  EXPECT_EQ(after.Bytes - before.Bytes, sizeof(CameraContext) + 8);
}

}  // namespace
}  // namespace lidcam::test
