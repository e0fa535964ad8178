#pragma once

#include <span>
#include <string>

#include "apps/lidcam/frames/frame_log.h"

namespace lidcam::app {

/// Draws the exposure loop over time, 1200 pixels wide: light, luminance with its dead band,
/// exposure and index, gains, light states as coloured bands, and every event. The drawing depends
/// on nothing but its arguments.
///
/// @param rows   at least one, in ascending time
/// @return an SVG document
[[nodiscard]] std::string DrawLoopPlot(std::span<const FrameRow> rows, const std::string& title);

}  // namespace lidcam::app
