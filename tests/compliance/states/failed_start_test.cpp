// A camera whose start failed, as seen by applications.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bus/faults/fault_bus.h"
#include "camera_model/bus_adapter/simulated_bus.h"
#include "platform/host/nt/memory/pool.h"
#include "testbed/worlds.h"
#include "tests/compliance/support/compliance_world.h"

namespace lidcam::compliance {
namespace {

using client::Camera;
using ::testing::AnyOf;
using ::testing::IsEmpty;

constexpr auto kUnsuccessful = static_cast<NTSTATUS>(0xC0000001);

void ExpectNothingOnOffer(const testbed::InstalledTestbed& installed) {
  const Camera camera = Camera::Open(installed.TopDevice());
  EXPECT_THAT(camera.Ranges(), IsEmpty());
  EXPECT_EQ(StatusOf([&] {
              (void)camera.GetLevel(PROPSETID_VIDCAP_VIDEOPROCAMP,
                                    KSPROPERTY_VIDEOPROCAMP_BRIGHTNESS);
            }),
            kUnsuccessful);
}

TEST(FailedStart, OfASilentCameraLeavesAFilterThatOffersNothing) {
  bus::SimulatedBus simulated({});
  bus::FaultBus bus(simulated, {.Script = bus::ParseFaultScript("control 1 unplug")});
  testbed::RunInVirtualTime({.Seed = 1}, [&] {
    testbed::InstalledTestbed installed(bus, {});
    EXPECT_FALSE(NT_SUCCESS(installed.Start()));
    ExpectNothingOnOffer(installed);
    installed.Close();
  });
}

// Each allocation fails once. A failure after the filter factory's allocations leaves a filter that
// can be opened, whatever else is missing.
TEST(FailedStart, WithoutMemoryLeavesAFilterThatTellsSo) {
  int opened = 0;
  for (std::uint32_t number = 1; number <= 60; ++number) {
    bus::SimulatedBus bus({});
    testbed::RunInVirtualTime({.Seed = 1}, [&] {
      testbed::InstalledTestbed installed(bus, {});
      host::FailPoolAllocation(number);
      const bool hasStarted = NT_SUCCESS(installed.Start());
      host::FailPoolAllocation(0);
      NTSTATUS level = STATUS_SUCCESS;
      const NTSTATUS open = StatusOf([&] {
        const Camera camera = Camera::Open(installed.TopDevice());
        level = StatusOf([&] {
          (void)camera.GetLevel(PROPSETID_VIDCAP_VIDEOPROCAMP, KSPROPERTY_VIDEOPROCAMP_BRIGHTNESS);
        });
      });
      EXPECT_THAT(open, AnyOf(STATUS_SUCCESS, STATUS_OBJECT_NAME_NOT_FOUND)) << number;
      if (NT_SUCCESS(open) && !hasStarted) {
        ++opened;
        EXPECT_EQ(level, kUnsuccessful) << number;
      }
      installed.Close();
    });
  }
  EXPECT_GE(opened, 4);
}

}  // namespace
}  // namespace lidcam::compliance
