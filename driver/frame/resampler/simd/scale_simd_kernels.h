#pragma once

#include "driver/frame/resampler/jobs/scale_job.h"

namespace lidcam {

// Each for processors that have the instructions, and for jobs whose reads stay within [ReadBegin, ReadEnd).

ResizeStatus ScaleBySse2(const ScaleJob& job);
ResizeStatus ScaleBySsse3(const ScaleJob& job);
ResizeStatus ScaleByAvx2(const ScaleJob& job);
ResizeStatus ScaleByAvx512(const ScaleJob& job);
ResizeStatus ScaleByAvx512Vbmi(const ScaleJob& job);

}  // namespace lidcam
