#pragma once

#include <gst/gst.h>

#include <string>
#include <vector>

namespace lidcam::gstreamer {

/// The type of the element `lidcamsrc`: a live source of a camera's frames.
///
/// The camera is open from READY on. It runs, and its light is on, in PLAYING only.
[[nodiscard]] GType CameraSourceType();

/// Says who sees the frames of an element `lidcamsrc`, for `lidcam status`: also of cameras that it opens later. Any
/// thread.
void SetViewers(GstElement* source, std::vector<std::string> viewers);

}  // namespace lidcam::gstreamer
