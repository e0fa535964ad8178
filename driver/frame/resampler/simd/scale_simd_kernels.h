#pragma once

#include "driver/frame/resampler/jobs/scale_job.h"

namespace lidcam {

// Each for processors that have the instructions, and for jobs whose reads stay within [ReadBegin, ReadEnd).

void ScaleBySse2(const ScaleJob& job);
void ScaleBySsse3(const ScaleJob& job);
void ScaleByAvx2(const ScaleJob& job);
void ScaleByAvx512(const ScaleJob& job);
void ScaleByAvx512Vbmi(const ScaleJob& job);

}  // namespace lidcam
