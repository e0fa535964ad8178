// Opening a device over libusb, its control requests and its settings.

#include <gmock/gmock.h>
#include <libusb.h>

#include <array>
#include <cerrno>

#include "tests/bus/usb/usb_port_support.h"

namespace lidcam::bus {
namespace {

using stand_in::Look;
using stand_in::SetScript;
using testing::ElementsAre;
using testing::HasSubstr;

class UsbRequests : public UsbPortTest {
 protected:
  ControlResult ReadRegister(UsbBus& bus) {
    return bus.ControlTransfer({0xC0, 0xA1, 1, 0xFF02, 1}, data_);
  }

  std::array<std::uint8_t, 1> data_{};
};

TEST_F(UsbRequests, APluggedCameraIsListedByItsPort) {
  PlugCamera({.Bus = 3, .Ports = {1, 4}, .Address = 17});
  const std::vector<PluggedDevice> devices = host_.Devices();
  ASSERT_EQ(devices.size(), 1U);
  EXPECT_EQ(devices[0].Path, "3-1.4");
  EXPECT_EQ(devices[0].Vendor, 0x1AF0);
  EXPECT_EQ(devices[0].Product, 0x0511);
  EXPECT_EQ(devices[0].Megabits, 480U);
  EXPECT_EQ(devices[0].Node(), "/dev/bus/usb/003/017");
}

TEST_F(UsbRequests, AMachineWithoutUsbHasNoDevices) {
  SetScript({.InitError = LIBUSB_ERROR_OTHER});
  UsbHost host;
  EXPECT_TRUE(host.Devices().empty());
  EXPECT_THAT(host.Obstacle(), HasSubstr("USB can't be reached"));
  EXPECT_FALSE(host.WaitForChange(std::chrono::milliseconds(1)));
  EXPECT_THROW(static_cast<void>(host.Open({}, {})), UsbError);
  EXPECT_TRUE(host_.Obstacle().empty());
}

TEST_F(UsbRequests, ARegisterIsReadAndWritten) {
  PlugCamera();
  const auto bus = Open();
  EXPECT_EQ(ReadRegister(*bus), (ControlResult{UsbStatus::Ok, 1}));
  // The select register alone decides what the request behind it reaches.
  EXPECT_EQ(bus->ControlTransfer({0x40, 0xA0, 3, 0xFFFF, 0}, {}).Status, UsbStatus::Ok);
  EXPECT_EQ(bus->ControlTransfer({0x40, 0xA0, 0x20, 0xFF77, 0}, {}).Status, UsbStatus::Ok);
  EXPECT_EQ(bus->ControlTransfer({0xC0, 0xA1, 1, 0xFF77, 1}, data_).Status, UsbStatus::Ok);
  EXPECT_EQ(data_[0], 0x20);
}

TEST_F(UsbRequests, ARefusedRequestIsAStallAndTheNextOneIsServed) {
  PlugCamera();
  const auto bus = Open();
  EXPECT_EQ(bus->ControlTransfer({0x80, 6, 0x0F00, 0, 1}, data_).Status, UsbStatus::Stalled);
  EXPECT_EQ(ReadRegister(*bus).Status, UsbStatus::Ok);
}

TEST_F(UsbRequests, ARequestWithoutAnswerTimesOutAndTheNextOneIsServed) {
  PlugCamera();
  const auto bus = Open();
  SetScript({.HoldsControl = true});
  EXPECT_EQ(ReadRegister(*bus), (ControlResult{UsbStatus::TimedOut, 0}));
  SetScript({});
  EXPECT_EQ(ReadRegister(*bus).Status, UsbStatus::Ok);
}

TEST_F(UsbRequests, ARequestThatNeverComesBackHoldsNothingUp) {
  PlugCamera();
  auto bus = Open();
  SetScript({.HoldsControl = true, .LosesCancelled = true});
  EXPECT_EQ(ReadRegister(*bus).Status, UsbStatus::TimedOut);
  SetScript({.LosesCancelled = true});
  EXPECT_EQ(ReadRegister(*bus).Status, UsbStatus::Ok);
  bus.reset();
  EXPECT_EQ(Look().OpenHandles, 1U);
}

TEST_F(UsbRequests, PullingThePlugEndsARequest) {
  PlugCamera();
  const auto bus = Open();
  SetScript({.HoldsControl = true});
  ControlResult result;
  const auto before = Look().ControlSubmissions;
  std::thread requester([&] { result = ReadRegister(*bus); });
  EXPECT_TRUE(Comes([&] { return Look().ControlSubmissions > before; }));
  stand_in::Unplug(1);
  requester.join();
  EXPECT_EQ(result.Status, UsbStatus::Disconnected);
  EXPECT_EQ(ReadRegister(*bus).Status, UsbStatus::Disconnected);
  SetScript({});
}

TEST_F(UsbRequests, ADataStageLongerThanItsBufferOrTheHostsIsRefused) {
  PlugCamera();
  const auto bus = Open();
  const auto before = Look().ControlSubmissions;
  EXPECT_EQ(bus->ControlTransfer({0xC0, 0xA1, 1, 0xFF02, 2}, data_).Status, UsbStatus::Failed);
  std::vector<std::uint8_t> large(5000);
  EXPECT_EQ(bus->ControlTransfer({0xC0, 0xA1, 1, 0xFF02, 5000}, large).Status, UsbStatus::Failed);
  EXPECT_EQ(Look().ControlSubmissions, before);
}

TEST_F(UsbRequests, TheConfigurationInForceIsEnteredAnewByItsSettingsAlone) {
  PlugCamera();
  const auto bus = Open();
  const auto before = Look().ControlSubmissions;
  EXPECT_EQ(bus->ControlTransfer({0x00, 9, 1, 0, 0}, {}).Status, UsbStatus::Ok);
  EXPECT_EQ(bus->ControlTransfer({0x00, 9, 0, 0, 0}, {}).Status, UsbStatus::Ok);
  EXPECT_EQ(Look().ControlSubmissions, before);
  EXPECT_THAT(Look().Calls, ElementsAre("setting 0", "setting 0"));
}

TEST_F(UsbRequests, AKernelDriverGetsItsInterfaceBack) {
  PlugCamera({.HasKernelDriver = true});
  auto bus = Open();
  EXPECT_FALSE(Look().IsKernelDriverAttached);
  EXPECT_THAT(Look().Claimed, ElementsAre(0));
  bus.reset();
  EXPECT_TRUE(Look().IsKernelDriverAttached);
  EXPECT_TRUE(Look().Claimed.empty());
  EXPECT_EQ(Look().OpenHandles, 0U);
}

TEST_F(UsbRequests, WhatIsInTheWayOfOpeningIsToldByItsKind) {
  const auto obstacleOf = [this](const stand_in::Device& device) {
    PlugCamera(device);
    UsbObstacle obstacle = UsbObstacle::NotBuiltIn;
    try {
      Open();
    } catch (const UsbError& error) {
      obstacle = error.Obstacle();
    }
    stand_in::Unplug(1);
    return obstacle;
  };
  EXPECT_EQ(obstacleOf({.OpenError = LIBUSB_ERROR_ACCESS}), UsbObstacle::NoPermission);
  EXPECT_EQ(obstacleOf({.OpenError = LIBUSB_ERROR_NO_DEVICE}), UsbObstacle::Gone);
  EXPECT_EQ(obstacleOf({.ClaimError = LIBUSB_ERROR_BUSY}), UsbObstacle::Busy);
  EXPECT_EQ(obstacleOf({.ClaimError = LIBUSB_ERROR_OTHER}), UsbObstacle::Other);
  EXPECT_EQ(Look().OpenHandles, 0U);
}

// A newer host controller refuses with the setting, an older one with the first transfer.
TEST_F(UsbRequests, ABusWithoutRoomRefusesTheSettingAndTellsOnceForAWalk) {
  const stand_in::Script scripts[] = {
      {.SettingFailures = {{7, {LIBUSB_ERROR_OTHER, ENOSPC}}, {6, {LIBUSB_ERROR_OTHER, ENOSPC}}}},
      {.SubmitFailures = {{0, {LIBUSB_ERROR_IO, ENOSPC}}, {1, {LIBUSB_ERROR_IO, ENOSPC}}}}};
  for (const stand_in::Script& script : scripts) {
    stand_in::Reset();
    PlugCamera();
    SetScript(script);
    told_.clear();
    const auto bus = Open();
    EXPECT_EQ(bus->SelectSetting(0, 7), UsbStatus::NoBandwidth);
    EXPECT_EQ(bus->SelectSetting(0, 6), UsbStatus::NoBandwidth);
    EXPECT_EQ(bus->SelectSetting(0, 5), UsbStatus::Ok);
    ASSERT_EQ(told_.size(), 2U);
    EXPECT_THAT(told_[0], HasSubstr("no room for alternate setting 7 with 3072 bytes"));
    EXPECT_THAT(told_[1], HasSubstr("alternate setting 5 with"));
  }
}

TEST_F(UsbRequests, ARefusalThatMayBeMemoryNamesBothCauses) {
  PlugCamera();
  SetScript({.SubmitFailures = {{0, {LIBUSB_ERROR_IO, 0}}}});
  const auto bus = Open();
  EXPECT_EQ(bus->SelectSetting(0, 7), UsbStatus::NoBandwidth);
  ASSERT_EQ(told_.size(), 1U);
  EXPECT_THAT(told_[0], HasSubstr("no room"));
  EXPECT_THAT(told_[0], HasSubstr("usbfs_memory_mb"));
  // The interface is left as it was without a reservation.
  EXPECT_THAT(Look().Calls, ElementsAre("setting 7", "setting 0"));
}

TEST_F(UsbRequests, ASettingThatDoesNotExistIsAStall) {
  PlugCamera();
  const auto bus = Open();
  EXPECT_EQ(bus->SelectSetting(0, 12), UsbStatus::Stalled);
  EXPECT_TRUE(told_.empty());
}

TEST_F(UsbRequests, PluggingInEndsAWait) {
  std::thread plugger([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    PlugCamera();
  });
  EXPECT_TRUE(Comes([this] { return host_.WaitForChange(std::chrono::milliseconds(500)); }));
  plugger.join();
  EXPECT_EQ(host_.Devices().size(), 1U);
}

}  // namespace
}  // namespace lidcam::bus
