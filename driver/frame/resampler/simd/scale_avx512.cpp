// 512-bit registers: four lanes, each with loads of its own.

#include "driver/frame/resampler/simd/scale_simd_avx512.h"
#include "driver/frame/resampler/simd/scale_simd_kernels.h"
#include "driver/frame/resampler/simd/scale_simd_shuffles.h"

namespace lidcam {
namespace {

struct InLanes {};

}  // namespace

void ScaleByAvx512(const ScaleJob& job) {
  ScaleWithPlan(job, kLaneShape<Avx512Operations<InLanes>>,
                ScaleByShuffles<Avx512Operations<InLanes>>, ScaleByAvx2);
}

}  // namespace lidcam
