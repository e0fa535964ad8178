#pragma once

#include <cstdint>

// The image's resampler for a program. The image's own headers include the platform's, which a program's headers
// contradict.

namespace lidcam::wine {

struct Conversion {
  std::int32_t SourceWidth;
  std::int32_t SourceHeight;
  std::int32_t Width;
  std::int32_t Height;
};

/// The kernels that this processor can run, slowest first.
[[nodiscard]] std::uint32_t CountKernels();
[[nodiscard]] const char* KernelName(std::uint32_t kernel);

/// The one that the image takes.
[[nodiscard]] const char* ChosenKernelName();

/// Scales packed YUY2; false without memory.
bool Scale(std::uint32_t kernel, const Conversion& conversion, const std::uint8_t* source,
           std::uint8_t* output);

}  // namespace lidcam::wine
