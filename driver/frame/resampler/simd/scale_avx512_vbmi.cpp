// 512-bit registers with byte shuffles across all 64 or 128 bytes of one or two of them. What shrinks
// too far for that goes to AVX2: on processors with these shuffles four loads for a register of 512
// bits take longer than four for two of 256.

#include "driver/frame/resampler/simd/scale_simd_avx512.h"
#include "driver/frame/resampler/simd/scale_simd_kernels.h"
#include "driver/frame/resampler/simd/scale_simd_shuffles.h"

namespace lidcam {
namespace {

constexpr __mmask64 kEveryByte = ~__mmask64{0};

struct AcrossLanes : Avx512Operations<AcrossLanes> {
  static Vector ShuffleWindow64(const std::uint8_t* window, Vector indices) {
    return _mm512_maskz_permutexvar_epi8(kEveryByte, indices, LoadBytes(window));
  }
  static Vector ShuffleWindow128(const std::uint8_t* window, Vector indices) {
    return _mm512_permutex2var_epi8(LoadBytes(window), indices, LoadBytes(window + kBytes));
  }
};

}  // namespace

void ScaleByAvx512Vbmi(const ScaleJob& job) {
  ScaleWithPlan(job, kWindowShape<AcrossLanes>, ScaleByWindows<AcrossLanes>, ScaleByAvx2);
}

}  // namespace lidcam
