#include "driver/frame/resampler/image_resampler.h"

#include "driver/frame/resampler/jobs/cpu_features.h"
#include "driver/frame/resampler/resample_frame.h"
#include "platform/kernel.h"

namespace lidcam {

// Nothing here may use the floating-point registers: they belong to the thread until they are saved.
std::uint32_t ResampleFrame(std::uint8_t* destination, const std::uint8_t* source,
                            std::int32_t sourceWidth, std::int32_t sourceHeight,
                            std::int32_t destinationWidth, std::int32_t destinationHeight,
                            std::uint32_t yuy2) {
  if (source == nullptr || destination == nullptr) return 0;
  if (!CpuHasDoubles()) return 0;
  KFLOATING_SAVE threadState;
  if (!NT_SUCCESS(KeSaveFloatingPointState(&threadState))) return 0;
  const ResizeStatus status = ResampleWithFloatingPoint(
      destination, source, sourceWidth, sourceHeight, destinationWidth, destinationHeight, yuy2);
  KeRestoreFloatingPointState(&threadState);
  return status == ResizeDone ? 1 : 0;
}

}  // namespace lidcam
