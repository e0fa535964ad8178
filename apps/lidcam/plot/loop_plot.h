#pragma once

#include <span>
#include <string>

#include "apps/lidcam/frames/frame_log.h"

namespace lidcam::app {

enum class PlotForm { Svg, Png };

/// The exposure loop over time as a script for gnuplot that draws it, 1200 pixels wide: light, luminance with its
/// dead band, exposure and index, gains, light states as coloured bands, and every event. Until the loop's first
/// step, exposure and gains are those of the bring-up; a sensor without a loop has a note in their place. The script
/// depends on nothing but the arguments.
///
/// @param rows   at least one, in ascending time
/// @param title  any bytes; a long one takes several lines
[[nodiscard]] std::string LoopPlotScript(std::span<const FrameRow> rows, const std::string& title,
                                         PlotForm form = PlotForm::Svg);

}  // namespace lidcam::app
