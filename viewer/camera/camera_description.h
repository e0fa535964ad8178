#pragma once

#include <string>

#include "library/session/camera_session.h"
#include "viewer/camera/camera_state.h"

namespace lidcam::viewer {

/// What is known of a camera that was never open.
[[nodiscard]] CameraState StateOf(const std::string& address);

/// Opens a camera and closes it again, to know what it is. Throws UsageError and CommandError.
[[nodiscard]] CameraState DescribeCamera(const app::SessionOptions& options);

/// What an open camera tells of itself.
void ReadFacts(app::CameraSession& session, CameraState& state);

}  // namespace lidcam::viewer
