#pragma once

#include <functional>
#include <string>

#include "bus/usb_bus.h"
#include "driver/core/record/camera_context.h"

namespace lidcam::app {

/// Plugs the camera in, lets its driver start the hardware, passes the camera's record to `use`,
/// and takes everything down in order, also if `use` throws. No application and no stream. Within a
/// world of the bus's time.
///
/// Throws CommandError if the device does not answer or the camera doesn't come up.
///
/// @param driverKey  where its settings are in the registry; empty: the key of its identity
void WithStartedCamera(bus::UsbBus& bus, const std::function<void(CameraContext& camera)>& use,
                       const std::u16string& driverKey = {});

}  // namespace lidcam::app
