#pragma once

#include <cstdint>
#include <optional>

#include "driver/sensor/registers/register_access.h"

namespace lidcam::app {

/// Reads a register of a camera that may stream.
///
/// ReadBridgeRegister() never returns if it meets an access of the exposure control. This waits for the end of that access,
/// and then keeps the control's others off the bus; what the control writes meanwhile is lost until it writes it again, as
/// with any access of an application. The thread must be the one that has the application's requests to this camera.
/// @return nothing if the camera doesn't answer
[[nodiscard]] std::optional<std::uint8_t> ReadRegisterOfStream(CameraContext& camera, Chip chip,
                                                               RegisterAddress address);

}  // namespace lidcam::app
