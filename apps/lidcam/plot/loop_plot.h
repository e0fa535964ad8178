#pragma once

#include <span>
#include <string>

#include "apps/lidcam/frames/frame_log.h"

namespace lidcam::app {

/// The exposure loop over time as a script for gnuplot that draws it as SVG, 1200 pixels wide: light,
/// luminance with its dead band, exposure and index, gains, light states as coloured bands, and every event.
/// The script depends on nothing but the arguments.
///
/// @param rows   at least one, in ascending time
/// @param title  any bytes
[[nodiscard]] std::string LoopPlotScript(std::span<const FrameRow> rows, const std::string& title);

}  // namespace lidcam::app
