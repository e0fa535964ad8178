#pragma once

#include "driver/frame/resampler/jobs/aligned_memory.h"
#include "driver/frame/resampler/jobs/resize_arguments.h"
#include "driver/frame/resampler/jobs/scale_tables.h"
#include "driver/frame/resampler/scale_kernels.h"

namespace lidcam {

/// Checks the arguments of ResizeYuy2() and finds the output size in pixels.
/// @param output  set with ResizeDone only; an odd width's last pixel isn't written
ResizeStatus CheckYuy2(const ResizeArguments& arguments, ImageSize& output);

/// Whether the source is too small for a linear scale.
[[nodiscard]] bool NeedsNearest(const ResizeArguments& arguments);

/// A linear scale of packed YUY2, ready for a kernel. Owns the job's tables and the kernel's memory, one
/// block of the pool.
class Yuy2Scale {
 public:
  /// Takes checked arguments, the output size that CheckYuy2() found, and a supported kernel. The
  /// reference can run the job, too.
  Yuy2Scale(const ResizeArguments& arguments, ImageSize output, const ScaleKernel& kernel);

  /// Null when there was no memory for it.
  [[nodiscard]] const ScaleJob* Job() const;

 private:
  ScaleAxis axes_[3];
  AlignedMemory memory_;
  ScaleJob job_{};
};

/// Whether a job is regular: every pixel that is read lies whole within the source, and destination
/// rows lie apart from each other and from the source. Only the reference kernel takes other jobs.
[[nodiscard]] bool SuitsEveryKernel(const ScaleJob& job);

}  // namespace lidcam
