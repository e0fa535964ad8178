#pragma once

#include <string>
#include <vector>

#include "integrations/camera/camera_description.h"
#include "library/lidcam.h"

namespace lidcam::integrations {

/// Opens a camera. @return as lidcam_open()
[[nodiscard]] lidcam_status OpenCamera(const CameraAddress& address, const std::string& text,
                                       lidcam_camera** camera);

/// The controls and their values; empty if the camera is gone.
[[nodiscard]] std::vector<CameraControl> ReadCameraControls(lidcam_camera* camera);

}  // namespace lidcam::integrations
