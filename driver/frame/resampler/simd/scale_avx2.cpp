// 256-bit registers: two lanes, each with loads of its own.

#include <immintrin.h>

#include "driver/frame/resampler/jobs/resize_arguments.h"
#include "driver/frame/resampler/simd/scale_simd_columns.h"
#include "driver/frame/resampler/simd/scale_simd_kernels.h"
#include "driver/frame/resampler/simd/scale_simd_shuffles.h"

namespace lidcam {
namespace {

struct Avx2 {
  using Vector = __m256i;

  static constexpr std::size_t kLanes = 2;
  static constexpr std::size_t kBytes = 32;
  static constexpr std::size_t kSamples = 16;
  static constexpr bool kBlendsShareTables = true;

  static Vector Load(const void* from) {
    return _mm256_load_si256(static_cast<const Vector*>(from));
  }
  /// Load() into a register that is kept: the compiler would rather read a table again for each use.
  static Vector LoadOnce(const void* from) {
    Vector value = Load(from);
    __asm__("" : "+x"(value));
    return value;
  }
  static void Store(void* to, Vector value) { _mm256_store_si256(static_cast<Vector*>(to), value); }
  static Vector LoadBytes(const std::uint8_t* from) {
    return _mm256_loadu_si256(reinterpret_cast<const Vector*>(from));
  }
  static void StoreBytes(std::uint8_t* to, Vector value) {
    _mm256_storeu_si256(reinterpret_cast<Vector*>(to), value);
  }
  static Vector LoadLanes(const std::uint8_t* source, const std::int32_t* offsets) {
    const Vector low = _mm256_castsi128_si256(LoadLane(source + offsets[0]));
    return _mm256_inserti128_si256(low, LoadLane(source + offsets[1]), 1);
  }

  static Vector Every(std::int16_t value) { return _mm256_set1_epi16(value); }
  static Vector EveryPair(std::int8_t even, std::int8_t odd) {
    return _mm256_set1_epi16(static_cast<std::int16_t>(odd * 256 + even));
  }
  static Vector HalvingShuffle() {
    return _mm256_broadcastsi128_si256(
        _mm_setr_epi8(0, 2, 1, 5, 4, 6, 3, 7, 8, 10, 9, 13, 12, 14, 11, 15));
  }

  static Vector Shuffle(Vector bytes, Vector indices) {
    return _mm256_shuffle_epi8(bytes, indices);
  }
  static Vector Or(Vector a, Vector b) { return _mm256_or_si256(a, b); }
  static Vector Add(Vector a, Vector b) { return _mm256_add_epi16(a, b); }
  static Vector Subtract(Vector a, Vector b) { return _mm256_sub_epi16(a, b); }
  static Vector SumOfPairs(Vector bytes, Vector factors) {
    return _mm256_maddubs_epi16(bytes, factors);
  }
  static Vector MultiplyHigh(Vector a, Vector b) { return _mm256_mulhi_epi16(a, b); }
  static Vector MultiplyRound(Vector a, Vector b) { return _mm256_mulhrs_epi16(a, b); }
  static Vector RoundToBytes(Vector samples) {
    return _mm256_mulhrs_epi16(samples, _mm256_set1_epi16(512));
  }
  static Vector PackAlternating(Vector first, Vector second) {
    return _mm256_packus_epi16(first, second);
  }
  static Vector PackInOrder(Vector first, Vector second) {
    return _mm256_permute4x64_epi64(_mm256_packus_epi16(first, second), 0xD8);
  }

 private:
  static __m128i LoadLane(const std::uint8_t* from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
  }
};

/// Four positions in a register.
struct Avx2Columns {
  static void EvenGroup(double first, double increment, std::int32_t* index,
                        std::uint16_t* weight) {
    const __m256d from = _mm256_set1_pd(first);
    const __m256d every = _mm256_set1_pd(increment);
    Convert(_mm256_add_pd(from, _mm256_mul_pd(every, _mm256_setr_pd(0, 1, 2, 3))),
            _mm256_add_pd(from, _mm256_mul_pd(every, _mm256_setr_pd(4, 5, 6, 7))), index, weight);
  }

  static void Group(const double* positions, std::int32_t* index, std::uint16_t* weight) {
    Convert(_mm256_load_pd(positions), _mm256_load_pd(positions + 4), index, weight);
  }

 private:
  static __m128i Whole(__m256d positions) {
    return _mm256_cvttpd_epi32(_mm256_add_pd(positions, _mm256_set1_pd(kPositionSlack)));
  }
  static __m128i Part(__m256d positions, __m128i whole) {
    const __m256d part = _mm256_sub_pd(positions, _mm256_cvtepi32_pd(whole));
    return Whole(_mm256_mul_pd(part, _mm256_set1_pd(kWeightOne)));
  }
  static void StoreLane(void* to, __m128i value) {
    _mm_store_si128(static_cast<__m128i*>(to), value);
  }

  static void Convert(__m256d a, __m256d b, std::int32_t* index, std::uint16_t* weight) {
    const __m128i wholeA = Whole(a);
    const __m128i wholeB = Whole(b);
    StoreLane(index, wholeA);
    StoreLane(index + 4, wholeB);
    StoreLane(weight, _mm_packs_epi32(Part(a, wholeA), Part(b, wholeB)));
  }
};

}  // namespace

void BuildColumnsByAvx2(double step, std::uint32_t entries, std::int32_t* index,
                        std::uint16_t* weight) {
  BuildColumnsInGroups<Avx2Columns>(step, entries, index, weight);
}

void ScaleByAvx2(const ScaleJob& job) {
  ScaleWithPlan(job, kLaneShape<Avx2>, ScaleByShuffles<Avx2>, ScaleBySsse3);
}

}  // namespace lidcam
