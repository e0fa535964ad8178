#pragma once

#include "driver/frame/resampler/jobs/scale_job.h"

namespace lidcam {

/// The reference for all kernels, on every machine and for every job: reads are clamped to
/// [ReadBegin, ReadEnd).
void ScaleByReference(const ScaleJob& job);

/// Its ScaleJob::Work: two line buffers. No kernel has less.
[[nodiscard]] std::uint64_t ReferenceWorkBytes(std::uint32_t pairs);

}  // namespace lidcam
