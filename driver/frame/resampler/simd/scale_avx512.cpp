// 512-bit registers: four lanes, each with loads of its own.

#include "driver/frame/resampler/jobs/resize_arguments.h"
#include "driver/frame/resampler/simd/scale_simd_avx512.h"
#include "driver/frame/resampler/simd/scale_simd_columns.h"
#include "driver/frame/resampler/simd/scale_simd_kernels.h"
#include "driver/frame/resampler/simd/scale_simd_shuffles.h"

namespace lidcam {
namespace {

struct InLanes {};

/// Eight positions in a register.
struct Avx512Columns {
  static void EvenGroup(double first, double increment, std::int32_t* index,
                        std::uint16_t* weight) {
    const __m512d steps = _mm512_setr_pd(0, 1, 2, 3, 4, 5, 6, 7);
    Convert(_mm512_add_pd(_mm512_set1_pd(first), _mm512_mul_pd(_mm512_set1_pd(increment), steps)),
            index, weight);
  }

  static void Group(const double* positions, std::int32_t* index, std::uint16_t* weight) {
    Convert(_mm512_load_pd(positions), index, weight);
  }

 private:
  // All elements under a mask: g++ 12 warns of its own header for the forms without one.
  static constexpr __mmask8 kEvery = 0xFF;

  static __m256i Whole(__m512d positions) {
    return _mm512_maskz_cvttpd_epi32(kEvery,
                                     _mm512_add_pd(positions, _mm512_set1_pd(kPositionSlack)));
  }

  static void Convert(__m512d positions, std::int32_t* index, std::uint16_t* weight) {
    const __m256i whole = Whole(positions);
    const __m512d part = _mm512_sub_pd(positions, _mm512_maskz_cvtepi32_pd(kEvery, whole));
    const __m256i parts = Whole(_mm512_mul_pd(part, _mm512_set1_pd(kWeightOne)));
    _mm256_store_si256(reinterpret_cast<__m256i*>(index), whole);
    _mm_store_si128(reinterpret_cast<__m128i*>(weight), _mm256_maskz_cvtepi32_epi16(kEvery, parts));
  }
};

}  // namespace

void BuildColumnsByAvx512(double step, std::uint32_t entries, std::int32_t* index,
                          std::uint16_t* weight) {
  BuildColumnsInGroups<Avx512Columns>(step, entries, index, weight);
}

void ScaleByAvx512(const ScaleJob& job) {
  ScaleWithPlan(job, kLaneShape<Avx512Operations<InLanes>>,
                ScaleByShuffles<Avx512Operations<InLanes>>, ScaleByAvx2);
}

}  // namespace lidcam
