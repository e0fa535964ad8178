#pragma once

#include <cstddef>
#include <span>

#include "driver/frame/resampler/jobs/scale_job.h"
#include "driver/frame/resampler/jobs/scale_tables.h"

namespace lidcam {

/// One way of scaling. All give the same bytes for every job that they can take.
struct ScaleKernel {
  const char* Name;       ///< "reference", "SSE2", "SSSE3", "AVX2", "AVX-512", "AVX-512 VBMI"
  bool (*IsSupported)();  ///< whether this processor and system can run it
  ScaleFunction Scale;
  WorkBytesFunction WorkBytes;
  ColumnBuilder BuildColumns;
};

/// Every kernel of this build, slowest first; the first is the reference, which every machine runs
/// and which alone is fit for jobs whose reads have to be clamped to [ReadBegin, ReadEnd).
[[nodiscard]] std::span<const ScaleKernel> ScaleKernels();

/// The fastest supported kernel. Queries the processor once.
[[nodiscard]] const ScaleKernel& ChosenScaleKernel();

#ifndef _KERNEL_MODE
/// From now on the fastest supported one of the first `count` kernels is chosen; at least 1. The plans of the kernels
/// take different memory: a comparison with a build that has fewer of them needs the same choice.
void LimitScaleKernels(std::size_t count);
#endif

}  // namespace lidcam
