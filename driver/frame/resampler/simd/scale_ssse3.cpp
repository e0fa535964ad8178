// 128-bit registers with byte shuffles.

#include <tmmintrin.h>

#include "driver/frame/resampler/simd/scale_simd_kernels.h"
#include "driver/frame/resampler/simd/scale_simd_shuffles.h"

namespace lidcam {
namespace {

struct Ssse3 {
  using Vector = __m128i;

  static constexpr std::size_t kLanes = 1;
  static constexpr std::size_t kBytes = 16;
  static constexpr std::size_t kSamples = 8;
  static constexpr bool kBlendsShareTables = false;

  static Vector Load(const void* from) { return _mm_load_si128(static_cast<const Vector*>(from)); }
  /// Load() into a register that is kept: the compiler would rather read a table again for each use.
  static Vector LoadOnce(const void* from) {
    Vector value = Load(from);
    __asm__("" : "+x"(value));
    return value;
  }
  static void Store(void* to, Vector value) { _mm_store_si128(static_cast<Vector*>(to), value); }
  static Vector LoadBytes(const std::uint8_t* from) {
    return _mm_loadu_si128(reinterpret_cast<const Vector*>(from));
  }
  static void StoreBytes(std::uint8_t* to, Vector value) {
    _mm_storeu_si128(reinterpret_cast<Vector*>(to), value);
  }
  static Vector LoadLanes(const std::uint8_t* source, const std::int32_t* offsets) {
    return LoadBytes(source + offsets[0]);
  }

  static Vector Every(std::int16_t value) { return _mm_set1_epi16(value); }
  static Vector EveryPair(std::int8_t even, std::int8_t odd) {
    return _mm_set1_epi16(static_cast<std::int16_t>(odd * 256 + even));
  }
  static Vector HalvingShuffle() {
    return _mm_setr_epi8(0, 2, 1, 5, 4, 6, 3, 7, 8, 10, 9, 13, 12, 14, 11, 15);
  }

  static Vector Shuffle(Vector bytes, Vector indices) { return _mm_shuffle_epi8(bytes, indices); }
  static Vector Or(Vector a, Vector b) { return _mm_or_si128(a, b); }
  static Vector Add(Vector a, Vector b) { return _mm_add_epi16(a, b); }
  static Vector Subtract(Vector a, Vector b) { return _mm_sub_epi16(a, b); }
  static Vector SumOfPairs(Vector bytes, Vector factors) {
    return _mm_maddubs_epi16(bytes, factors);
  }
  static Vector MultiplyHigh(Vector a, Vector b) { return _mm_mulhi_epi16(a, b); }
  static Vector MultiplyRound(Vector a, Vector b) { return _mm_mulhrs_epi16(a, b); }
  static Vector RoundToBytes(Vector samples) {
    return _mm_mulhrs_epi16(samples, _mm_set1_epi16(512));
  }
  static Vector PackAlternating(Vector first, Vector second) {
    return _mm_packus_epi16(first, second);
  }
  static Vector PackInOrder(Vector first, Vector second) { return _mm_packus_epi16(first, second); }
};

}  // namespace

void ScaleBySsse3(const ScaleJob& job) {
  ScaleWithPlan(job, kLaneShape<Ssse3>, ScaleByShuffles<Ssse3>, ScaleBySse2);
}

}  // namespace lidcam
