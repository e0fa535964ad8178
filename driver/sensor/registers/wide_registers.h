#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"

namespace lidcam {

/// Writes a 16-bit sensor register of SensorTypeK82 or SensorTypeMi1318: the low byte goes to the
/// bridge's latch 0xFF7F, the sensor write of the high byte then sends both.
///
/// @return the status of the second write
Status WriteWideSensorRegister(CameraContext& context, RegisterAddress address,
                               std::uint16_t value);

/// Selects the page of the 16-bit registers of SensorTypeK82 and SensorTypeMi1318.
///
/// The two have different page registers; the page is a wide write like any other.
/// @return the status of the second write
Status SelectSensorPage(CameraContext& context, std::uint16_t page);

/// Reads a 16-bit sensor register as its two bytes: the register gives the high one, sensor
/// register 0xFFF1 then the low one of what was just read.
///
/// @param high,low  each keeps what it held if its read fails
/// @return the status of the second read
Status ReadWideSensorRegister(CameraContext& context, RegisterAddress address, std::uint8_t& high,
                              std::uint8_t& low);

}  // namespace lidcam
