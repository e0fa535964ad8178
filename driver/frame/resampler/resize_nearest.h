#pragma once

#include "driver/frame/resampler/jobs/resize_arguments.h"

namespace lidcam {

/// Scale by nearest neighbour, for pictures too small to have neighbours to blend. Takes checked
/// arguments and the output size; needs no memory.
void ScaleYuy2ByNearest(const ResizeArguments& arguments, ImageSize output);
void ScaleRgb24ByNearest(const ResizeArguments& arguments, ImageSize output);

}  // namespace lidcam
