#pragma once

// A host in a world of its own, with the default camera plugged in and started.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>

#include "camera_model/bus_adapter/simulated_bus.h"
#include "testbed/installed_testbed.h"
#include "testbed/transport_testbed.h"
#include "testbed/worlds.h"

namespace lidcam::testbed {

inline void WithInstalledTestbed(const std::function<void(InstalledTestbed&)>& use,
                                 std::uint64_t seed = 1) {
  bus::SimulatedBus bus({});
  RunInVirtualTime({.Seed = seed}, [&] {
    InstalledTestbed camera(bus, {});
    ASSERT_EQ(camera.Start(), STATUS_SUCCESS);
    RunThenEnd([&] { use(camera); }, [&] { camera.Close(); });
  });
}

}  // namespace lidcam::testbed
