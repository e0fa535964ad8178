// One camera in one host on the machine's threads and clock, for ThreadSanitizer.

#include <gtest/gtest.h>

#include "camera_model/bus_adapter/simulated_bus.h"
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

}  // namespace
}  // namespace lidcam::testbed
