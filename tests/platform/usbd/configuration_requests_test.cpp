// Configuration, alternate settings and pipes, as requested by a driver.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/platform/usbd/usb_test_support.h"

namespace lidcam::host {
namespace {

using bus::SetupPacket;
using bus::UsbStatus;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(SelectConfiguration, ConfiguresTheDeviceAndTellsThePipes) {
  UnderManySeeds([] {
    ScriptedBus bus;
    UsbWorld world(bus);
    ASSERT_EQ(world.Configure(SmallConfiguration()), STATUS_SUCCESS);
    EXPECT_EQ(world.ConfigurationStatus, USBD_STATUS_SUCCESS);
    EXPECT_THAT(bus.Setups, ElementsAre(SetupPacket{0x00, 9, 1, 0, 0}));
    EXPECT_THAT(bus.Settings, IsEmpty());
    const USBD_INTERFACE_INFORMATION& interface = world.Interface();
    EXPECT_EQ(interface.Class, 0xFF);
    EXPECT_EQ(interface.SubClass, 0xFE);
    EXPECT_EQ(interface.Protocol, 0xFD);
    ASSERT_EQ(interface.NumberOfPipes, 2U);
    EXPECT_EQ(world.Pipe(0).PipeType, UsbdPipeTypeInterrupt);
    EXPECT_EQ(world.Pipe(0).EndpointAddress, 0x81);
    EXPECT_EQ(world.Pipe(0).MaximumPacketSize, 8);
    EXPECT_EQ(world.Pipe(0).Interval, 5);
    EXPECT_EQ(world.Pipe(1).PipeType, UsbdPipeTypeIsochronous);
    EXPECT_EQ(world.Pipe(1).EndpointAddress, 0x82);
    EXPECT_EQ(world.Pipe(1).MaximumPacketSize, 0);
    EXPECT_NE(world.Pipe(0).PipeHandle, world.Pipe(1).PipeHandle);
  });
}

TEST(SelectConfiguration, RefusedByTheDeviceFails) {
  UnderManySeeds([] {
    ScriptedBus bus;
    bus.OnControl = [](const SetupPacket&, std::span<std::uint8_t>) {
      return bus::ControlResult{UsbStatus::Stalled, 0};
    };
    UsbWorld world(bus);
    EXPECT_EQ(world.Configure(SmallConfiguration()), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(world.ConfigurationStatus, USBD_STATUS_SET_CONFIG_FAILED);
  });
}

// An invalid request never reaches the bus.
USBD_STATUS StatusOfBadConfiguration(const std::function<void(Bytes&, Bytes&)>& spoil) {
  USBD_STATUS status = 0;
  Simulate({}, [&] {
    ScriptedBus bus;
    UsbWorld world(bus);
    Bytes descriptor = SmallConfiguration();
    auto* const configuration = reinterpret_cast<PUSB_CONFIGURATION_DESCRIPTOR>(descriptor.data());
    USBD_INTERFACE_LIST_ENTRY list[2]{};
    list[0].InterfaceDescriptor =
        USBD_ParseConfigurationDescriptorEx(configuration, configuration, 0, -1, -1, -1, -1);
    URB* const urb = USBD_CreateConfigurationRequestEx(configuration, list);
    SentUrb sent(world.Device(), 1024);
    Bytes request(reinterpret_cast<std::uint8_t*>(urb),
                  reinterpret_cast<std::uint8_t*>(urb) + urb->UrbHeader.Length);
    ExFreePool(urb);
    spoil(request, descriptor);
    std::memcpy(static_cast<void*>(&sent.Urb()), request.data(), request.size());
    EXPECT_LT(sent.Run(), 0);
    EXPECT_THAT(bus.Setups, IsEmpty());
    status = sent.Status();
  });
  return status;
}

_URB_SELECT_CONFIGURATION& RequestIn(Bytes& bytes) {
  return *reinterpret_cast<_URB_SELECT_CONFIGURATION*>(bytes.data());
}

TEST(SelectConfiguration, ChecksTheRequest) {
  EXPECT_EQ(StatusOfBadConfiguration([](Bytes&, Bytes& descriptor) { descriptor[1] = 1; }),
            USBD_STATUS_INAVLID_CONFIGURATION_DESCRIPTOR);
  EXPECT_EQ(StatusOfBadConfiguration([](Bytes&, Bytes& descriptor) { descriptor[2] = 8; }),
            USBD_STATUS_INAVLID_CONFIGURATION_DESCRIPTOR);
  EXPECT_EQ(StatusOfBadConfiguration(
                [](Bytes& urb, Bytes&) { RequestIn(urb).Interface.InterfaceNumber = 1; }),
            USBD_STATUS_INTERFACE_NOT_FOUND);
  EXPECT_EQ(StatusOfBadConfiguration(
                [](Bytes& urb, Bytes&) { RequestIn(urb).Interface.AlternateSetting = 3; }),
            USBD_STATUS_INTERFACE_NOT_FOUND);
  EXPECT_EQ(StatusOfBadConfiguration([](Bytes& urb, Bytes&) { --RequestIn(urb).Interface.Length; }),
            USBD_STATUS_BUFFER_TOO_SMALL);
  EXPECT_EQ(StatusOfBadConfiguration([](Bytes& urb, Bytes&) { --RequestIn(urb).Hdr.Length; }),
            USBD_STATUS_BUFFER_TOO_SMALL);
  EXPECT_EQ(StatusOfBadConfiguration([](Bytes& urb, Bytes&) { RequestIn(urb).Hdr.Length = 1; }),
            USBD_STATUS_INVALID_PARAMETER);
}

TEST(SelectConfiguration, WithoutDescriptorUnconfiguresAndTakesTransfersBack) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    IsochronousRead read(world.Device(), world.Pipe(1));
    EXPECT_EQ(read.Sent.Send(), STATUS_PENDING);
    SentUrb unconfigure(world.Device());
    unconfigure.Urb().UrbHeader.Function = URB_FUNCTION_SELECT_CONFIGURATION;
    EXPECT_EQ(unconfigure.Run(), STATUS_SUCCESS);
    EXPECT_EQ(read.Sent.Await(), STATUS_CANCELLED);
    EXPECT_EQ(read.Sent.Status(), USBD_STATUS_CANCELED);
    EXPECT_THAT(bus.Setups, ElementsAre(SetupPacket{0x00, 9, 0, 0, 0}));
    EXPECT_EQ(RunPipeRequest(world.Device(), URB_FUNCTION_ABORT_PIPE, world.Pipe(1).PipeHandle),
              STATUS_INVALID_PARAMETER);
    EXPECT_EQ(world.SelectSetting(1), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(world.SettingStatus, USBD_STATUS_INVALID_PARAMETER);
  });
}

TEST(SelectInterface, OpensNewPipesWithTheBytesOfTheSetting) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    EXPECT_EQ(world.Pipe(1).MaximumPacketSize, 1024);
    const USBD_PIPE_HANDLE old = world.Pipe(1).PipeHandle;
    EXPECT_EQ(world.SelectSetting(2), STATUS_SUCCESS);
    EXPECT_THAT(bus.Settings, ElementsAre(2));
    EXPECT_EQ(world.Pipe(1).MaximumPacketSize, 3072);
    EXPECT_NE(world.Pipe(1).PipeHandle, old);
    EXPECT_EQ(RunPipeRequest(world.Device(), URB_FUNCTION_RESET_PIPE, old),
              STATUS_INVALID_PARAMETER);
  });
}

TEST(SelectInterface, RefusedForBandwidthKeepsTheOldSettingWithItsTransfers) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    bus.OnSetting = [](std::uint8_t, std::uint8_t) { return UsbStatus::NoBandwidth; };
    IsochronousRead read(world.Device(), world.Pipe(1));
    EXPECT_EQ(read.Sent.Send(), STATUS_PENDING);
    EXPECT_EQ(world.SelectSetting(2), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(world.SettingStatus, USBD_STATUS_NO_BANDWIDTH);
    EXPECT_EQ(world.Pipe(1).MaximumPacketSize, 1024);
    EXPECT_EQ(read.Sent.Await(), STATUS_SUCCESS);
  });
}

TEST(SelectInterface, TakesBackTheTransfersOfTheOldSetting) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    IsochronousRead read(world.Device(), world.Pipe(1));
    EXPECT_EQ(read.Sent.Send(), STATUS_PENDING);
    EXPECT_EQ(world.SelectSetting(0), STATUS_SUCCESS);
    EXPECT_EQ(read.Sent.Await(), STATUS_CANCELLED);
    EXPECT_THAT(bus.Aborts, ElementsAre(0x82));
  });
}

TEST(SelectInterface, ChecksTheRequest) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    EXPECT_LT(world.SelectSetting(3), 0);
    EXPECT_EQ(world.SettingStatus, USBD_STATUS_INTERFACE_NOT_FOUND);
    --world.Interface().Length;
    EXPECT_EQ(world.SelectSetting(1), STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(world.SettingStatus, USBD_STATUS_BUFFER_TOO_SMALL);
    ++world.Interface().Length;
    world.ConfigurationHandle = nullptr;
    EXPECT_EQ(world.SelectSetting(1), STATUS_INVALID_PARAMETER);
    EXPECT_THAT(bus.Settings, IsEmpty());
  });
}

TEST(ResetPipe, ClearsTheHaltOfAnInterruptEndpoint) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    EXPECT_EQ(RunPipeRequest(world.Device(), URB_FUNCTION_RESET_PIPE, world.Pipe(0).PipeHandle),
              STATUS_SUCCESS);
    EXPECT_THAT(bus.Setups, ElementsAre(SetupPacket{0x02, 1, 0, 0x81, 0}));
  });
}

TEST(ResetPipe, SendsNothingForAnIsochronousEndpointThatNeverStalled) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    EXPECT_EQ(RunPipeRequest(world.Device(), URB_FUNCTION_RESET_PIPE, world.Pipe(1).PipeHandle),
              STATUS_SUCCESS);
    EXPECT_THAT(bus.Setups, IsEmpty());
  });
}

TEST(ResetPipe, ClearsTheStallThatAnIsochronousEndpointHasShownOnce) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    bus.OnRead = [](std::span<std::uint8_t>, std::span<bus::IsochronousPacket>) {
      return bus::IsochronousResult{UsbStatus::Stalled, 0};
    };
    IsochronousRead read(world.Device(), world.Pipe(1));
    EXPECT_EQ(read.Sent.Run(), STATUS_DEVICE_DATA_ERROR);
    EXPECT_EQ(read.Sent.Status(), USBD_STATUS_STALL_PID);
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(RunPipeRequest(world.Device(), URB_FUNCTION_RESET_PIPE, world.Pipe(1).PipeHandle),
                STATUS_SUCCESS);
    }
    EXPECT_THAT(bus.Setups, ElementsAre(SetupPacket{0x02, 1, 0, 0x82, 0}));
  });
}

TEST(ResetPipe, FailsWhileTransfersAreOut) {
  WithConfiguredDevice([](ScriptedBus&, UsbWorld& world) {
    IsochronousRead read(world.Device(), world.Pipe(1));
    EXPECT_EQ(read.Sent.Send(), STATUS_PENDING);
    SentUrb reset(world.Device());
    MakePipeRequest(reset, URB_FUNCTION_RESET_PIPE, world.Pipe(1).PipeHandle);
    EXPECT_EQ(reset.Run(), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(reset.Status(), USBD_STATUS_ERROR_BUSY);
    read.Sent.Await();
  });
}

TEST(ResetPipe, RefusedByTheDeviceFails) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    bus.OnControl = [](const SetupPacket&, std::span<std::uint8_t>) {
      return bus::ControlResult{UsbStatus::Stalled, 0};
    };
    EXPECT_EQ(RunPipeRequest(world.Device(), URB_FUNCTION_RESET_PIPE, world.Pipe(0).PipeHandle),
              STATUS_DEVICE_DATA_ERROR);
  });
}

// No bus supports bulk or interrupt transfers: refused at once, with the true reason.
TEST(BulkTransfer, IsNotSupportedOnItsPipesAndInvalidOnOthers) {
  WithConfiguredDevice([](ScriptedBus&, UsbWorld& world) {
    SentUrb sent(world.Device());
    sent.Urb().UrbHeader.Function = URB_FUNCTION_BULK_OR_INTERRUPT_TRANSFER;
    sent.Urb().UrbBulkOrInterruptTransfer.PipeHandle = world.Pipe(0).PipeHandle;
    EXPECT_EQ(sent.Send(), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(sent.Status(), USBD_STATUS_NOT_SUPPORTED);
    sent.Urb().UrbBulkOrInterruptTransfer.PipeHandle = world.Pipe(1).PipeHandle;
    EXPECT_EQ(sent.Send(), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(sent.Status(), USBD_STATUS_INVALID_PIPE_HANDLE);
  });
}

}  // namespace
}  // namespace lidcam::host
