#include <gtest/gtest.h>

#include "driver/core/control/camera_lifecycle.h"
#include "driver/usb/transfers/stream_recovery.h"
#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/system/wdm_version.h"
#include "tests/driver/support/statuses.h"
#include "tests/driver/usb/support/transport_world.h"

namespace lidcam::test {
namespace {

TEST(HardwareStart, StartAndStopGoInTheirOrder) {
  InWorld([](TransportWorld& world) {
    world.ExpectGolden("start_hardware", [&] { EXPECT_EQ(world.Start(), STATUS_SUCCESS); });
    world.ExpectGolden("stop_hardware", [&] { EXPECT_EQ(world.Device().StopHardware(), 0); });
    EXPECT_EQ(world.Device().Camera, nullptr);
    EXPECT_EQ(world.Device().Pipeline, nullptr);
    EXPECT_EQ(world.Stream().Pipeline, nullptr);
    EXPECT_EQ(world.Record().Stream, nullptr);
    EXPECT_EQ(world.Record().DeviceOpen, 0);
  });
}

TEST(HardwareStart, TheRecordsAreWiredAndSigned) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    const UsbDeviceRecord& record = world.Record();
    const TransportRecord& transport = *world.Device().TransportRecord;
    EXPECT_EQ(std::string(record.Signature, 4), "DVQR");
    EXPECT_EQ(std::string(world.Stream().Signature, 4), "CHQR");
    EXPECT_EQ(std::string(transport.Head.Signature, 4), "SYQR");
    EXPECT_EQ(transport.Device, &record);
    EXPECT_EQ(transport.Head.NextDeviceObject, world.Ks()->NextDeviceObject);
    EXPECT_EQ(transport.Head.PhysicalDeviceObject, world.Ks()->PhysicalDeviceObject);
    EXPECT_EQ(transport.Head.FunctionalDeviceObject, world.Ks()->FunctionalDeviceObject);
    EXPECT_EQ(record.Stream, &world.Stream());
    EXPECT_EQ(world.Stream().Device, &record);
    EXPECT_EQ(world.Stream().PipeIndex, 1U);
    EXPECT_EQ(record.Camera, world.Device().Camera);
    EXPECT_EQ(record.ResetGuard, -1);
    EXPECT_EQ(record.RecoveryPipeIndex, 0U);
    EXPECT_EQ(record.Connected, 1);
    EXPECT_EQ(record.DeviceOpen, 1);
    EXPECT_EQ(world.Device().GetFormatListIndex(), 0);
    EXPECT_EQ(world.Device().GetFormatCount(), 5);
    EXPECT_EQ(world.Device().Pipeline, world.Stream().Pipeline);
    // Directly behind the stream record, with the transfers behind it.
    EXPECT_EQ(static_cast<void*>(world.Device().Pipeline), static_cast<void*>(&world.Stream() + 1));
    EXPECT_EQ(static_cast<void*>(world.Device().Pipeline->Transfers),
              static_cast<void*>(world.Device().Pipeline + 1));
    EXPECT_EQ(world.Device().GetPipelineSize(), sizeof(IsoPipeline) + 7 * sizeof(IsoTransfer));
  });
}

TEST(HardwareStart, OldPlatformsPut4PacketsIntoATransferAndOthers32) {
  struct Row {
    std::uint16_t Version;
    std::int32_t Level;
    std::uint32_t Packets;
  };
  for (const Row& row : {Row{0, 5, 32}, Row{0x0100, 1, 4}, Row{0x0105, 2, 4}, Row{0x0110, 3, 4},
                         Row{0x0120, 4, 32}, Row{0x0130, 4, 32}}) {
    host::SetWdmVersion(row.Version);
    InWorld([&](TransportWorld& world) {
      ASSERT_EQ(world.Start(), STATUS_SUCCESS);
      EXPECT_EQ(world.Device().WdmLevel, row.Level);
      EXPECT_EQ(world.Record().WdmLevel, row.Level);
      EXPECT_EQ(world.Device().Pipeline->PacketsPerTransfer, row.Packets);
    });
  }
  host::SetWdmVersion(0x0130);
}

// The simulation itself reports leaks at its end.
TEST(HardwareStart, AStartThatRunsOutOfMemoryAnywhereFailsAndLeaksNothing) {
  unsigned failures = 0;
  unsigned withoutInterface = 0;
  for (std::uint32_t n = 1; n <= 60; ++n) {
    InWorld([&](TransportWorld& world) {
      host::FailPoolAllocation(n);
      const NTSTATUS status = world.Start();
      host::FailPoolAllocation(0);
      if (status == STATUS_SUCCESS) {
        // Only an interface that could not be copied shows later.
        const bool isWhole = world.Record().InterfaceInformation != nullptr;
        EXPECT_EQ(world.Acquire(), isWhole ? STATUS_SUCCESS : kNoMemory) << n;
        withoutInterface += isWhole ? 0U : 1U;
        return;
      }
      ++failures;
      // The IRP of either descriptor, and the camera's two records.
      const bool isOfAnother = n == 7 || n == 10 || n == 17 || n == 22;
      EXPECT_EQ(status, isOfAnother ? kUnsuccessful : kNoMemory) << n;
      EXPECT_EQ(world.Acquire(), kGone);
      EXPECT_EQ(world.Device().RunStream(), kGone);
      EXPECT_EQ(world.Device().PauseStream(), STATUS_SUCCESS);
      EXPECT_EQ(world.Device().ReleaseStream(), STATUS_SUCCESS);
    });
  }
  EXPECT_GT(failures, 9U);
  EXPECT_EQ(withoutInterface, 1U);
}

TEST(HardwareStart, ADeviceWithoutMemoryForItsObjectIsNotAdded) {
  InWorld([](TransportWorld& world) {
    host::FailPoolAllocation(1);
    EXPECT_EQ(AddCameraDevice(world.Ks()), kNoMemory);
  });
}

TEST(HardwareStart, AFailingReadAtTheEndOfTheBringUpFailsTheStart) {
  InWorld([](TransportWorld& world) {
    world.Stack.Decide = [](URB& urb) -> std::optional<Verdict> {
      if (urb.UrbHeader.Function != 0x17) return std::nullopt;
      return Verdict{kUnsuccessful};
    };
    EXPECT_EQ(world.Start(), kUnsuccessful);
    EXPECT_EQ(world.Device().Camera, nullptr);
    EXPECT_EQ(world.Record().Connected, 0);
  });
}

TEST(HardwareStart, ABagThatRefusesFailsTheStart) {
  for (std::uint32_t n = 1; n <= 4; ++n) {
    InWorld([&](TransportWorld& world) {
      PlatformLog::RefuseBagItem(n);
      // Without a pipe table, the third, the device starts all the same.
      EXPECT_EQ(world.Start(), n == 3 ? STATUS_SUCCESS : kNoMemory) << n;
    });
  }
}

// A device that was stopped for its resources keeps its hardware's state until it is started again.
TEST(HardwareStart, AStartOnTopOfARunningStreamTakesTheLastStartDown) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire() | world.Device().RunStream(), 0);
    const UsbDeviceRecord& record = world.Record();
    const UsbStreamRecord& stream = world.Stream();
    world.Stack.Decide = nullptr;
    EXPECT_EQ(world.Start(), STATUS_SUCCESS);
    EXPECT_EQ(stream.Opened, 0);
    EXPECT_EQ(record.Camera, nullptr);
    EXPECT_NE(&world.Record(), &record);
    EXPECT_NE(static_cast<CameraContext*>(world.Device().Camera), nullptr);
    EXPECT_NE(&world.Stream(), &stream);
    while (world.Stack.IsoOut() != 0) world.Stack.CompleteIso(USBD_STATUS_CANCELED);
    EXPECT_EQ(world.Acquire(), STATUS_SUCCESS);
  });
}

// The platform holds the mutex during a start: waiting for a recovery that waits for the mutex
// would never end.
TEST(HardwareStart, AStartUnderTheMutexDoesNotWaitForARecoveryThatWaitsForTheMutex) {
  host::UnderManySeeds([] {
    TransportWorld world;
    ASSERT_EQ(world.Start() | world.Acquire() | world.Device().RunStream(), 0);
    UsbDeviceRecord& record = world.Record();
    UsbStreamRecord& stream = world.Stream();
    KsAcquireDevice(world.Ks());
    ScheduleStreamReset(record, stream);
    host::Sleep(20 * host::kMillisecond);
    EXPECT_EQ(world.Start(), STATUS_SUCCESS);
    KsReleaseDevice(world.Ks());
    EXPECT_EQ(world.Device().StopHardware(), STATUS_SUCCESS);
    EXPECT_EQ(record.ResetGuard, -1);
  });
}

TEST(HardwareStart, StoppingWaitsForTheLastInstructionOfARecovery) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    volatile LONG& workItems = *world.Record().WorkItems;
    InterlockedIncrement(&workItems);
    bool isStopped = false;
    host::TestThread remover([&] {
      world.Device().StopHardware();
      isStopped = true;
    });
    host::Sleep(100 * host::kMillisecond);
    EXPECT_FALSE(isStopped);
    InterlockedDecrement(&workItems);
    remover.Join();
    EXPECT_TRUE(isStopped);
  });
}

}  // namespace
}  // namespace lidcam::test
