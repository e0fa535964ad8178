#pragma once

#include "driver/frame/resampler/jobs/scale_job.h"

namespace lidcam {

/// The kernel with shuffles across lanes, for processors that have all of its operations but these
/// shuffles: they are done byte by byte.
/// @param unfit  takes the jobs that the kernel passes on
void ScaleByBytewiseWindows(const ScaleJob& job, ScaleFunction unfit);

}  // namespace lidcam
