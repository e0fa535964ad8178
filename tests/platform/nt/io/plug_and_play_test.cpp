// Requests of plug and play and the power manager to a device's drivers, and the completions of a
// USB device without a driver.

#include "platform/host/nt/io/plug_and_play.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <exception>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "camera_model/bus_adapter/simulated_bus.h"
#include "platform/host/nt/io/device_file.h"
#include "platform/host/nt/io/device_object.h"
#include "platform/host/usbd/device/usb_device_stack.h"
#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::host {
namespace {

/// A driver on top of a device, which records its requests.
class TopDriver {
 public:
  explicit TopDriver(PDEVICE_OBJECT below) : below_(below) {
    InitializeDriverObject(driver_);
    driver_.MajorFunction[IRP_MJ_PNP] = Dispatch;
    driver_.MajorFunction[IRP_MJ_POWER] = Dispatch;
    EXPECT_EQ(IoCreateDevice(&driver_, sizeof(TopDriver*), nullptr, FILE_DEVICE_UNKNOWN, 0, FALSE,
                             &device_),
              STATUS_SUCCESS);
    *static_cast<TopDriver**>(device_->DeviceExtension) = this;
    IoAttachDeviceToDeviceStack(device_, below_);
    device_->Flags &= ~DO_DEVICE_INITIALIZING;
  }
  TopDriver(const TopDriver&) = delete;
  TopDriver& operator=(const TopDriver&) = delete;
  ~TopDriver() noexcept(false) {
    if (std::uncaught_exceptions() != 0) return;
    IoDetachDevice(below_);
    IoDeleteDevice(device_);
  }

  std::vector<std::pair<int, int>> Told;  ///< major and minor
  IO_STACK_LOCATION Last{};
  NTSTATUS Before = STATUS_SUCCESS;  ///< status that the request arrived with
  NTSTATUS Status = STATUS_SUCCESS;

 private:
  static NTSTATUS NTAPI Dispatch(PDEVICE_OBJECT device, PIRP irp) {
    TopDriver& self = **static_cast<TopDriver**>(device->DeviceExtension);
    self.Last = *IoGetCurrentIrpStackLocation(irp);
    self.Told.emplace_back(self.Last.MajorFunction, self.Last.MinorFunction);
    self.Before = irp->IoStatus.Status;
    irp->IoStatus.Status = self.Status;
    const NTSTATUS status = self.Status;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
  }

  DRIVER_OBJECT driver_{};
  PDEVICE_OBJECT below_;
  PDEVICE_OBJECT device_ = nullptr;
};

void WithUsbDevice(const std::function<void(PDEVICE_OBJECT)>& test) {
  bus::SimulatedBus bus({});
  Simulate({}, [&] {
    UsbDeviceStack stack(bus);
    test(stack.PhysicalDeviceObject());
  });
}

constexpr int kPlugAndPlay = 0x1B;
constexpr int kPower = 0x16;

TEST(PlugAndPlay, TellsTheTopmostDriverOfADevice) {
  WithUsbDevice([](PDEVICE_OBJECT physical) {
    TopDriver driver(physical);
    for (const auto tell : {StartDevice, QueryStopDevice, StopDevice, QueryRemoveDevice,
                            SurpriseRemoveDevice, RemoveDevice}) {
      EXPECT_EQ(tell(physical), STATUS_SUCCESS);
      EXPECT_EQ(driver.Before, STATUS_NOT_SUPPORTED);
    }
    EXPECT_THAT(driver.Told, ::testing::ElementsAre(
                                 std::pair{kPlugAndPlay, 0x00}, std::pair{kPlugAndPlay, 0x05},
                                 std::pair{kPlugAndPlay, 0x04}, std::pair{kPlugAndPlay, 0x01},
                                 std::pair{kPlugAndPlay, 0x17}, std::pair{kPlugAndPlay, 0x02}));
  });
}

TEST(PlugAndPlay, GivesTheStatusOfTheDriver) {
  WithUsbDevice([](PDEVICE_OBJECT physical) {
    TopDriver driver(physical);
    driver.Status = STATUS_DEVICE_DATA_ERROR;
    EXPECT_EQ(StartDevice(physical), STATUS_DEVICE_DATA_ERROR);
    EXPECT_EQ(SetDevicePower(physical, PowerDeviceD3), STATUS_DEVICE_DATA_ERROR);
  });
}

TEST(PlugAndPlay, AsksForCapabilitiesInABlockThatTellsItsSize) {
  WithUsbDevice([](PDEVICE_OBJECT physical) {
    TopDriver driver(physical);
    DEVICE_CAPABILITIES capabilities{};
    EXPECT_EQ(QueryCapabilities(physical, capabilities), STATUS_SUCCESS);
    EXPECT_EQ(driver.Last.MinorFunction, 9);
    EXPECT_EQ(driver.Last.Parameters.DeviceCapabilities.Capabilities, &capabilities);
    EXPECT_EQ(capabilities.Size, sizeof(DEVICE_CAPABILITIES));
    EXPECT_EQ(capabilities.Version, 1);
  });
}

TEST(PlugAndPlay, SetsTheDevicesPowerAndNotTheSystems) {
  WithUsbDevice([](PDEVICE_OBJECT physical) {
    TopDriver driver(physical);
    for (const DEVICE_POWER_STATE state : {PowerDeviceD3, PowerDeviceD0}) {
      EXPECT_EQ(SetDevicePower(physical, state), STATUS_SUCCESS);
      EXPECT_EQ(driver.Told.back(), (std::pair{kPower, 0x02}));
      EXPECT_EQ(driver.Last.Parameters.Power.Type, DevicePowerState);
      EXPECT_EQ(driver.Last.Parameters.Power.State.DeviceState, state);
    }
  });
}

TEST(PlugAndPlay, FindsAUsbDeviceWithoutADriverWillingToEverything) {
  WithUsbDevice([](PDEVICE_OBJECT physical) {
    EXPECT_EQ(StartDevice(physical), STATUS_SUCCESS);
    EXPECT_EQ(QueryStopDevice(physical), STATUS_SUCCESS);
    EXPECT_EQ(StopDevice(physical), STATUS_SUCCESS);
    EXPECT_EQ(QueryRemoveDevice(physical), STATUS_SUCCESS);
    EXPECT_EQ(SetDevicePower(physical, PowerDeviceD3), STATUS_SUCCESS);
    EXPECT_EQ(SetDevicePower(physical, PowerDeviceD0), STATUS_SUCCESS);
    EXPECT_EQ(SurpriseRemoveDevice(physical), STATUS_SUCCESS);
    EXPECT_EQ(RemoveDevice(physical), STATUS_SUCCESS);
  });
}

TEST(PlugAndPlay, GetsNothingFromAUsbDeviceForARequestThatItDoesNotKnow) {
  WithUsbDevice([](PDEVICE_OBJECT physical) {
    IO_STACK_LOCATION location{};
    location.MajorFunction = IRP_MJ_PNP;
    location.MinorFunction = IRP_MN_QUERY_INTERFACE;
    EXPECT_EQ(SendAndWait(physical, location), STATUS_NOT_SUPPORTED);
  });
}

TEST(PlugAndPlay, AddsNoCapabilityToAUsbDevice) {
  WithUsbDevice([](PDEVICE_OBJECT physical) {
    DEVICE_CAPABILITIES capabilities{};
    EXPECT_EQ(QueryCapabilities(physical, capabilities), STATUS_SUCCESS);
    EXPECT_FALSE(capabilities.Removable);
    EXPECT_FALSE(capabilities.SurpriseRemovalOK);
  });
}

TEST(PlugAndPlay, RefusesToOpenAUsbDeviceWithoutADriver) {
  WithUsbDevice([](PDEVICE_OBJECT physical) {
    std::unique_ptr<DeviceFile> file;
    EXPECT_FALSE(NT_SUCCESS(DeviceFile::Open(physical, u"", nullptr, file)));
    EXPECT_EQ(file, nullptr);
    EXPECT_EQ(physical->ReferenceCount, 0);
  });
}

}  // namespace
}  // namespace lidcam::host
