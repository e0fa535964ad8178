// One camera in one host on the machine's threads and clock, for ThreadSanitizer.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdarg>
#include <string_view>
#include <thread>

#include "camera_model/bus_adapter/simulated_bus.h"
#include "driver/core/base/camera_trace.h"
#include "platform/host/nt/verifier/irp_tracker.h"
#include "testbed/transport_testbed.h"

namespace lidcam::testbed {
namespace {

TEST(TransportTestbedInRealTime, StreamsPausesResumesAndIsUnplugged) {
  bus::SimulatedBusOptions options;
  options.Pace = bus::Pacing::RealTime;
  bus::SimulatedBus bus(options);
  std::uint64_t handled = 0;
  RunInRealTime([&] {
    const auto count = [&handled](const HostedFrame&) { ++handled; };
    WithTransportTestbed(bus, {.Frames = count}, [](TransportTestbed& camera) {
      ASSERT_EQ(camera.Start(), STATUS_SUCCESS);
      ASSERT_EQ(camera.Acquire({.Width = 320, .Height = 240}), STATUS_SUCCESS);
      ASSERT_EQ(camera.Run(), STATUS_SUCCESS);
      EXPECT_TRUE(camera.WaitForFrames(5, 20 * kSecond));
      EXPECT_EQ(camera.Pause(), STATUS_SUCCESS);
      EXPECT_EQ(camera.Resume(), STATUS_SUCCESS);
      EXPECT_TRUE(camera.WaitForFrames(camera.Counts().Delivered() + 5, 20 * kSecond));
      camera.Unplug();
    });
    EXPECT_EQ(host::IrpUsageOfWorld().Known, 0U);
  });
  EXPECT_GE(handled, 10U);
}

// Between the frame number that it asks for and its first transfer, the driver's thread loses time here.
TEST(TransportTestbedInRealTime, StreamsFromAMachineWhoseThreadsRunLate) {
  bus::SimulatedBusOptions options;
  options.Pace = bus::Pacing::RealTime;
  bus::SimulatedBus bus(options);
  SetCameraTraceSink([](const CameraContext*, const char* format, std::va_list) {
    if (std::string_view(format).starts_with("iso start frame")) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  });
  RunInRealTime([&] {
    WithTransportTestbed(bus, {}, [](TransportTestbed& camera) {
      ASSERT_EQ(camera.Start(), STATUS_SUCCESS);
      ASSERT_EQ(camera.Acquire({.Width = 320, .Height = 240}), STATUS_SUCCESS);
      ASSERT_EQ(camera.Run(), STATUS_SUCCESS);
      EXPECT_TRUE(camera.WaitForFrames(5, 20 * kSecond));
    });
  });
  SetCameraTraceSink(nullptr);
}

}  // namespace
}  // namespace lidcam::testbed
