#pragma once

#include <gst/gst.h>

#include <string>

#include "library/lidcam.h"

namespace lidcam::gstreamer {

/// Posts an error of the library, in GStreamer's codes, with the field `lidcam-status` for programs.
///
/// @param text  names the input and the reason
void PostError(GstElement* element, lidcam_status status, const std::string& text);

/// Posts that the camera is gone: a warning for a person, and the element message `lidcam-unplugged`.
void PostUnplugged(GstElement* element, const std::string& text);

/// Posts the element message `lidcam-replugged`.
void PostReplugged(GstElement* element);

}  // namespace lidcam::gstreamer
