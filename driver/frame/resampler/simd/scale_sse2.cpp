// 128-bit registers without byte shuffles: samples are loaded one by one as the four or eight bytes
// that hold both neighbours, so any distance between them will do.

#include <emmintrin.h>

#include "driver/frame/resampler/jobs/resize_arguments.h"
#include "driver/frame/resampler/jobs/scale_reference.h"
#include "driver/frame/resampler/simd/scale_simd_columns.h"
#include "driver/frame/resampler/simd/scale_simd_kernels.h"
#include "driver/frame/resampler/simd/scale_simd_plan.h"
#include "driver/frame/resampler/simd/scale_simd_rows.h"

namespace lidcam {
namespace {

constexpr std::size_t kBlockPairs = 2 * kLanePairs;
constexpr std::size_t kWeightsOfRegister = 16;

struct Sse2 {
  using Vector = __m128i;

  static constexpr std::size_t kSamples = 8;

  static Vector Load(const void* from) { return _mm_load_si128(static_cast<const Vector*>(from)); }
  static void Store(void* to, Vector value) { _mm_store_si128(static_cast<Vector*>(to), value); }
  static void StoreBytes(std::uint8_t* to, Vector value) {
    _mm_storeu_si128(reinterpret_cast<Vector*>(to), value);
  }
  static Vector Every(std::int16_t value) { return _mm_set1_epi16(value); }
  static Vector Add(Vector a, Vector b) { return _mm_add_epi16(a, b); }
  static Vector Subtract(Vector a, Vector b) { return _mm_sub_epi16(a, b); }
  static Vector MultiplyHigh(Vector a, Vector b) { return _mm_mulhi_epi16(a, b); }
  static Vector RoundToBytes(Vector samples) {
    return _mm_srli_epi16(_mm_add_epi16(samples, _mm_set1_epi16(32)), 6);
  }
};

__m128i LoadFour(const std::uint8_t* from) {
  return _mm_loadu_si32(from);
}

__m128i LoadEight(const std::uint8_t* from) {
  return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(from));
}

// The weights of a register's samples: left and right of four luma samples, then of U, V, U, V.
void FillWeights(const ScaleJob& job, std::size_t pair, std::uint16_t* weights) {
  const auto put = [&weights](std::uint16_t right) {
    *weights++ = static_cast<std::uint16_t>(kWeightOne - right);
    *weights++ = right;
  };
  for (std::size_t k = 0; k < 2 * kLanePairs; ++k) put(job.Luma.Weight[2 * pair + k]);
  for (std::size_t j = 0; j < kLanePairs; ++j) {
    put(job.Chroma.Weight[pair + j]);
    put(job.Chroma.Weight[pair + j]);
  }
}

/// Scales a row sample by sample.
class WordRows {
 public:
  static constexpr bool kBlendsShareTables = false;

  WordRows(const ScaleJob& job, const BlockRow& row, const std::uint16_t* weights)
      : luma_(job.Luma.Index), chroma_(job.Chroma.Index), row_(row), weights_(weights) {}

  [[nodiscard]] std::size_t PairOf(std::size_t v) const {
    return static_cast<std::size_t>(row_.Places[v / 2]) / 4 + v % 2 * kLanePairs;
  }

  template <bool more>
  [[nodiscard]] __m128i Scaled(const std::uint8_t* source, std::size_t v) const {
    const std::size_t pair = PairOf(v);
    const std::uint16_t* const weights = weights_ + v * kWeightsOfRegister;
    const __m128i rounding = _mm_set1_epi32(128);
    const __m128i luma =
        _mm_add_epi32(_mm_madd_epi16(LumaPairs(source, pair), Sse2::Load(weights)), rounding);
    const __m128i chroma =
        _mm_add_epi32(_mm_madd_epi16(ChromaPairs(source, pair), Sse2::Load(weights + 8)), rounding);
    const __m128i upperHalf = _mm_slli_epi32(_mm_srli_epi32(chroma, 8), 16);
    return _mm_or_si128(_mm_srli_epi32(luma, 8), upperHalf);
  }

  template <bool more>
  [[nodiscard]] TwoOf<Sse2> ScaledTwo(const std::uint8_t* first, const std::uint8_t* second,
                                      std::size_t v) const {
    return {Scaled<more>(first, v), Scaled<more>(second, v)};
  }

  static __m128i Pack(__m128i first, __m128i second) { return _mm_packus_epi16(first, second); }

 private:
  // Left and right sample as words, for four pixels.
  [[nodiscard]] __m128i LumaPairs(const std::uint8_t* source, std::size_t pair) const {
    const std::int32_t* const index = luma_ + 2 * pair;
    const auto load = [source](std::int32_t sample) {
      return LoadFour(source + 2 * std::ptrdiff_t{sample});
    };
    const __m128i pixels = _mm_unpacklo_epi64(_mm_unpacklo_epi32(load(index[0]), load(index[1])),
                                              _mm_unpacklo_epi32(load(index[2]), load(index[3])));
    return _mm_and_si128(pixels, _mm_set1_epi16(0xFF));
  }

  // Left and right sample as words, for U, V, U, V of two pairs.
  [[nodiscard]] __m128i ChromaPairs(const std::uint8_t* source, std::size_t pair) const {
    const std::int32_t* const index = chroma_ + pair;
    const __m128i pairs = _mm_unpacklo_epi64(LoadEight(source + 4 * std::ptrdiff_t{index[0]}),
                                             LoadEight(source + 4 * std::ptrdiff_t{index[1]}));
    constexpr int kMiddleSwapped = 0xD8;
    const __m128i samples = _mm_shufflelo_epi16(_mm_srli_epi16(pairs, 8), kMiddleSwapped);
    return _mm_shufflehi_epi16(samples, kMiddleSwapped);
  }

  const std::int32_t* luma_;
  const std::int32_t* chroma_;
  BlockRow row_;
  const std::uint16_t* weights_;
};

/// Two positions in a register.
struct Sse2Columns {
  static void EvenGroup(double first, double increment, std::int32_t* index,
                        std::uint16_t* weight) {
    const __m128d every = _mm_set1_pd(increment);
    const auto positions = [&](double from) {
      const __m128d steps = _mm_setr_pd(from, from + 1);
      return _mm_add_pd(_mm_set1_pd(first), _mm_mul_pd(every, steps));
    };
    Convert(positions(0), positions(2), positions(4), positions(6), index, weight);
  }

  static void Group(const double* positions, std::int32_t* index, std::uint16_t* weight) {
    Convert(_mm_load_pd(positions), _mm_load_pd(positions + 2), _mm_load_pd(positions + 4),
            _mm_load_pd(positions + 6), index, weight);
  }

 private:
  // In the lower half.
  static __m128i Whole(__m128d positions) {
    return _mm_cvttpd_epi32(_mm_add_pd(positions, _mm_set1_pd(kPositionSlack)));
  }
  static __m128i Part(__m128d positions, __m128i whole) {
    const __m128d part = _mm_sub_pd(positions, _mm_cvtepi32_pd(whole));
    return Whole(_mm_mul_pd(part, _mm_set1_pd(kWeightOne)));
  }

  static void Convert(__m128d a, __m128d b, __m128d c, __m128d d, std::int32_t* index,
                      std::uint16_t* weight) {
    const __m128i wholeA = Whole(a);
    const __m128i wholeB = Whole(b);
    const __m128i wholeC = Whole(c);
    const __m128i wholeD = Whole(d);
    Sse2::Store(index, _mm_unpacklo_epi64(wholeA, wholeB));
    Sse2::Store(index + 4, _mm_unpacklo_epi64(wholeC, wholeD));
    Sse2::Store(weight, _mm_packs_epi32(_mm_unpacklo_epi64(Part(a, wholeA), Part(b, wholeB)),
                                        _mm_unpacklo_epi64(Part(c, wholeC), Part(d, wholeD))));
  }
};

}  // namespace

void BuildColumnsBySse2(double step, std::uint32_t entries, std::int32_t* index,
                        std::uint16_t* weight) {
  BuildColumnsInGroups<Sse2Columns>(step, entries, index, weight);
}

void ScaleBySse2(const ScaleJob& job) {
  if (IsPlainCopy(job)) {
    CopyPicture(job);
    return;
  }
  const std::size_t pairs = job.Chroma.Count;
  const std::size_t blocks = BlocksOf(pairs, kBlockPairs);
  if (blocks == 0) {
    ScaleByReference(job);
    return;
  }
  const std::size_t samples = 2 * blocks * Sse2::kSamples;
  const std::size_t weights = 2 * blocks * kWeightsOfRegister;
  auto* const line = reinterpret_cast<std::int16_t*>(job.Work);
  std::int16_t* const lines[kLines] = {line, line + samples, line + 2 * samples};
  auto* const table = reinterpret_cast<std::uint16_t*>(line + kLines * samples);
  auto* const places = reinterpret_cast<std::int32_t*>(table + weights);
  for (std::size_t block = 0; block < blocks; ++block) {
    places[block] = static_cast<std::int32_t>(4 * BlockStart(block, pairs, kBlockPairs));
  }
  const BlockRow row{.Blocks = blocks, .OneLoadBlocks = blocks, .Places = places};
  const WordRows rows(job, row, table);
  for (std::size_t v = 0; v < 2 * blocks; ++v) {
    FillWeights(job, rows.PairOf(v), table + v * kWeightsOfRegister);
  }
  PictureScaler<Sse2, WordRows>(job, rows, row, lines).Run();
}

}  // namespace lidcam
