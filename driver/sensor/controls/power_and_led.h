#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"
#include "driver/sensor/registers/register_access.h"
#include "platform/kernel.h"

namespace lidcam {

// BridgeRegister::PowerAndLed carries the sensor's power bits and the LED. On SensorTypeVGA0708 this
// group reads the register and never writes it.

/// Values of the power bits: the sensor runs with bit 0 clear and bit 1 set, and rests with both
/// set.
enum class SensorPower : std::uint32_t { Rest = 0, Run = 1 };
enum class LedState : std::uint32_t { Off = 0, On = 1 };

/// Whether PowerAndLed() writes the power bits.
enum class PowerBits : std::uint32_t { Leave = 0, Write = 1 };
/// Whether PowerAndLed() writes the LED bit.
enum class LedBit : std::uint32_t { Leave = 0, Write = 1 };

enum class CameraPower : std::uint32_t { Up = 0, Down = 1 };

/// Whether a stream starts: its register list is then applied again.
enum class StreamStart : std::uint32_t { No = 0, Yes = 1 };
/// Whether LDMode was just changed.
enum class LDModeChange : std::uint32_t { No = 0, Yes = 1 };

/// Sets the power bits. Ends without a write if the read fails.
/// @par It uses the waiting primitives
_IRQL_requires_max_(PASSIVE_LEVEL)
void SetPowerBits(CameraContext& context, SensorPower power);

/// Switches the LED bit. Ends without a write if the read fails.
/// @return the status of the last register operation
Status SetLedBitByPath(CameraContext& context, LedState led, RegisterPath path);

/// Runs SetPowerBits() and SetLedBitByPath(), each only if requested.
/// @param path  of the LED bit; the power bits take the application path
void PowerAndLed(CameraContext& context, PowerBits powerBits, SensorPower power, LedBit ledBit,
                 LedState led, RegisterPath path);

/// Powers the sensor up, or down with the LED off.
void SetCameraPower(CameraContext& context, CameraPower power);

/// Applies the register list and the LED bit that result from LDMode, LED and the light state.
///
/// @return 0 always
_IRQL_requires_max_(PASSIVE_LEVEL)
Status ApplyLightAndLed(CameraContext& context, StreamStart streamStart, LDModeChange ldModeChange);

}  // namespace lidcam
