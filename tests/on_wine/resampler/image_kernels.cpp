#include "tests/on_wine/resampler/image_kernels.h"

#include "driver/frame/resampler/scale_kernels.h"
#include "driver/frame/resampler/yuy2_scale.h"

namespace lidcam::wine {
namespace {

const ScaleKernel* Supported(std::uint32_t wanted) {
  for (const ScaleKernel& kernel : ScaleKernels()) {
    if (kernel.IsSupported() && wanted-- == 0) return &kernel;
  }
  return nullptr;
}

}  // namespace

std::uint32_t CountKernels() {
  std::uint32_t count = 0;
  while (Supported(count) != nullptr) ++count;
  return count;
}

const char* KernelName(std::uint32_t kernel) {
  return Supported(kernel)->Name;
}

const char* ChosenKernelName() {
  return ChosenScaleKernel().Name;
}

bool Scale(std::uint32_t kernel, const Conversion& conversion, const std::uint8_t* source,
           std::uint8_t* output) {
  constexpr std::int32_t kPixelBytes = 2;
  const ImageSize sourceSize{conversion.SourceWidth, conversion.SourceHeight};
  const ImageSize wanted{conversion.Width, conversion.Height};
  const ResizeArguments arguments{source,
                                  sourceSize,
                                  sourceSize.Width * kPixelBytes,
                                  {0, 0, sourceSize.Width, sourceSize.Height},
                                  output,
                                  wanted.Width * kPixelBytes,
                                  wanted,
                                  static_cast<double>(wanted.Width) / sourceSize.Width,
                                  static_cast<double>(wanted.Height) / sourceSize.Height,
                                  InterpolationLinear};
  ImageSize size{};
  if (CheckYuy2(arguments, size) != ResizeDone) return false;
  const ScaleKernel& chosen = *Supported(kernel);
  const Yuy2Scale scale(arguments, size, chosen);
  if (scale.Job() == nullptr) return false;
  chosen.Scale(*scale.Job());
  return true;
}

}  // namespace lidcam::wine
