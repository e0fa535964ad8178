#pragma once

#include <gst/gst.h>

namespace lidcam::gstreamer {

/// Makes the element `lidcamsrc` and the device provider known.
///
/// @param plugin  null: to this program alone
[[nodiscard]] bool RegisterElements(GstPlugin* plugin);

}  // namespace lidcam::gstreamer
