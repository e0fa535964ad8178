#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"
#include "platform/kernel.h"

namespace lidcam {

/// Identifies the sensor behind the bridge and stores it in `SensorType`, which must hold
/// SensorTypeVGA0408 on entry and keeps it when nothing is found.
///
/// The USB identity selects the method; for some identities the sensor's identity registers decide.
/// Cannot fail: a read that fails takes the path of a sensor that does not match. The findings go
/// to the debug output.
///
/// @param deviceDescriptor  as the device sent it; idVendor (offset 8) and idProduct (offset 10)
///                          are used
_IRQL_requires_max_(PASSIVE_LEVEL)
void IdentifySensor(CameraContext& context, const std::uint8_t* deviceDescriptor);

}  // namespace lidcam
