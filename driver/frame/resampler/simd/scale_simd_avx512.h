#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

namespace lidcam {

/// Operations of 512-bit registers: four lanes. `Unit` is a local type of the source file, so that
/// files built for different processors never share a function.
template <typename Unit>
struct Avx512Operations {
  using Vector = __m512i;

  static constexpr std::size_t kLanes = 4;
  static constexpr std::size_t kBytes = 64;
  static constexpr std::size_t kSamples = 32;
  static constexpr bool kBlendsShareTables = false;

  static Vector Load(const void* from) { return _mm512_load_si512(from); }
  /// Load() into a register that is kept: the compiler would rather read a table again for each use.
  static Vector LoadOnce(const void* from) {
    Vector value = Load(from);
    __asm__("" : "+v"(value));
    return value;
  }
  static void Store(void* to, Vector value) { _mm512_store_si512(to, value); }
  static Vector LoadBytes(const std::uint8_t* from) { return _mm512_loadu_si512(from); }
  static void StoreBytes(std::uint8_t* to, Vector value) { _mm512_storeu_si512(to, value); }

  // Loads under a mask go to their lane without a shuffle.
  static Vector LoadLanes(const std::uint8_t* source, const std::int32_t* offsets) {
    constexpr __mmask16 kThirdLane = 0x0F00;
    constexpr __mmask16 kFourthLane = 0xF000;
    const __m256i low = _mm256_inserti128_si256(
        _mm256_castsi128_si256(LoadLane(source + offsets[0])), LoadLane(source + offsets[1]), 1);
    const Vector three = _mm512_mask_broadcast_i32x4(_mm512_castsi256_si512(low), kThirdLane,
                                                     LoadLane(source + offsets[2]));
    return _mm512_mask_broadcast_i32x4(three, kFourthLane, LoadLane(source + offsets[3]));
  }

  static Vector Every(std::int16_t value) { return _mm512_set1_epi16(value); }
  static Vector EveryPair(std::int8_t even, std::int8_t odd) {
    return _mm512_set1_epi16(static_cast<std::int16_t>(odd * 256 + even));
  }
  static Vector HalvingShuffle() {
    return _mm512_maskz_broadcast_i32x4(
        0xFFFF, _mm_setr_epi8(0, 2, 1, 5, 4, 6, 3, 7, 8, 10, 9, 13, 12, 14, 11, 15));
  }

  static Vector Shuffle(Vector bytes, Vector indices) {
    return _mm512_shuffle_epi8(bytes, indices);
  }
  static Vector Or(Vector a, Vector b) { return _mm512_or_si512(a, b); }
  static Vector Add(Vector a, Vector b) { return _mm512_add_epi16(a, b); }
  static Vector Subtract(Vector a, Vector b) { return _mm512_sub_epi16(a, b); }
  static Vector SumOfPairs(Vector bytes, Vector factors) {
    return _mm512_maddubs_epi16(bytes, factors);
  }
  static Vector MultiplyHigh(Vector a, Vector b) { return _mm512_mulhi_epi16(a, b); }
  static Vector MultiplyRound(Vector a, Vector b) { return _mm512_mulhrs_epi16(a, b); }
  static Vector RoundToBytes(Vector samples) {
    return _mm512_mulhrs_epi16(samples, _mm512_set1_epi16(512));
  }
  static Vector PackAlternating(Vector first, Vector second) {
    return _mm512_packus_epi16(first, second);
  }
  static Vector PackInOrder(Vector first, Vector second) {
    const Vector order = _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7);
    // All elements under a mask: g++ 12 warns of its own header for the form without one.
    return _mm512_maskz_permutexvar_epi64(0xFF, order, _mm512_packus_epi16(first, second));
  }

 private:
  static __m128i LoadLane(const std::uint8_t* from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
  }
};

}  // namespace lidcam
