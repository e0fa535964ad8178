#pragma once

#include <string_view>

namespace lidcam::app {

/// loop_plot.gnuplot, which is built in, so that the program runs from anywhere.
extern const std::string_view kLoopPlotScript;

}  // namespace lidcam::app
