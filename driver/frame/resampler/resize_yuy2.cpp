#include "driver/frame/resampler/image_resampler.h"
#include "driver/frame/resampler/jobs/scale_reference.h"
#include "driver/frame/resampler/resize_nearest.h"
#include "driver/frame/resampler/scale_kernels.h"
#include "driver/frame/resampler/yuy2_scale.h"

namespace lidcam {

ResizeStatus ResizeYuy2(const std::uint8_t* source, ImageSize sourceSize, std::int32_t sourceStep,
                        ImageRegion region, std::uint8_t* destination, std::int32_t destinationStep,
                        ImageSize destinationSize, double xFactor, double yFactor,
                        std::int32_t interpolation) {
  RequireLevelAtMost(DISPATCH_LEVEL);
  const ResizeArguments arguments{source,      sourceSize,      sourceStep,      region,
                                  destination, destinationStep, destinationSize, xFactor,
                                  yFactor,     interpolation};
  ImageSize output{};
  const ResizeStatus status = CheckYuy2(arguments, output);
  if (status != ResizeDone) return status;
  if (interpolation == InterpolationNearest || NeedsNearest(arguments)) {
    ScaleYuy2ByNearest(arguments, output);
    return ResizeDone;
  }
  const ScaleKernel& kernel = ChosenScaleKernel();
  const Yuy2Scale scale(arguments, output, kernel);
  const ScaleJob* const job = scale.Job();
  if (job == nullptr) return ResizeOutOfMemory;
  const ScaleFunction run = SuitsEveryKernel(*job) ? kernel.Scale : ScaleByReference;
  run(*job);
  return ResizeDone;
}

}  // namespace lidcam
