// Plug and play of a device of the streaming class.

#include "platform/host/nt/verifier/kernel_faults.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include "tests/platform/ks/class_world.h"

namespace lidcam::host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(KsDriver, PutsItsEntriesIntoTheDriverObjectAndTakesNoStaticFilters) {
  Simulate({}, [] {
    ClassWorld world;
    for (const int major : {IRP_MJ_CREATE, IRP_MJ_CLEANUP, IRP_MJ_CLOSE, IRP_MJ_DEVICE_CONTROL,
                            IRP_MJ_PNP, IRP_MJ_POWER, IRP_MJ_SYSTEM_CONTROL}) {
      EXPECT_NE(world.Driver.MajorFunction[major], world.Driver.MajorFunction[IRP_MJ_READ]);
    }
    EXPECT_NE(world.Driver.DriverUnload, nullptr);
    DRIVER_OBJECT other{};
    InitializeDriverObject(other);
    KSDEVICE_DESCRIPTOR withFilters = kFullDevice;
    withFilters.FilterDescriptorsCount = 1;
    EXPECT_EQ(KsInitializeDriver(&other, nullptr, &withFilters), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(KsInitializeDriver(&other, nullptr, nullptr), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(other.DriverExtension->AddDevice, nullptr);
    FailKernelCall("IoAllocateDriverObjectExtension", 1, STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(KsInitializeDriver(&other, nullptr, &kFullDevice), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(KsInitializeDriver(&other, nullptr, &kFullDevice), STATUS_SUCCESS);
    EXPECT_EQ(KsInitializeDriver(&other, nullptr, &kFullDevice), STATUS_OBJECT_NAME_COLLISION);
  });
}

TEST(KsDevice, StandsOnTheStackWithABagWhenItsDriverAddsIt) {
  Simulate({}, [] {
    ClassWorld world;
    world.Script.Add = [&](PKSDEVICE device) {
      world.Device = device;
      EXPECT_EQ(device->Descriptor, &kFullDevice);
      EXPECT_EQ(device->PhysicalDeviceObject, world.Physical);
      EXPECT_EQ(device->NextDeviceObject, world.Physical);
      EXPECT_EQ(device->FunctionalDeviceObject, world.Physical->AttachedDevice);
      EXPECT_EQ(device->Started, FALSE);
      EXPECT_EQ(device->DevicePowerState, PowerDeviceD0);
      EXPECT_EQ(device->SystemPowerState, PowerSystemWorking);
      return KsAddItemToObjectBag(device->Bag, ExAllocatePoolWithTag(NonPagedPool, 8, kTestTag),
                                  nullptr);
    };
    EXPECT_EQ(world.Add(), STATUS_SUCCESS);
    EXPECT_EQ(world.Device->FunctionalDeviceObject->Flags & DO_DEVICE_INITIALIZING, 0U);
    EXPECT_EQ(PoolUsageOfTag(kTestTag).Blocks, 1U);
    world.Remove();
    EXPECT_EQ(PoolUsageOfTag(kTestTag).Blocks, 0U);
  });
}

TEST(KsDevice, IsUndoneWhenItsDriverFailsToAddIt) {
  Simulate({}, [] {
    ClassWorld world;
    world.Script.Add = [](PKSDEVICE device) {
      KsAddItemToObjectBag(device->Bag, ExAllocatePoolWithTag(NonPagedPool, 8, kTestTag), nullptr);
      return STATUS_ACCESS_DENIED;
    };
    EXPECT_EQ(world.Add(), STATUS_ACCESS_DENIED);
    EXPECT_EQ(world.Physical->AttachedDevice, nullptr);
    EXPECT_EQ(world.Driver.DeviceObject, nullptr);
    EXPECT_EQ(PoolUsageOfTag(kTestTag).Blocks, 0U);
  });
}

TEST(KsDevice, IsUndoneWhicheverAllocationOfItsAddingFails) {
  Simulate({}, [] {
    ClassWorld world;
    std::uint32_t failed = 0;
    while (true) {
      const std::size_t before = PoolUsageOfAll().Blocks;
      FailPoolAllocation(failed + 1);
      const NTSTATUS status = world.Add();
      if (IsPoolFailureToCome()) break;
      EXPECT_EQ(status, STATUS_INSUFFICIENT_RESOURCES);
      EXPECT_EQ(world.Physical->AttachedDevice, nullptr);
      EXPECT_EQ(PoolUsageOfAll().Blocks, before);
      ++failed;
    }
    FailPoolAllocation(0);
    EXPECT_EQ(failed, 2U);  // the device object, the bag
    FailKernelCall("IoCreateDevice", 1, STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(world.Add(), STATUS_INSUFFICIENT_RESOURCES);
  });
}

TEST(KsDevice, StartsAfterTheDeviceBelowAndPostStartsWhenStarted) {
  UnderManySeeds([] {
    ClassWorld world;
    world.Script.IsBelowSlow = true;
    world.Add();
    EXPECT_EQ(world.PlugAndPlay(IRP_MN_START_DEVICE).Status, STATUS_SUCCESS);
    EXPECT_THAT(world.TakeLog(), ElementsAre("add", "below 27.0", "below is done", "start",
                                             "post-start of a started device"));
    EXPECT_EQ(world.Device->Started, TRUE);
  });
}

TEST(KsDevice, IsNotStartedWhenTheDeviceBelowIsnt) {
  Simulate({}, [] {
    ClassWorld world;
    world.Add();
    world.Script.Below = STATUS_DEVICE_NOT_CONNECTED;
    EXPECT_EQ(world.PlugAndPlay(IRP_MN_START_DEVICE).Status, STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_THAT(world.TakeLog(), ElementsAre("add", "below 27.0"));
    EXPECT_EQ(world.Device->Started, FALSE);
    world.Script.Below = STATUS_SUCCESS;
  });
}

TEST(KsDevice, KeepsTheFactoriesOfAFailedStartOpenable) {
  Simulate({}, [] {
    ClassWorld world;
    world.Add();
    world.Script.Start = [](PKSDEVICE device) {
      KsCreateFilterFactory(device->FunctionalDeviceObject, &kTestFilter, nullptr, nullptr,
                            KSCREATE_ITEM_FREEONSTOP, nullptr, nullptr, nullptr);
      return STATUS_UNSUCCESSFUL;
    };
    EXPECT_EQ(world.PlugAndPlay(IRP_MN_START_DEVICE).Status, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(world.Device->Started, FALSE);
    EXPECT_THAT(world.TakeLog(), ElementsAre("add", "below 27.0", "start"));
    TestFile file(world.Top());
    EXPECT_EQ(file.Open(kTestFilterName), STATUS_SUCCESS);
    file.Close();
  });
}

TEST(KsDevice, CantBeOpenedWhileItsStartIsUnderWay) {
  Simulate({}, [] {
    ClassWorld world;
    ASSERT_EQ(world.Add(), STATUS_SUCCESS);
    const auto open = [&](PKSDEVICE device) {
      EXPECT_EQ(KsCreateFilterFactory(device->FunctionalDeviceObject, &kTestFilter, nullptr,
                                      nullptr, 0, nullptr, nullptr, nullptr),
                device->Started != FALSE ? STATUS_OBJECT_NAME_COLLISION : STATUS_SUCCESS);
      TestFile file(world.Top());
      EXPECT_EQ(file.Open(u""), STATUS_DEVICE_NOT_READY);
      return STATUS_SUCCESS;
    };
    world.Script.Start = open;
    world.Script.PostStart = open;
    EXPECT_EQ(world.PlugAndPlay(IRP_MN_START_DEVICE).Status, STATUS_SUCCESS);
    TestFile file(world.Top());
    EXPECT_EQ(file.Open(u""), STATUS_SUCCESS);
    file.Close();
    world.Remove();
  });
}

TEST(KsDevice, IsStartedThoughItsPostStartFails) {
  Simulate({}, [] {
    ClassWorld world;
    world.Script.PostStart = [](PKSDEVICE) { return STATUS_UNSUCCESSFUL; };
    world.Start();
    EXPECT_EQ(world.Device->Started, TRUE);
  });
}

TEST(KsDevice, TellsItsDriverOfASecondStartByStarted) {
  Simulate({}, [] {
    ClassWorld world;
    world.Start();
    world.Script.Start = [](PKSDEVICE) { return STATUS_DEVICE_DATA_ERROR; };
    EXPECT_EQ(world.PlugAndPlay(IRP_MN_START_DEVICE).Status, STATUS_DEVICE_DATA_ERROR);
    EXPECT_THAT(world.TakeLog(), ElementsAre("below 27.0", "start of a started device"));
    EXPECT_EQ(world.Device->Started, TRUE);
  });
}

TEST(KsDevice, DropsItsFactoriesAtAStopAndMakesThemAnewAtTheNextStart) {
  Simulate({}, [] {
    ClassWorld world;
    world.Start();
    KsCreateFilterFactory(world.Device->FunctionalDeviceObject, &kTestFilter,
                          const_cast<PWSTR>(u"KEPT"), nullptr, 0, nullptr, nullptr, nullptr);
    EXPECT_EQ(world.PlugAndPlay(IRP_MN_STOP_DEVICE).Status, STATUS_SUCCESS);
    EXPECT_THAT(world.TakeLog(), ElementsAre("stop", "below 27.4"));
    EXPECT_EQ(world.Device->Started, FALSE);
    TestFile file(world.Top());
    EXPECT_EQ(file.Open(kTestFilterName), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(file.Open(u"\\KEPT"), STATUS_SUCCESS);
    file.Close();
    EXPECT_EQ(world.PlugAndPlay(IRP_MN_START_DEVICE).Status, STATUS_SUCCESS);
    EXPECT_EQ(file.Open(kTestFilterName), STATUS_SUCCESS);
    file.Close();
  });
}

struct MinorCase {
  UCHAR Minor;
  std::vector<std::string> Full;  // with all entries
  NTSTATUS FullStatus;
  std::vector<std::string> Bare;  // with none
};

TEST(KsDevice, PassesOtherRequestsOnInTheirOrder) {
  const MinorCase cases[] = {
      {IRP_MN_QUERY_STOP_DEVICE, {"query-stop"}, STATUS_ACCESS_DENIED, {"below 27.5"}},
      {IRP_MN_CANCEL_STOP_DEVICE, {"below 27.6", "cancel-stop"}, STATUS_SUCCESS, {"below 27.6"}},
      {IRP_MN_QUERY_REMOVE_DEVICE, {"query-remove", "below 27.1"}, STATUS_SUCCESS, {"below 27.1"}},
      {IRP_MN_CANCEL_REMOVE_DEVICE,
       {"below 27.3", "cancel-remove"},
       STATUS_SUCCESS,
       {"below 27.3"}},
      {IRP_MN_QUERY_INTERFACE, {"query-interface", "below 27.8"}, STATUS_SUCCESS, {"below 27.8"}},
      {0x07, {"below 27.7"}, STATUS_SUCCESS, {"below 27.7"}},  // query device relations
      {0x42, {"below 27.66"}, STATUS_SUCCESS, {"below 27.66"}},
  };
  for (const MinorCase& test : cases) {
    SCOPED_TRACE(static_cast<int>(test.Minor));
    Simulate({}, [&] {
      ClassWorld full;
      full.Add();
      full.TakeLog();
      EXPECT_EQ(full.PlugAndPlay(test.Minor).Status, test.FullStatus);
      EXPECT_EQ(full.TakeLog(), test.Full);
    });
    Simulate({}, [&] {
      ClassWorld bare(kBareDevice);
      bare.Add();
      bare.TakeLog();
      EXPECT_EQ(bare.PlugAndPlay(test.Minor).Status, STATUS_SUCCESS);
      EXPECT_EQ(bare.TakeLog(), test.Bare);
    });
  }
}

TEST(KsDevice, GoesThroughItsLifeWithoutAnyEntry) {
  UnderManySeeds([] {
    ClassWorld world(kBareDevice);
    world.Add();
    for (const UCHAR minor : {UCHAR{IRP_MN_START_DEVICE}, UCHAR{IRP_MN_STOP_DEVICE},
                              UCHAR{IRP_MN_SURPRISE_REMOVAL}, UCHAR{IRP_MN_REMOVE_DEVICE}}) {
      EXPECT_EQ(world.PlugAndPlay(minor).Status, STATUS_SUCCESS);
    }
  });
}

TEST(KsDevice, LeavesAnUnansweredRequestUnanswered) {
  Simulate({}, [] {
    ClassWorld world;
    world.Add();
    world.Script.Below = STATUS_NOT_SUPPORTED;
    EXPECT_EQ(world.PlugAndPlay(0x42).Status, STATUS_NOT_SUPPORTED);
    world.Script.Below = STATUS_SUCCESS;
  });
}

TEST(KsDevice, AddsToTheCapabilitiesOfTheDeviceBelow) {
  UnderManySeeds([] {
    ClassWorld world;
    world.Script.IsBelowSlow = true;
    world.Add();
    world.TakeLog();
    DEVICE_CAPABILITIES capabilities{};
    EXPECT_EQ(world.PlugAndPlay(IRP_MN_QUERY_CAPABILITIES, &capabilities).Status, STATUS_SUCCESS);
    EXPECT_THAT(world.TakeLog(), ElementsAre("below 27.9", "below is done", "query-capabilities"));
    EXPECT_EQ(capabilities.Removable, 1U);
    world.Script.Below = STATUS_UNSUCCESSFUL;
    EXPECT_EQ(world.PlugAndPlay(IRP_MN_QUERY_CAPABILITIES, &capabilities).Status,
              STATUS_UNSUCCESSFUL);
    EXPECT_THAT(world.TakeLog(), ElementsAre("below 27.9", "below is done"));
    world.Script.Below = STATUS_SUCCESS;
  });
}

TEST(KsDevice, PassesSystemControlOn) {
  Simulate({}, [] {
    ClassWorld world;
    world.Add();
    world.TakeLog();
    world.Script.Below = STATUS_NOT_SUPPORTED;
    const Reply reply = SendRequest(world.Top(), [](PIRP, IO_STACK_LOCATION& location) {
      location.MajorFunction = IRP_MJ_SYSTEM_CONTROL;
    });
    EXPECT_EQ(reply.Status, STATUS_NOT_SUPPORTED);
    EXPECT_THAT(world.TakeLog(), ElementsAre("below 23.0"));
    world.Script.Below = STATUS_SUCCESS;
  });
}

TEST(KsPower, GoesDownDriverFirstAndUpDeviceBelowFirst) {
  UnderManySeeds([] {
    ClassWorld world;
    world.Start();
    world.Script.IsBelowSlow = true;
    EXPECT_EQ(world.SetPower(PowerDeviceD3).Status, STATUS_SUCCESS);
    EXPECT_THAT(world.TakeLog(), ElementsAre("set-power D0->D3", "below 22.2", "below is done"));
    EXPECT_EQ(world.Device->DevicePowerState, PowerDeviceD3);
    EXPECT_EQ(world.SetPower(PowerDeviceD1).Status, STATUS_SUCCESS);
    EXPECT_THAT(world.TakeLog(), ElementsAre("below 22.2", "below is done", "set-power D3->D1"));
    EXPECT_EQ(world.Device->DevicePowerState, PowerDeviceD1);
    EXPECT_EQ(world.SetPower(PowerDeviceD0).Status, STATUS_SUCCESS);
    EXPECT_THAT(world.TakeLog(), ElementsAre("below 22.2", "below is done", "set-power D1->D0"));
    EXPECT_EQ(world.Device->DevicePowerState, PowerDeviceD0);
  });
}

TEST(KsPower, StaysDownWhenTheDeviceBelowDoesntComeUp) {
  Simulate({}, [] {
    ClassWorld world;
    world.Start();
    world.SetPower(PowerDeviceD3);
    world.TakeLog();
    world.Script.Below = STATUS_UNSUCCESSFUL;
    EXPECT_EQ(world.SetPower(PowerDeviceD0).Status, STATUS_UNSUCCESSFUL);
    EXPECT_THAT(world.TakeLog(), ElementsAre("below 22.2"));
    EXPECT_EQ(world.Device->DevicePowerState, PowerDeviceD3);
    world.Script.Below = STATUS_SUCCESS;
  });
}

TEST(KsPower, PassesSystemStatesAndQueriesOn) {
  Simulate({}, [] {
    ClassWorld world;
    world.Start();
    EXPECT_EQ(world.Power(IRP_MN_SET_POWER, SystemPowerState, PowerSystemSleeping3).Status,
              STATUS_SUCCESS);
    EXPECT_THAT(world.TakeLog(), ElementsAre("below 22.2"));
    EXPECT_EQ(world.Device->SystemPowerState, PowerSystemSleeping3);
    EXPECT_EQ(world.Device->DevicePowerState, PowerDeviceD0);
    EXPECT_EQ(world.Power(IRP_MN_QUERY_POWER, DevicePowerState, PowerDeviceD2).Status,
              STATUS_SUCCESS);
    EXPECT_THAT(world.TakeLog(), ElementsAre("query-power D2 S3", "below 22.3"));
    EXPECT_EQ(world.Device->DevicePowerState, PowerDeviceD0);
    world.Power(0x00, DevicePowerState, PowerDeviceD0);  // wait-wake
    EXPECT_THAT(world.TakeLog(), ElementsAre("below 22.0"));
  });
}

}  // namespace
}  // namespace lidcam::host
