#pragma once

#include <gst/gst.h>

namespace lidcam::gstreamer {

/// The type of the element `lidcamsrc`: a live source of a camera's frames.
///
/// The camera is open from READY on. It runs, and its light is on, in PLAYING only.
[[nodiscard]] GType CameraSourceType();

}  // namespace lidcam::gstreamer
