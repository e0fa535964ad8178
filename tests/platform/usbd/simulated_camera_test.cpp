// The USB stack over the simulated camera, in virtual and in real time.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>

#include "camera_model/bus_adapter/simulated_bus.h"
#include "tests/platform/usbd/usb_test_support.h"

namespace lidcam::host {
namespace {

using bus::SimulatedBus;
using bus::SimulatedBusOptions;

Bytes ReadConfiguration(PDEVICE_OBJECT device) {
  Bytes buffer(521);
  SentUrb sent(device);
  _URB_CONTROL_DESCRIPTOR_REQUEST& request = sent.Urb().UrbControlDescriptorRequest;
  request.Hdr.Length = sizeof(request);
  request.Hdr.Function = URB_FUNCTION_GET_DESCRIPTOR_FROM_DEVICE;
  request.DescriptorType = USB_CONFIGURATION_DESCRIPTOR_TYPE;
  request.TransferBufferLength = static_cast<ULONG>(buffer.size());
  request.TransferBuffer = buffer.data();
  EXPECT_EQ(sent.Run(), STATUS_SUCCESS);
  buffer.resize(request.TransferBufferLength);
  return buffer;
}

struct Streamed {
  std::size_t Bytes = 0;
  LONGLONG LastTransferAt = 0;
};

// Resubmits some transfers in a circle, as the driver does, and counts the bytes of `transfers` of
// them.
Streamed Stream(UsbWorld& world, int transfers) {
  std::vector<std::unique_ptr<IsochronousRead>> reads;
  std::atomic<int> left = transfers;
  std::atomic<std::size_t> bytes = 0;
  std::atomic<LONGLONG> lastAt = 0;
  for (int i = 0; i < 7; ++i) {
    reads.push_back(std::make_unique<IsochronousRead>(world.Device(), world.Pipe(1)));
    IsochronousRead& read = *reads.back();
    read.Sent.OnCompletion = [&read, &left, &bytes, &lastAt] {
      if (read.Sent.Status() != USBD_STATUS_SUCCESS) return;
      for (ULONG packet = 0; packet < 32; ++packet) bytes += read.Packet(packet).Length;
      if (--left <= 0) {
        if (left == 0) lastAt = Now();
        return;
      }
      EXPECT_EQ(read.Sent.Send(), STATUS_PENDING);
    };
    EXPECT_EQ(read.Sent.Send(), STATUS_PENDING);
  }
  while (left > 0) Sleep(kMillisecond);
  EXPECT_EQ(RunPipeRequest(world.Device(), URB_FUNCTION_ABORT_PIPE, world.Pipe(1).PipeHandle),
            STATUS_SUCCESS);
  return {bytes, lastAt};
}

TEST(SimulatedCamera, IsConfiguredAndStreamsInVirtualTime) {
  Simulate({.Seed = 3}, [] {
    SimulatedBus bus(SimulatedBusOptions{});
    UsbWorld world(bus);
    const Bytes configuration = ReadConfiguration(world.Device());
    ASSERT_EQ(configuration.size(), 193U);
    ASSERT_EQ(world.Configure(configuration), STATUS_SUCCESS);
    ASSERT_EQ(world.Interface().NumberOfPipes, 2U);
    ASSERT_EQ(world.SelectSetting(7), STATUS_SUCCESS);
    EXPECT_EQ(world.Pipe(1).MaximumPacketSize, 3072);
    const LONGLONG start = Now();
    const Streamed streamed = Stream(world, 50);
    EXPECT_GT(streamed.Bytes, 640U * 480U);
    EXPECT_EQ(streamed.LastTransferAt - start, (2 + 50 * 4) * kMillisecond);
  });
}

TEST(SimulatedCamera, IsRefusedTheSettingsThatTheBusHasNoRoomFor) {
  Simulate({}, [] {
    SimulatedBusOptions options;
    options.BandwidthLimit = 2048;
    SimulatedBus bus(options);
    UsbWorld world(bus);
    ASSERT_EQ(world.Configure(ReadConfiguration(world.Device())), STATUS_SUCCESS);
    UCHAR setting = 7;
    while (setting > 0 && !NT_SUCCESS(world.SelectSetting(setting))) {
      EXPECT_EQ(world.SettingStatus, USBD_STATUS_NO_BANDWIDTH);
      --setting;
    }
    EXPECT_LT(setting, 7);
    EXPECT_GT(setting, 0);
    EXPECT_LE(world.Pipe(1).MaximumPacketSize, 2048);
    EXPECT_GT(world.Pipe(1).MaximumPacketSize, 0);
  });
}

TEST(SimulatedCamera, AnswersItsVendorRequests) {
  Simulate({}, [] {
    SimulatedBus bus(SimulatedBusOptions{});
    UsbWorld world(bus);
    ASSERT_EQ(world.Configure(ReadConfiguration(world.Device())), STATUS_SUCCESS);
    VendorRead bogus(world.Device());
    bogus.Request().Request = 0x11;
    EXPECT_EQ(bogus.Sent.Run(), STATUS_DEVICE_DATA_ERROR);
    EXPECT_EQ(bogus.Sent.Status(), USBD_STATUS_STALL_PID);
  });
}

TEST(SimulatedCamera, StreamsInRealTime) {
  SimulatedBusOptions options;
  options.Pace = bus::Pacing::RealTime;
  SimulatedBus bus(options);
  const std::size_t blocks = PoolUsageOfAll().Blocks;
  {
    UsbWorld world(bus);
    ASSERT_EQ(world.Configure(ReadConfiguration(world.Device())), STATUS_SUCCESS);
    ASSERT_EQ(world.SelectSetting(7), STATUS_SUCCESS);
    const LONGLONG start = Now();
    EXPECT_GT(Stream(world, 50).Bytes, 640U * 480U);
    EXPECT_GE(Now() - start, 200 * kMillisecond);
    EXPECT_EQ(IrpsInFlightAt(world.Device()), 0U);
  }
  EXPECT_EQ(PoolUsageOfAll().Blocks, blocks);
}

TEST(SimulatedCamera, CanBeUnpluggedWhileItStreamsInRealTime) {
  SimulatedBusOptions options;
  options.Pace = bus::Pacing::RealTime;
  SimulatedBus bus(options);
  UsbWorld world(bus);
  ASSERT_EQ(world.Configure(ReadConfiguration(world.Device())), STATUS_SUCCESS);
  ASSERT_EQ(world.SelectSetting(7), STATUS_SUCCESS);
  std::vector<std::unique_ptr<IsochronousRead>> reads;
  for (int i = 0; i < 7; ++i) {
    reads.push_back(std::make_unique<IsochronousRead>(world.Device(), world.Pipe(1)));
    EXPECT_EQ(reads.back()->Sent.Send(), STATUS_PENDING);
  }
  Sleep(8 * kMillisecond);
  world.Stack.Unplug();
  for (const auto& read : reads) read->Sent.Await();
  EXPECT_EQ(reads.back()->Sent.Status(), USBD_STATUS_DEVICE_GONE);
}

}  // namespace
}  // namespace lidcam::host
