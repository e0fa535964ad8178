#pragma once

#include <gst/gst.h>

namespace lidcam::gstreamer {

/// The type of the device provider that lists the cameras which are plugged in, as they come and go, and the
/// simulated ones.
[[nodiscard]] GType CameraDevicesType();

}  // namespace lidcam::gstreamer
