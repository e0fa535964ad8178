#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "camera_model/device/camera_options.h"
#include "driver/core/record/camera_context.h"
#include "library/base/units.h"

namespace lidcam::app {

/// What a user sees in the pictures of a sensor whose raw frames have other lines than their size says:
/// the strip below the last line that it sends, or the cut at the bottom. Empty for a sensor that sends
/// the lines that its size has.
///
/// @param raw       what the frames are taken for
/// @param rawBytes  of a raw frame of the sensor, with header and closing bytes; 0 if unknown
[[nodiscard]] std::string PictureNote(std::int32_t sensorType, PictureSize raw,
                                      std::uint32_t rawBytes);

/// PictureNote() of the format that the camera's record holds.
[[nodiscard]] std::string PictureNoteOf(const CameraContext& context);

/// Why a camera that is taken for one with this sensor can't be streamed; empty if it can.
[[nodiscard]] std::string StreamObstacle(std::int32_t sensorType);

/// Why no camera of an identity can be streamed, whatever its sensor; empty if there is no such reason.
[[nodiscard]] std::string StreamObstacleOf(std::uint16_t vendor, std::uint16_t product);

/// Why a simulated camera can't be streamed; empty if it can. Brings the camera up, in a world of its
/// own.
[[nodiscard]] std::string StreamObstacle(const camera_model::CameraOptions& options);

}  // namespace lidcam::app
