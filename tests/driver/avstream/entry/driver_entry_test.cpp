#include "driver/avstream/entry/driver_entry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "driver/usb/stream/camera_usb_device.h"
#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/system/debug_print.h"
#include "tests/driver/avstream/support/surface_world.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;

const KSDEVICE_DISPATCH& Dispatch(FakeStreamingClass& ks) {
  EXPECT_EQ(DriverEntry(nullptr, nullptr), STATUS_SUCCESS);
  return *ks.DeviceDescriptor->Dispatch;
}

TEST(DriverEntry, PrintsItsVersionAndRegistersTheDevice) {
  InSurface([](SurfaceWorld& world) {
    const host::DebugPrintCapture print;
    world.Ks.DriverStatus = kRefused;
    EXPECT_EQ(DriverEntry(nullptr, nullptr), kRefused);
    EXPECT_THAT(print.Messages(),
                ElementsAre(" The USB2.0 Notebook Camera Driver version is 1.3.19.50612 VGA "
                            "adjdummy\n"));
    EXPECT_THAT(world.Ks.Calls, ElementsAre("driver"));
    EXPECT_EQ(world.Ks.DeviceDescriptor->FilterDescriptorsCount, 0U);
    EXPECT_EQ(world.Ks.DeviceDescriptor->FilterDescriptors, nullptr);
    EXPECT_EQ(world.Ks.DeviceDescriptor->Version, 0x100U);
  });
}

TEST(DriverEntry, SevenEntriesAreSetAndThePlatformAnswersTheRest) {
  InSurface([](SurfaceWorld& world) {
    const KSDEVICE_DISPATCH& dispatch = Dispatch(world.Ks);
    EXPECT_EQ(dispatch.QueryStop, nullptr);
    EXPECT_EQ(dispatch.CancelStop, nullptr);
    EXPECT_EQ(dispatch.Stop, nullptr);
    EXPECT_EQ(dispatch.QueryRemove, nullptr);
    EXPECT_EQ(dispatch.CancelRemove, nullptr);
    EXPECT_EQ(dispatch.QueryPower, nullptr);
    EXPECT_EQ(dispatch.QueryInterface, nullptr);
  });
}

TEST(DriverEntry, EachEntryLeadsToItsOperation) {
  InSurface([](SurfaceWorld& world) {
    const KSDEVICE_DISPATCH& dispatch = Dispatch(world.Ks);
    PKSDEVICE const ks = &world.Ks.Device;
    EXPECT_EQ(dispatch.Start(ks, nullptr, nullptr, nullptr), STATUS_SUCCESS);
    EXPECT_THAT(world.Device.Steps, ElementsAre("start hardware"));
    world.Device.WdmLevel = 2;
    EXPECT_EQ(dispatch.PostStart(ks), STATUS_SUCCESS);
    EXPECT_EQ(world.Device.Steps.size(), 2U);
    dispatch.SetPower(ks, nullptr, PowerDeviceD3, PowerDeviceD1);
    EXPECT_EQ(world.Device.Steps.back(), "power down 4 2");
    DEVICE_CAPABILITIES capabilities{};
    EXPECT_EQ(dispatch.QueryCapabilities(ks, nullptr, &capabilities), STATUS_SUCCESS);
    EXPECT_EQ(capabilities.SurpriseRemovalOK, 1U);
    world.Device.Steps.clear();
    dispatch.SurpriseRemoval(ks, nullptr);
    EXPECT_THAT(world.Device.Steps, ElementsAre("gone 3", "stop hardware"));
    world.Device.HardwareStarted = 1;
    dispatch.Remove(ks, nullptr);
    EXPECT_THAT(world.Device.Steps,
                ElementsAre("gone 3", "stop hardware", "gone 0", "stop hardware"));
  });
}

TEST(DriverEntry, AddMakesTheDeviceWithFilterAndPinAboveIt) {
  InSurface([](SurfaceWorld& world) {
    const KSDEVICE_DISPATCH& dispatch = Dispatch(world.Ks);
    PKSDEVICE const ks = &world.Ks.Device;
    ks->Context = nullptr;
    EXPECT_EQ(dispatch.Add(ks), STATUS_SUCCESS);
    ExpectOneObject(sizeof(CameraUsbDevice));
    auto& device = static_cast<CameraUsbDevice&>(*CaptureDeviceOf(ks));
    EXPECT_EQ(device.KsDevice, ks);
    EXPECT_EQ(static_cast<const PinOperations*>(device.Pins), &kPinOperations);
    EXPECT_EQ(static_cast<const FilterEntries*>(device.Filter), &kFilterEntries);
    EXPECT_EQ(static_cast<DEVICE_POWER_STATE>(device.DevicePowerState), PowerDeviceD0);
    EXPECT_EQ(device.FilterDescriptor, nullptr);
    EXPECT_EQ(device.StreamVideoInfo, nullptr);
    EXPECT_EQ(static_cast<CameraContext*>(device.Camera), nullptr);
    EXPECT_EQ(device.TransportRecord, nullptr);
    EXPECT_EQ(device.HardwareStarted, 0);
    EXPECT_EQ(device.StreamSlot, 0);
    EXPECT_EQ(device.WdmLevel, 4);
    EXPECT_EQ(device.UsbDevice, nullptr);
    EXPECT_EQ(device.UsbStream, nullptr);
    EXPECT_EQ(device.Pipeline, nullptr);
    EXPECT_TRUE(world.Ks.DeviceBag.Has(&device));
  });
}

TEST(DriverEntry, AnAddThatFailsLeavesNothing) {
  InSurface([](SurfaceWorld& world) {
    const KSDEVICE_DISPATCH& dispatch = Dispatch(world.Ks);
    world.Ks.Device.Context = nullptr;
    host::FailPoolAllocation(1);
    EXPECT_EQ(dispatch.Add(&world.Ks.Device), static_cast<NTSTATUS>(0xC000009A));
    world.Ks.FailBagAt = 1;
    EXPECT_EQ(dispatch.Add(&world.Ks.Device), world.Ks.Failure);
    EXPECT_EQ(world.Ks.Device.Context, nullptr);
  });
}

// Nothing is known of the camera yet; a stream would be refused.
TEST(DriverEntry, AFilterOpenedBeforeTheHardwareStartsOffersNoFormat) {
  InSurface([](SurfaceWorld& world) {
    const KSDEVICE_DISPATCH& dispatch = Dispatch(world.Ks);
    EXPECT_EQ(dispatch.Add(&world.Ks.Device), STATUS_SUCCESS);
    FakeBag bag;
    KSFILTER filter{};
    filter.Bag = &bag;
    EXPECT_EQ(kFilterEntries.Dispatch->Create(&filter, nullptr), STATUS_SUCCESS);
    EXPECT_EQ(world.Ks.PinDescriptor.PinDescriptor.DataRangesCount, 0U);
    CaptureDevice& device = *CaptureDeviceOf(&world.Ks.Device);
    KS_VIDEOINFOHEADER format{};
    EXPECT_EQ(device.AcquireStream(nullptr, &format), static_cast<NTSTATUS>(0xC000009C));
    EXPECT_EQ(device.GetCameraProperty(nullptr, nullptr, nullptr),
              static_cast<NTSTATUS>(0xC0000001));
  });
}

}  // namespace
}  // namespace lidcam::test
