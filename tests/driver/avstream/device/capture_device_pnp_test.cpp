#include "platform/host/nt/memory/pool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include "platform/host/nt/system/wdm_version.h"
#include "tests/driver/avstream/support/surface_world.h"
#include "tests/driver/support/statuses.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr auto kDataError = static_cast<NTSTATUS>(0xC000009C);

NTSTATUS StartDevice(SurfaceWorld& world) {
  return world.Device.PnpStart(&world.Ks.Device, nullptr, nullptr, nullptr);
}

TEST(DeviceStart, TheFilterIsThereBeforeTheHardwareStarts) {
  InSurface([](SurfaceWorld& world) {
    EXPECT_EQ(StartDevice(world), STATUS_SUCCESS);
    EXPECT_THAT(world.Ks.Calls, ElementsAre("acquire device", "bag", "factory 8", "release device",
                                            "start hardware"));
    EXPECT_EQ(world.Device.HardwareStarted, 1);
    EXPECT_EQ(world.Ks.FilterDescriptor, world.Device.FilterDescriptor);
    EXPECT_TRUE(world.Ks.DeviceBag.Has(world.Device.FilterDescriptor));
    const KSFILTER_DESCRIPTOR& descriptor = *world.Ks.FilterDescriptor;
    EXPECT_EQ(descriptor.Dispatch, kFilterEntries.Dispatch);
    EXPECT_EQ(descriptor.AutomationTable, kFilterEntries.AutomationTable);
    EXPECT_EQ(descriptor.CategoriesCount, 2U);
    EXPECT_EQ(descriptor.NodeDescriptorsCount, 0U) << "no nodes";
    EXPECT_EQ(descriptor.ConnectionsCount, 0U) << "no topology";
  });
}

TEST(DeviceStart, EachStartHasADescriptorOfItsOwn) {
  InSurface([](SurfaceWorld& world) {
    EXPECT_EQ(StartDevice(world), STATUS_SUCCESS);
    const KSFILTER_DESCRIPTOR* const first = world.Ks.FilterDescriptor;
    EXPECT_EQ(StartDevice(world), STATUS_SUCCESS);
    EXPECT_NE(world.Ks.FilterDescriptor, first);
    EXPECT_TRUE(world.Ks.DeviceBag.Has(first));
  });
}

TEST(DeviceStart, AStartedDeviceIsRefusedAtOnce) {
  InSurface([](SurfaceWorld& world) {
    world.Ks.Device.Started = TRUE;
    EXPECT_EQ(StartDevice(world), kDataError);
    EXPECT_THAT(world.Ks.Calls, IsEmpty());
  });
}

TEST(DeviceStart, WithoutMemoryForTheDescriptorNothingStarts) {
  InSurface([](SurfaceWorld& world) {
    host::FailPoolAllocation(1);
    EXPECT_EQ(StartDevice(world), kNoMemory);
    EXPECT_THAT(world.Ks.Calls, IsEmpty());
  });
}

TEST(DeviceStart, ADescriptorThatTheBagRefusesIsFreedAndForgotten) {
  InSurface([](SurfaceWorld& world) {
    world.Ks.FailBagAt = 1;
    EXPECT_EQ(StartDevice(world), STATUS_SUCCESS) << "the hardware's status";
    EXPECT_EQ(world.Device.FilterDescriptor, nullptr);
    EXPECT_THAT(world.Ks.Calls,
                ElementsAre("acquire device", "bag", "release device", "start hardware"));
  });
}

TEST(DeviceStart, AFailedFactoryGoesUnreportedWhereTheHardwareStartsAtOnce) {
  for (const std::int32_t level : {3, 4, 5}) {
    InSurface([level](SurfaceWorld& world) {
      world.Device.WdmLevel = level;
      world.Ks.FactoryStatus = kRefused;
      EXPECT_EQ(StartDevice(world), STATUS_SUCCESS);
      EXPECT_EQ(world.Device.HardwareStarted, 1);
    });
  }
}

TEST(DeviceStart, OnLevels1And2TheFilterAloneCountsAndPostStartBringsTheHardware) {
  for (const std::int32_t level : {1, 2}) {
    InSurface([level](SurfaceWorld& world) {
      world.Device.WdmLevel = level;
      EXPECT_EQ(StartDevice(world), STATUS_SUCCESS);
      EXPECT_EQ(world.Device.HardwareStarted, 0);
      EXPECT_THAT(world.Device.Steps, IsEmpty());
      EXPECT_EQ(world.Device.PnpPostStart(&world.Ks.Device), STATUS_SUCCESS);
      EXPECT_EQ(world.Device.HardwareStarted, 1);
      EXPECT_THAT(world.Device.Steps, ElementsAre("start hardware"));
      world.Ks.FactoryStatus = kRefused;
      EXPECT_EQ(StartDevice(world), kRefused);
      world.Ks.FailBagAt = 1;
      EXPECT_EQ(StartDevice(world), world.Ks.Failure);
    });
  }
}

TEST(DeviceStart, OnLevels3To5PostStartHasNothingToDo) {
  for (const std::int32_t level : {3, 4, 5}) {
    InSurface([level](SurfaceWorld& world) {
      world.Device.WdmLevel = level;
      EXPECT_EQ(world.Device.PnpPostStart(&world.Ks.Device), STATUS_SUCCESS);
      EXPECT_THAT(world.Device.Steps, IsEmpty());
      EXPECT_EQ(world.Device.HardwareStarted, 0);
    });
  }
}

TEST(DeviceStart, HardwareThatFailsIsToldAndNotStartedButTheFilterStays) {
  InSurface([](SurfaceWorld& world) {
    world.Device.Start = kRefused;
    world.Device.HardwareStarted = 1;
    EXPECT_EQ(StartDevice(world), kRefused);
    EXPECT_EQ(world.Device.HardwareStarted, 0);
    EXPECT_NE(world.Ks.FilterDescriptor, nullptr);
    world.Device.WdmLevel = 1;
    EXPECT_EQ(world.Device.PnpPostStart(&world.Ks.Device), kRefused);
    EXPECT_EQ(world.Device.HardwareStarted, 0);
    world.Device.Start = 0x00000103;
    EXPECT_EQ(world.Device.PnpPostStart(&world.Ks.Device), 0x103);
    EXPECT_EQ(world.Device.HardwareStarted, 1) << "any success counts";
  });
}

struct LevelRow {
  std::uint16_t Version;
  std::int32_t Level;
};

TEST(DeviceBind, ThePlatformsLevelIsTheFirstVersionThatItHas) {
  for (const LevelRow& row : {LevelRow{0x0000, 5},
                              {0x0100, 1},
                              {0x0104, 1},
                              {0x0105, 2},
                              {0x010F, 2},
                              {0x0110, 3},
                              {0x011F, 3},
                              {0x0120, 4},
                              {0x0130, 4}}) {
    InSurface([&row](SurfaceWorld& world) {
      host::SetWdmVersion(row.Version);
      void* const memory = ExAllocatePoolWithTag(NonPagedPool, sizeof(StubDevice), 0x74736554);
      auto* const device = ::new (memory) StubDevice(&world.Ks.Device);
      EXPECT_EQ(device->Bind(&world.Ks.Device), STATUS_SUCCESS);
      EXPECT_EQ(device->WdmLevel, row.Level) << row.Version;
      EXPECT_EQ(world.Ks.Device.Context, device);
      EXPECT_THAT(world.Ks.Calls, ElementsAre("acquire device", "bag", "release device"));
      device->Filter = &kFilterEntries;
      device->PnpStart(&world.Ks.Device, nullptr, nullptr, nullptr);
      EXPECT_EQ(device->HardwareStarted, row.Level >= 3 ? 1 : 0);
      std::vector<std::string>().swap(device->Steps);
    });
  }
  host::SetWdmVersion(0x0130);
}

TEST(DeviceBind, ABagThatRefusesLeavesTheDeviceUnlinked) {
  InSurface([](SurfaceWorld& world) {
    world.Ks.Device.Context = nullptr;
    world.Ks.FailBagAt = 1;
    EXPECT_EQ(world.Device.Bind(&world.Ks.Device), world.Ks.Failure);
    EXPECT_EQ(world.Ks.Device.Context, nullptr);
    EXPECT_EQ(world.Device.WdmLevel, 4) << "not queried";
  });
}

TEST(DeviceRemove, ARemovalOfAStartedDeviceTakesStreamAndHardwareDown) {
  InSurface([](SurfaceWorld& world) {
    world.Device.HardwareStarted = 1;
    world.Device.PnpRemove(&world.Ks.Device, nullptr);
    EXPECT_THAT(world.Device.Steps, ElementsAre("gone 0", "stop hardware"));
    EXPECT_EQ(world.Device.HardwareStarted, 0);
    world.Device.PnpRemove(&world.Ks.Device, nullptr);
    EXPECT_EQ(world.Device.Steps.size(), 2U);
  });
}

TEST(DeviceRemove, ASurpriseRemovalFollowedByARemovalStopsTheHardwareOnce) {
  InSurface([](SurfaceWorld& world) {
    world.Device.HardwareStarted = 1;
    world.Device.PnpSurpriseRemoval(&world.Ks.Device, nullptr);
    world.Device.PnpRemove(&world.Ks.Device, nullptr);
    EXPECT_THAT(world.Device.Steps, ElementsAre("gone 3", "stop hardware"));
  });
}

TEST(DeviceRemove, RequestsAreRefusedBeforeStreamAndHardwareGo) {
  InSurface([](SurfaceWorld& world) {
    world.Device.OnStep = [&] { EXPECT_EQ(world.Device.HardwareStarted, 0); };
    world.Device.HardwareStarted = 1;
    world.Device.PnpRemove(&world.Ks.Device, nullptr);
    world.Device.HardwareStarted = 1;
    world.Device.PnpSurpriseRemoval(&world.Ks.Device, nullptr);
    EXPECT_THAT(world.Device.Steps,
                ElementsAre("gone 0", "stop hardware", "gone 3", "stop hardware"));
  });
}

void HoldTheCameraBesideItsRemoval() {
  SurfaceWorld world;
  CameraContext camera{};
  world.Device.Camera = &camera;
  volatile LONG taken = 0;
  host::TestThread remover([&] {
    world.Device.TakeCamera();
    InterlockedIncrement(&taken);
  });
  if (world.Device.HoldCamera() != nullptr) {
    host::Sleep(host::kMillisecond);
    EXPECT_EQ(taken, 0);
    world.Device.LetGoOfCamera();
  }
  remover.Join();
}

TEST(DeviceRemove, ACameraThatIsHeldIsNotTakenUnderAnySchedule) {
  host::UnderManySeeds(HoldTheCameraBesideItsRemoval, 50, {.HasPreemptionPoints = true});
}

TEST(DeviceRemove, ASurpriseRemovalDoesNotAskWhetherTheHardwareStarted) {
  InSurface([](SurfaceWorld& world) {
    world.Device.PnpSurpriseRemoval(&world.Ks.Device, nullptr);
    EXPECT_THAT(world.Device.Steps, ElementsAre("gone 3", "stop hardware"));
  });
}

TEST(DeviceCapabilities, TheTwoBitsAre0x210AndNothingElseChanges) {
  InSurface([](SurfaceWorld& world) {
    ExactBlock capabilities(sizeof(DEVICE_CAPABILITIES));
    EXPECT_EQ(world.Device.PnpQueryCapabilities(&world.Ks.Device, nullptr,
                                                &capabilities.As<DEVICE_CAPABILITIES>()),
              STATUS_SUCCESS);
    EXPECT_EQ(capabilities.Word(4), 0x210U);
    for (std::size_t at = 0; at < capabilities.Size(); at += 4) {
      if (at != 4) {
        EXPECT_EQ(capabilities.Word(at), 0U) << at;
      }
    }
    ExactBlock full(sizeof(DEVICE_CAPABILITIES), 0xFF);
    world.Device.PnpQueryCapabilities(&world.Ks.Device, nullptr, &full.As<DEVICE_CAPABILITIES>());
    EXPECT_EQ(full.Bytes(), std::vector<std::uint8_t>(sizeof(DEVICE_CAPABILITIES), 0xFF));
  });
}

TEST(DeviceStubs, WhatNoEntryLeadsToSucceedsAndDoesNothing) {
  InSurface([](SurfaceWorld& world) {
    StubDevice& device = world.Device;
    PKSDEVICE const ks = &world.Ks.Device;
    EXPECT_EQ(device.PnpQueryStop(ks, nullptr), STATUS_SUCCESS);
    device.PnpCancelStop(ks, nullptr);
    device.PnpStop(ks, nullptr);
    EXPECT_EQ(device.PnpQueryRemove(ks, nullptr), STATUS_SUCCESS);
    device.PnpCancelRemove(ks, nullptr);
    EXPECT_EQ(device.PnpQueryInterface(ks, nullptr), STATUS_SUCCESS);
    EXPECT_EQ(device.PowerQuery(ks, nullptr, PowerDeviceD3, PowerDeviceD0, PowerSystemSleeping3,
                                PowerSystemWorking, PowerActionSleep),
              STATUS_SUCCESS);
    EXPECT_THAT(world.Ks.Calls, IsEmpty());
  });
}

// ---- Power.

struct PowerRow {
  int Current;
  int To;
  bool Started;
  std::vector<std::string> Steps;
  int After;
};

// The previous state comes from the platform and is passed on: 5 here.
const PowerRow kPowerRows[] = {
    {1, 1, true, {}, 1},
    {1, 2, true, {}, 2},
    {1, 3, true, {}, 3},
    {1, 4, true, {"power down 4 5"}, 4},
    {2, 1, true, {}, 1},
    {2, 2, true, {}, 2},
    {2, 3, true, {}, 3},
    {2, 4, true, {"power down 4 5"}, 4},
    {3, 1, true, {}, 1},
    {3, 2, true, {}, 2},
    {3, 3, true, {}, 3},
    {3, 4, true, {"power down 4 5"}, 4},
    {4, 1, true, {"power up 1 5"}, 1},
    {4, 2, true, {}, 2},
    {4, 3, true, {}, 3},
    {4, 4, true, {}, 4},
    {1, 4, false, {}, 1},
    {4, 1, false, {}, 4},
    {1, 2, false, {}, 1},
};

TEST(DevicePower, EveryChangeOfState) {
  InSurface([](SurfaceWorld& world) {
    for (const PowerRow& row : kPowerRows) {
      SCOPED_TRACE(::testing::Message() << row.Current << " -> " << row.To << " " << row.Started);
      world.Device.Steps.clear();
      world.Device.DevicePowerState = static_cast<DEVICE_POWER_STATE>(row.Current);
      world.Device.HardwareStarted = row.Started ? 1 : 0;
      world.Device.PowerSet(&world.Ks.Device, nullptr, static_cast<DEVICE_POWER_STATE>(row.To),
                            PowerDeviceMaximum);
      EXPECT_EQ(world.Device.Steps, row.Steps);
      EXPECT_EQ(static_cast<int>(static_cast<DEVICE_POWER_STATE>(world.Device.DevicePowerState)),
                row.After);
    }
  });
}

std::vector<std::string> StepsOfPower(SurfaceWorld& world, std::vector<DEVICE_POWER_STATE> states) {
  world.Device.HardwareStarted = 1;
  for (std::size_t i = 1; i < states.size(); ++i) {
    world.Device.PowerSet(&world.Ks.Device, nullptr, states[i], states[i - 1]);
  }
  return world.Device.Steps;
}

TEST(DevicePower, D0ToD2ToD0CallsNothing) {
  InSurface([](SurfaceWorld& world) {
    EXPECT_THAT(StepsOfPower(world, {PowerDeviceD0, PowerDeviceD2, PowerDeviceD0}), IsEmpty());
    EXPECT_EQ(static_cast<DEVICE_POWER_STATE>(world.Device.DevicePowerState), PowerDeviceD0);
  });
}

TEST(DevicePower, D3ToD1ToD0PowersDownOnceAndUpNever) {
  InSurface([](SurfaceWorld& world) {
    EXPECT_THAT(StepsOfPower(world, {PowerDeviceD0, PowerDeviceD3, PowerDeviceD1, PowerDeviceD0}),
                ElementsAre("power down 4 1"));
  });
}

// A pin that runs meanwhile finds the old state.
TEST(DevicePower, TheStateChangesOnceTheHardwareHasFollowed) {
  InSurface([](SurfaceWorld& world) {
    std::vector<int> states;
    world.Device.OnStep = [&] {
      states.push_back(static_cast<DEVICE_POWER_STATE>(world.Device.DevicePowerState));
    };
    EXPECT_THAT(StepsOfPower(world, {PowerDeviceD0, PowerDeviceD3, PowerDeviceD0}),
                ElementsAre("power down 4 1", "power up 1 4"));
    EXPECT_THAT(states, ElementsAre(1, 4));
  });
}

TEST(DevicePower, PowerUpGetsTheFormatOfThePinThatHasTheStream) {
  InSurface([](SurfaceWorld& world) {
    KS_VIDEOINFOHEADER info{};
    EXPECT_EQ(world.Device.AcquireStreamSlot(nullptr, &info), STATUS_SUCCESS);
    StepsOfPower(world, {PowerDeviceD0, PowerDeviceD3, PowerDeviceD0});
    EXPECT_EQ(world.Device.PoweredWith, &info);
    world.Device.ReleaseStreamSlot();
  });
}

// ---- The stream slot.

TEST(StreamSlot, ATakenSlotIsNotGivenAgainAndKeepsItsFormat) {
  InSurface([](SurfaceWorld& world) {
    KS_VIDEOINFOHEADER first{};
    KS_VIDEOINFOHEADER second{};
    EXPECT_EQ(world.Device.AcquireStreamSlot(nullptr, &first), STATUS_SUCCESS);
    EXPECT_EQ(world.Device.AcquireStreamSlot(nullptr, &second), static_cast<NTSTATUS>(0xC0000043));
    EXPECT_EQ(world.Device.StreamVideoInfo, &first);
    EXPECT_EQ(world.Device.StreamSlot, 1);
    world.Device.ReleaseStreamSlot();
    EXPECT_EQ(world.Device.StreamVideoInfo, nullptr);
    EXPECT_EQ(world.Device.StreamSlot, 0);
    EXPECT_EQ(world.Device.AcquireStreamSlot(nullptr, &second), STATUS_SUCCESS);
    world.Device.ReleaseStreamSlot();
  });
}

void TakeTheSlotBesideItsRelease() {
  SurfaceWorld world;
  KS_VIDEOINFOHEADER first{};
  KS_VIDEOINFOHEADER next{};
  EXPECT_EQ(world.Device.AcquireStreamSlot(nullptr, &first), STATUS_SUCCESS);
  host::TestThread releaser([&] { world.Device.ReleaseStreamSlot(); });
  while (world.Device.AcquireStreamSlot(nullptr, &next) != STATUS_SUCCESS) YieldProcessor();
  releaser.Join();
  EXPECT_EQ(world.Device.StreamVideoInfo, &next);
  world.Device.ReleaseStreamSlot();
}

TEST(StreamSlot, AReleaseLeavesTheFormatOfTheNextPinAloneUnderAnySchedule) {
  host::UnderManySeeds(TakeTheSlotBesideItsRelease, 50, {.HasPreemptionPoints = true});
}

TEST(StreamSlot, OnePinOfManyGetsItUnderAnySchedule) {
  host::UnderManySeeds([] {
    SurfaceWorld world;
    volatile LONG winners = 0;
    const auto take = [&] {
      if (world.Device.AcquireStreamSlot(nullptr, nullptr) == 0) InterlockedIncrement(&winners);
    };
    host::TestThread first(take);
    host::TestThread second(take);
    take();
    first.Join();
    second.Join();
    EXPECT_EQ(winners, 1);
    world.Device.ReleaseStreamSlot();
  });
}

}  // namespace
}  // namespace lidcam::test
