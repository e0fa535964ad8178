#pragma once

#include <optional>
#include <string>

#include "library/camera/source/camera_source.h"
#include "serve/device/camera_supply.h"

namespace lidcam::app {

/// Cameras for remote clients: each gets its own, whose bus time advances with its requests.
///
/// @param faults  script, file or seed of the faults on the bus of each
/// Throws as OpenCamera() does, UsageError for a script that can't be read and for a capture that can be
/// read only once, and CommandError for a camera that does not enumerate.
[[nodiscard]] serve::CameraSupply::Options ServedCameras(const CameraChoice& choice,
                                                         const std::optional<std::string>& faults);

}  // namespace lidcam::app
