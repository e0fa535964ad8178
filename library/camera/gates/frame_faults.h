#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "bus/faults/fault_script.h"
#include "camera_model/bus_adapter/simulated_bus.h"

namespace lidcam::app {

/// The faults of an option's value: a script, a file with one, or seed=N.
///
/// @param duration  bus time over which a seed's faults are spread
/// Throws UsageError for a value that can't be read.
[[nodiscard]] bus::FaultScript FaultsOfOption(const std::string& value,
                                              std::chrono::microseconds duration);

/// Throws UsageError if a script has faults of frames, which only a simulated camera can carry out.
void RefuseFrameFaults(const bus::FaultScript& script);

/// Has a simulated camera carry out a script's faults of frames; the others are left to a FaultBus.
///
/// @return the camera, null if the script has no such faults
/// Throws UsageError if it has some and `bus` is no simulated camera.
bus::SimulatedBus* DisturbFrames(bus::UsbBus& bus, const bus::FaultScript& script,
                                 std::function<void(const std::string& line)> observer = {});

}  // namespace lidcam::app
