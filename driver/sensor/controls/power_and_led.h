#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"

namespace lidcam {

// Bridge register 0xFF09 carries the sensor's power bits and the LED. On SensorTypeVGA0708 this
// group reads the register and never writes it.

/// Sets the power bits: the sensor runs with bit 0 clear and bit 1 set, and rests with both set.
/// Stops without a write if the read fails.
/// @param run  nonzero in its low byte: the sensor shall run
/// @par Callable at passive level only: it takes the waiting primitives
void SetPowerBits(CameraContext& context, std::uint32_t run);

/// Switches the LED bit. Stops without a write if the read fails.
/// @param applicationPath  nonzero: the waiting primitives, else the refusing ones
/// @return the status of the last register operation
Status SetLedBitByPath(CameraContext& context, std::uint32_t on, std::uint32_t applicationPath);

/// Runs SetPowerBits() and SetLedBitByPath(), each only if asked for.
void PowerAndLed(CameraContext& context, std::uint32_t doPower, std::uint32_t run,
                 std::uint32_t doLed, std::uint32_t on, std::uint32_t applicationPath);

/// Powers the sensor up (`stop` 0), or down with the LED off.
void SetCameraPower(CameraContext& context, std::uint32_t stop);

/// Applies the register list and the LED bit that LDMode, LED and the light state ask for.
///
/// @param streamStart    nonzero: a stream starts; the list is applied anew
/// @param ldModeChanged  nonzero: LDMode was just changed
/// @return 0 always
/// @par Callable at passive level only
Status ApplyLightAndLed(CameraContext& context, std::uint32_t streamStart,
                        std::uint32_t ldModeChanged);

}  // namespace lidcam
