#pragma once

#include "driver/frame/resampler/jobs/scale_job.h"

namespace lidcam {

/// The reference for all kernels, on every machine and for every job: reads are clamped to
/// [ReadBegin, ReadEnd).
ResizeStatus ScaleByReference(const ScaleJob& job);

}  // namespace lidcam
