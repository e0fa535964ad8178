#pragma once

#include <memory>
#include <optional>
#include <string>

#include "bus/faults/fault_script.h"
#include "camera_model/bus_adapter/simulated_bus.h"
#include "camera_model/device/camera_options.h"
#include "serve/device/camera_supply.h"

namespace lidcam::serve {

/// Simulated cameras for clients.
inline CameraSupply::Options Simulated(const std::string& camera = "sim",
                                       const std::optional<std::string>& faults = std::nullopt) {
  CameraSupply::Options options{.Plug = [camera] {
    return bus::MakeSimulatedBus(camera_model::ParseCameraOptions(camera),
                                 bus::Pacing::FreeRunning);
  }};
  if (faults) options.Faults = bus::ParseFaultScript(*faults);
  return options;
}

}  // namespace lidcam::serve
