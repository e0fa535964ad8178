// Effects of applications, plug and play and a lack of memory on an installed camera in
// unfavourable orders.

#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "camera_model/bus_adapter/simulated_bus.h"
#include "platform/host/client/stream.h"
#include "platform/host/nt/io/device_file.h"
#include "platform/host/nt/processor/kernel_guards.h"
#include "platform/host/nt/verifier/kernel_faults.h"
#include "testbed/installed_testbed.h"
#include "testbed/worlds.h"
#include "tests/driver/support/sanitizers.h"
#include "tests/testbed/with_installed_testbed.h"

namespace lidcam::testbed {
namespace {

using client::Camera;
using client::Stream;

const std::uint64_t kSeeds = test::kIsSanitized ? 10 : 60;

// The pin's ranges are tried one after the other: a range that doesn't match does not check the
// state.
TEST(InstalledTestbed, RefusesAFormatOfEverySizeForTheStateWhileItStreams) {
  WithInstalledTestbed([](InstalledTestbed& installed) {
    const Camera camera = Camera::Open(installed.TopDevice());
    Stream stream(camera, camera.FormatOf(160, 120));
    ASSERT_EQ(stream.SetState(KSSTATE_RUN), STATUS_SUCCESS);
    for (const KS_DATARANGE_VIDEO& range : camera.Ranges()) {
      EXPECT_EQ(stream.SetFormat(camera.Intersect(range)), STATUS_INVALID_DEVICE_STATE);
    }
    ASSERT_EQ(stream.SetState(KSSTATE_STOP), STATUS_SUCCESS);
    EXPECT_EQ(stream.SetFormat(camera.FormatOf(640, 480)), STATUS_SUCCESS);
  });
}

// A frame released after the stop goes back to the driver, which keeps it until the stream runs.
TEST(InstalledTestbed, RunsAgainAfterABufferCameToAStoppedStream) {
  WithInstalledTestbed([](InstalledTestbed& installed) {
    const Camera camera = Camera::Open(installed.TopDevice());
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.Run();
    {
      const client::NextFrame frame = stream.Next(2 * kSecond);
      ASSERT_EQ(frame.Status, STATUS_SUCCESS);
      ASSERT_EQ(stream.SetState(KSSTATE_STOP), STATUS_SUCCESS);
    }
    while (stream.Next(0).Status == STATUS_SUCCESS) {
    }
    EXPECT_EQ(stream.Next(0).Status, STATUS_CANCELLED);
    stream.Run();
    EXPECT_EQ(stream.Next(2 * kSecond).Status, STATUS_SUCCESS);
  });
}

// An opening in progress when the device is removed ends first.
TEST(InstalledTestbed, IsRemovedBehindTheOpeningsThatAreUnderWay) {
  std::uint64_t opened = 0;
  std::uint64_t refused = 0;
  for (std::uint64_t seed = 1; seed <= kSeeds; ++seed) {
    WithInstalledTestbed(
        [&](InstalledTestbed& installed) {
          KEVENT begun{};
          KeInitializeEvent(&begun, NotificationEvent, FALSE);
          const host::ServiceThread application([&] {
            KeSetEvent(&begun, IO_NO_INCREMENT, FALSE);
            for (int i = 0; i < 4; ++i) {
              std::unique_ptr<host::DeviceFile> file;
              const NTSTATUS status =
                  host::DeviceFile::Open(installed.TopDevice(), client::kFilterName, nullptr, file);
              ++(NT_SUCCESS(status) ? opened : refused);
            }
          });
          KeWaitForSingleObject(&begun, Executive, KernelMode, FALSE, nullptr);
          EXPECT_EQ(installed.Remove(), STATUS_SUCCESS);
        },
        seed);
  }
  EXPECT_GT(opened, 0U);
  EXPECT_GT(refused, 0U);
}

TEST(InstalledTestbed, IsClosedAndRemovedWithoutMemoryForARequest) {
  WithInstalledTestbed([](InstalledTestbed& installed) {
    {
      const Camera camera = Camera::Open(installed.TopDevice());
      host::FailKernelCall("IoAllocateIrp", 1, STATUS_INSUFFICIENT_RESOURCES);
    }
    EXPECT_FALSE(host::IsKernelCallFaultToCome());
    EXPECT_EQ(host::OpenFileCount(), 0U);
    host::FailKernelCall("IoAllocateIrp", 1, STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(installed.Remove(), STATUS_SUCCESS);
    host::ClearKernelCallFaults();
  });
}

}  // namespace
}  // namespace lidcam::testbed
