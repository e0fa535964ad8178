// State after a failed step of start or stream.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "driver/core/record/camera_context.h"
#include "platform/host/nt/verifier/kernel_faults.h"
#include "tests/driver/support/statuses.h"
#include "tests/driver/usb/support/camera_faults.h"
#include "tests/driver/usb/support/transport_world.h"

namespace lidcam::test {
namespace {

using testing::ElementsAre;

TEST(FailedSteps, SettingsThatDoNotLoadAtTheEndOfAStartAreNoMemory) {
  InWorld([](TransportWorld& world) {
    CameraFaults faults;
    faults.FailingLoad = 2;  // the first one belongs to the camera's creation
    EXPECT_EQ(world.Start(), kNoMemory);
    EXPECT_EQ(faults.Loads, 2U);
    EXPECT_EQ(world.Record().Connected, 0);
    EXPECT_EQ(world.Record().DeviceOpen, 0);
  });
}

TEST(FailedSteps, AStartThatFailsBehindTheCamerasCreationKeepsTheCamera) {
  InWorld([](TransportWorld& world) {
    CameraFaults faults;
    faults.FailingLoad = 2;
    EXPECT_EQ(world.Start(), kNoMemory);
    CameraContext* const camera = world.Record().Camera;
    EXPECT_NE(camera, nullptr);
    EXPECT_EQ(static_cast<CameraContext*>(world.Device().Camera), camera);
    // Released by the removal.
    EXPECT_EQ(world.Device().StopHardware(), STATUS_SUCCESS);
    EXPECT_EQ(static_cast<CameraContext*>(world.Device().Camera), nullptr);
  });
}

TEST(FailedSteps, AStartWithoutAStreamRecordCanBePoweredDown) {
  InWorld([](TransportWorld& world) {
    PlatformLog::RefuseBagItem(4);
    EXPECT_EQ(world.Start(), kNoMemory);
    ASSERT_EQ(static_cast<UsbStreamRecord*>(world.Device().UsbStream), nullptr);
    ASSERT_NE(static_cast<CameraContext*>(world.Device().Camera), nullptr);
    EXPECT_EQ(world.Device().PowerDown(PowerDeviceD3, PowerDeviceD0), STATUS_SUCCESS);
  });
}

TEST(FailedSteps, StreamControlThatWaitsForAStartThatFailsFindsNoStream) {
  struct Row {
    const char* Name;
    bool IsPaused;
    NTSTATUS (*Control)(CameraUsbDevice&);
    NTSTATUS Status;
  };
  constexpr Row kRows[] = {
      {"pause", false, [](CameraUsbDevice& device) { return device.PauseStream(); }, 0},
      {"resume", true, [](CameraUsbDevice& device) { return device.ResumeStream(); }, kGone},
      {"release", true, [](CameraUsbDevice& device) { return device.ReleaseStream(); },
       kUnsuccessful},
  };
  for (const Row& row : kRows) {
    InWorld([&row](TransportWorld& world) {
      ASSERT_EQ(world.Start() | world.Acquire() | world.Device().RunStream(), 0);
      if (row.IsPaused) {
        ASSERT_EQ(world.Device().PauseStream(), STATUS_SUCCESS);
      }
      KsAcquireDevice(world.Ks());
      NTSTATUS status = STATUS_PENDING;
      host::TestThread control([&] { status = row.Control(world.Device()); });
      host::Sleep(host::kMillisecond);
      PlatformLog::RefuseBagItem(4);
      EXPECT_EQ(world.Start(), kNoMemory);
      KsReleaseDevice(world.Ks());
      control.Join();
      EXPECT_EQ(status, row.Status) << row.Name;
      EXPECT_EQ(static_cast<UsbStreamRecord*>(world.Device().UsbStream), nullptr);
      EXPECT_EQ(world.Device().StopHardware(), STATUS_SUCCESS);
    });
  }
}

TEST(FailedSteps, OnlyTheDeviceClasses1And2And3Start) {
  for (const std::uint32_t deviceClass : {0U, 1U, 2U, 3U, 4U, 0xFFFFFFFFU}) {
    InWorld([deviceClass](TransportWorld& world) {
      CameraFaults faults;
      faults.DeviceClass = deviceClass;
      const bool isKnown = deviceClass >= 1 && deviceClass <= 3;
      EXPECT_EQ(world.Start(), isKnown ? STATUS_SUCCESS : kUnsuccessful) << deviceClass;
      EXPECT_EQ(world.Record().Connected, isKnown ? 1 : 0);
      EXPECT_NE(world.Record().Camera, nullptr);
      // The capabilities of a camera of another class are not taken over.
      EXPECT_EQ(world.Record().DeviceClass, isKnown ? deviceClass : 0U);
      EXPECT_EQ(world.Record().TransferCount, isKnown ? 7U : 0U);
    });
  }
}

TEST(FailedSteps, AStartWithoutAStreamRecordKeepsTheCameraToo) {
  InWorld([](TransportWorld& world) {
    PlatformLog::RefuseBagItem(4);
    EXPECT_EQ(world.Start(), kNoMemory);
    EXPECT_NE(world.Record().Camera, nullptr);
    EXPECT_NE(static_cast<CameraContext*>(world.Device().Camera), nullptr);
    EXPECT_EQ(world.Device().UsbStream, nullptr);
  });
}

TEST(FailedSteps, AnAcquireWhoseModeFailsLeavesTheSettingAndTheCameraStreaming) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    CameraFaults faults;
    faults.ModeFails = true;
    EXPECT_EQ(world.Acquire(), kNoMemory);
    EXPECT_EQ(world.Stream().StreamFormat.AlternateSetting, 7U);
    EXPECT_EQ(world.Record().InterfaceInformation->AlternateSetting, 7);
    EXPECT_THAT(world.Stack.SettingsAsked, ElementsAre(7U));
    EXPECT_EQ(world.Record().Camera->Streaming, 1);
  });
}

TEST(FailedSteps, AnAcquireWithoutItsThreadLeavesTheSettingAndTheCameraStreaming) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    host::FailKernelCall("PsCreateSystemThread", 1, kUnsuccessful);
    EXPECT_EQ(world.Acquire(), kNoMemory);
    EXPECT_EQ(world.Stream().StreamFormat.AlternateSetting, 7U);
    EXPECT_THAT(world.Stack.SettingsAsked, ElementsAre(7U));
    EXPECT_EQ(world.Record().Camera->Streaming, 1);
    EXPECT_EQ(world.Stream().WaitFlags, 0U);
  });
}

// A pipe without packets fails the first transfer.
TEST(FailedSteps, AnAcquireWithoutATransferFreesItsBuffersAndThenStopsItsThread) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    world.Stack.PacketSizes[7] = 0;
    world.Log.Clear();
    EXPECT_EQ(world.Acquire(), kNoMemory);
    EXPECT_THAT(world.Log.Lines(),
                ElementsAre("acquire device", "urb select setting 7", "urb vendor requests",
                            "create thread", "reference thread access=2032639 mode=0",
                            "close handle", "allocate raw buffers", "free raw buffers",
                            "let go of thread", "release device"));
    EXPECT_EQ(world.Stream().Assembly.ReadyBuffer, nullptr);
    EXPECT_EQ(world.Stream().Assembly.FillBuffer, nullptr);
    EXPECT_NE(world.Stream().Assembly.RawBuffers, nullptr);
  });
}

TEST(FailedSteps, ARunThatFailsLeavesTheCircleHaltedThroughTheRelease) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    world.Stack.Decide = [sent = 0](URB& urb) mutable -> std::optional<Verdict> {
      if (urb.UrbHeader.Function != 0x0A || ++sent != 7) return std::nullopt;
      return Verdict{kUnsuccessful};
    };
    EXPECT_EQ(world.Device().RunStream(), kUnsuccessful);
    EXPECT_EQ(world.Stream().Opened, 0);
    EXPECT_EQ(world.Stream().Halted, 1);
    // The next stream's preparation doesn't repair it either.
    world.Stack.Decide = nullptr;
    while (world.Stack.IsoOut() != 0) world.Stack.CompleteIso(USBD_STATUS_CANCELED);
    EXPECT_EQ(world.Acquire(), STATUS_SUCCESS);
    EXPECT_EQ(world.Stream().Halted, 1);
  });
}

}  // namespace
}  // namespace lidcam::test
