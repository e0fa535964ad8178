#include "driver/frame/resampler/simd/scale_simd_plan.h"

#include <emmintrin.h>

#include <cstring>

#include "driver/frame/resampler/jobs/aligned_memory.h"

namespace lidcam {
namespace {

constexpr std::int32_t kLoadBytes = 16;
constexpr std::int32_t kSmallWindow = 64;
constexpr std::int32_t kLargeWindow = 128;
constexpr std::size_t kPairBytes = 4;
constexpr char kNothing = -128;  // a shuffle index that gives 0

// Source bytes from First to before End.
struct Span {
  std::int32_t First;
  std::int32_t End;

  [[nodiscard]] bool FitsIn(std::int32_t bytes) const { return End - First <= bytes; }
};

std::size_t BlockPairs(const SimdShape& shape) {
  return 2 * shape.Lanes * kLanePairs;
}

// Bytes that can be read from the start of every row that is needed.
std::int32_t ReadableBytes(const ScaleJob& job) {
  const std::ptrdiff_t lastRow = std::ptrdiff_t{job.Rows.Index[job.Rows.Count - 1]} + 1;
  const std::ptrdiff_t bytes = job.ReadEnd - (job.Source + lastRow * job.SourceStep);
  return bytes < INT32_MAX ? static_cast<std::int32_t>(bytes) : INT32_MAX;
}

// The columns of a job, handed on by value: the compiler then knows that filling a table doesn't
// move them.
struct Columns {
  const std::int32_t* Luma;
  const std::int32_t* Chroma;
  const std::uint16_t* LumaWeight;
  const std::uint16_t* ChromaWeight;
};

Span SpanOfPairs(Columns columns, std::size_t firstPair, std::size_t lastPair) {
  const std::int32_t firstLuma = 2 * columns.Luma[2 * firstPair];
  const std::int32_t firstChroma = 4 * columns.Chroma[firstPair] + 1;
  const std::int32_t lumaEnd = 2 * columns.Luma[2 * lastPair + 1] + 3;
  const std::int32_t chromaEnd = 4 * columns.Chroma[lastPair] + 8;
  return {firstLuma < firstChroma ? firstLuma : firstChroma,
          lumaEnd > chromaEnd ? lumaEnd : chromaEnd};
}

// The byte pairs of a lane, with each pair's bytes counted from an offset of its own.
__m128i LaneShuffle(Columns columns, std::size_t pair, std::int32_t firstOffset,
                    std::int32_t secondOffset) {
  const __m128i offsets = _mm_set_epi32(secondOffset, secondOffset, firstOffset, firstOffset);
  const __m128i lumaIndex =
      _mm_loadu_si128(reinterpret_cast<const __m128i*>(columns.Luma + 2 * pair));
  const __m128i chromaIndex =
      _mm_loadl_epi64(reinterpret_cast<const __m128i*>(columns.Chroma + pair));
  const __m128i luma = _mm_sub_epi32(_mm_slli_epi32(lumaIndex, 1), offsets);
  const __m128i bothChroma = _mm_add_epi32(
      _mm_slli_epi32(_mm_unpacklo_epi32(chromaIndex, chromaIndex), 2), _mm_set_epi32(3, 1, 3, 1));
  const __m128i chroma = _mm_sub_epi32(bothChroma, offsets);
  const __m128i left = _mm_or_si128(luma, _mm_slli_epi32(chroma, 16));
  const __m128i distance = _mm_set1_epi32(0x04000200);
  return _mm_add_epi8(_mm_or_si128(left, _mm_slli_epi16(left, 8)), distance);
}

__m128i LaneWeights(Columns columns, std::size_t pair) {
  const __m128i luma =
      _mm_loadl_epi64(reinterpret_cast<const __m128i*>(columns.LumaWeight + 2 * pair));
  const __m128i chroma = _mm_loadu_si32(columns.ChromaWeight + pair);
  const __m128i weights = _mm_unpacklo_epi16(luma, _mm_unpacklo_epi16(chroma, chroma));
  return _mm_sub_epi16(_mm_setzero_si128(), _mm_add_epi16(weights, weights));
}

void StoreLane(void* at, __m128i value) {
  _mm_store_si128(static_cast<__m128i*>(at), value);
}

// Fills the tables of one picture.
class Planner {
 public:
  Planner(const ScaleJob& job, const SimdShape& shape, SimdPlan& plan)
      : columns_{job.Luma.Index, job.Chroma.Index, job.Luma.Weight, job.Chroma.Weight},
        pairs_(job.Chroma.Count),
        lanes_(shape.Lanes),
        readable_(ReadableBytes(job)),
        plan_(plan) {}

  Gather Fill(bool windowShuffles) {
    if (windowShuffles || IsHalving()) {
      PlaceInOrder();
      FillWeightsInOrder();
    }
    if (IsHalving()) {
      FillSuccessiveLoads();
      return Gather::Halving;
    }
    if (!windowShuffles) return FillLoads() ? Gather::Loads : Gather::None;
    if (FillWindows(kSmallWindow)) return Gather::Window64;
    return FillWindows(kLargeWindow) ? Gather::Window128 : Gather::None;
  }

 private:
  static constexpr std::size_t kMostLanesOfBlock = 8;

  [[nodiscard]] std::size_t LanesOfBlock() const { return 2 * lanes_; }

  [[nodiscard]] std::size_t StartOf(std::size_t block) const {
    return BlockStart(block, pairs_, kLanePairs * LanesOfBlock());
  }

  [[nodiscard]] bool IsHalving() const {
    const Columns columns = columns_;
    const std::size_t pairs = pairs_;
    std::size_t difference =
        static_cast<std::size_t>(columns.Chroma[pairs - 1]) ^ (2 * (pairs - 1));
    if (difference != 0) return false;
    for (std::size_t j = 0; j < pairs; ++j) {
      difference |= static_cast<std::size_t>(columns.Chroma[j]) ^ (2 * j);
      difference |= static_cast<std::size_t>(columns.Luma[2 * j]) ^ (4 * j);
      difference |= static_cast<std::size_t>(columns.Luma[2 * j + 1]) ^ (4 * j + 2);
    }
    return difference == 0;
  }

  void PlaceInOrder() {
    for (std::size_t block = 0; block < plan_.Row.Blocks; ++block) {
      plan_.Places[block] = static_cast<std::int32_t>(kPairBytes * StartOf(block));
    }
    plan_.Row.OneLoadBlocks = plan_.Row.Blocks;
  }

  void FillWeightsInOrder() {
    const Columns columns = columns_;
    std::int16_t* at = plan_.Weights;
    for (std::size_t block = 0; block < plan_.Row.Blocks; ++block) {
      std::size_t pair = StartOf(block);
      for (std::size_t lane = 0; lane < LanesOfBlock(); ++lane) {
        StoreLane(at, LaneWeights(columns, pair));
        at += kLaneSamples;
        pair += kLanePairs;
      }
    }
  }

  // One load for each register, twice as many source bytes as output bytes.
  void FillSuccessiveLoads() {
    const auto registerBytes = static_cast<std::int32_t>(lanes_ * kLaneBytes);
    std::int32_t* offset = plan_.Offsets;
    for (std::size_t block = 0; block < plan_.Row.Blocks; ++block) {
      *offset++ = 2 * plan_.Places[block];
      *offset++ = 2 * plan_.Places[block] + registerBytes;
    }
  }

  // A load that covers the span without leaving the readable bytes.
  static std::int32_t OffsetOf(const Span& span, std::int32_t bytes, std::int32_t readable) {
    return span.First < readable - bytes ? span.First : readable - bytes;
  }

  // False if some output pair takes more than one load.
  bool FillLoads() {
    if (readable_ < kLoadBytes) return false;
    const Columns columns = columns_;
    std::size_t next = 0;
    std::size_t end = plan_.Row.Blocks;
    for (std::size_t block = 0; block < plan_.Row.Blocks; ++block) {
      const std::size_t start = StartOf(block);
      Span spans[kMostLanesOfBlock];
      bool oneLoad = true;
      for (std::size_t lane = 0; lane < LanesOfBlock(); ++lane) {
        const std::size_t pair = start + kLanePairs * lane;
        spans[lane] = SpanOfPairs(columns, pair, pair + 1);
        oneLoad = oneLoad && spans[lane].FitsIn(kLoadBytes);
      }
      const std::size_t at = oneLoad ? next++ : --end;
      plan_.Places[at] = static_cast<std::int32_t>(kPairBytes * start);
      if (oneLoad) {
        FillOneLoad(columns, at, start, spans);
      } else if (!FillTwoLoads(columns, at, start)) {
        return false;
      }
    }
    plan_.Row.OneLoadBlocks = next;
    return true;
  }

  // Calls with the place of a lane in the tables, and with its place in the output: packing the two
  // registers of a block takes their lanes in turn.
  template <typename Visit>
  void ForEachAlternatingLane(std::size_t block, const Visit& visit) const {
    const std::size_t lanes = lanes_;
    const std::size_t first = block * 2 * lanes;
    for (std::size_t lane = 0; lane < lanes; ++lane) {
      visit(first + lane, 2 * lane);
      visit(first + lanes + lane, 2 * lane + 1);
    }
  }

  void FillOneLoad(Columns columns, std::size_t block, std::size_t start, const Span* spans) {
    const SimdPlan plan = plan_;
    const std::int32_t readable = readable_;
    ForEachAlternatingLane(block, [=](std::size_t at, std::size_t lane) {
      const std::size_t pair = start + kLanePairs * lane;
      const std::int32_t offset = OffsetOf(spans[lane], kLoadBytes, readable);
      plan.Offsets[at] = offset;
      StoreLane(plan.Shuffles + at * kLaneBytes, LaneShuffle(columns, pair, offset, offset));
      StoreLane(plan.Weights + at * kLaneSamples, LaneWeights(columns, pair));
    });
  }

  bool FillTwoLoads(Columns columns, std::size_t block, std::size_t start) {
    const SimdPlan plan = plan_;
    const std::int32_t readable = readable_;
    const __m128i nothing = _mm_set1_epi8(kNothing);
    bool fits = true;
    ForEachAlternatingLane(block, [=, &fits](std::size_t at, std::size_t lane) {
      const std::size_t pair = start + kLanePairs * lane;
      const Span first = SpanOfPairs(columns, pair, pair);
      const Span second = SpanOfPairs(columns, pair + 1, pair + 1);
      fits = fits && first.FitsIn(kLoadBytes) && second.FitsIn(kLoadBytes);
      const std::int32_t offset = OffsetOf(first, kLoadBytes, readable);
      const std::int32_t moreOffset = OffsetOf(second, kLoadBytes, readable);
      plan.Offsets[at] = offset;
      plan.MoreOffsets[at] = moreOffset;
      const __m128i both = LaneShuffle(columns, pair, offset, moreOffset);
      StoreLane(plan.Shuffles + at * kLaneBytes, _mm_unpacklo_epi64(both, nothing));
      StoreLane(plan.MoreShuffles + at * kLaneBytes, _mm_unpackhi_epi64(nothing, both));
      StoreLane(plan.Weights + at * kLaneSamples, LaneWeights(columns, pair));
    });
    return fits;
  }

  // False if the samples of some register don't lie in so many bytes.
  bool FillWindows(std::int32_t bytes) {
    if (readable_ < bytes) return false;
    const Columns columns = columns_;
    std::uint8_t* shuffle = plan_.Shuffles;
    for (std::size_t v = 0; v < 2 * plan_.Row.Blocks; ++v) {
      const std::size_t start = StartOf(v / 2) + v % 2 * lanes_ * kLanePairs;
      const Span span = SpanOfPairs(columns, start, start + lanes_ * kLanePairs - 1);
      if (!span.FitsIn(bytes)) return false;
      const std::int32_t offset = OffsetOf(span, bytes, readable_);
      plan_.Offsets[v] = offset;
      for (std::size_t lane = 0; lane < lanes_; ++lane) {
        const std::size_t pair = start + lane * kLanePairs;
        StoreLane(shuffle, LaneShuffle(columns, pair, offset, offset));
        shuffle += kLaneBytes;
      }
    }
    return true;
  }

  Columns columns_;
  std::size_t pairs_;
  std::size_t lanes_;
  std::int32_t readable_;
  SimdPlan& plan_;
};

// Bytes of one 16-bit sample, or one byte pair, for every lane of a row.
std::uint64_t RegisterBytes(std::uint64_t lanes) {
  return AlignedMemory::Padded(lanes * kLaneBytes);
}

std::uint64_t NumberBytes(std::uint64_t count) {
  return AlignedMemory::Padded(count * sizeof(std::int32_t));
}

}  // namespace

bool IsPlainCopy(const ScaleJob& job) {
  const auto copies = [](const AxisTable& axis) {
    for (std::uint32_t n = 0; n < axis.Count; ++n) {
      const auto index = static_cast<std::uint32_t>(axis.Index[n]);
      const std::uint16_t weight = axis.Weight[n];
      const bool same = (index == n && weight == 0) || (index + 1 == n && weight == kWeightOne);
      if (!same) return false;
    }
    return true;
  };
  return copies(job.Rows) && copies(job.Luma) && copies(job.Chroma);
}

void CopyPicture(const ScaleJob& job) {
  for (std::uint32_t row = 0; row < job.Rows.Count; ++row) {
    const auto n = static_cast<std::ptrdiff_t>(row);
    std::memcpy(job.Destination + n * job.DestinationStep, job.Source + n * job.SourceStep,
                kPairBytes * job.Chroma.Count);
  }
}

// A block has two lanes at least. 32 bits are enough for the division: an output has at most 2^30 pairs.
std::uint64_t SimdWorkBytes(std::uint32_t pairs, std::uint32_t lanes) {
  const std::uint32_t blockLanes = 2 * lanes;
  const std::uint32_t blockPairs = blockLanes * std::uint32_t{kLanePairs};
  const std::uint32_t blocks = (pairs + blockPairs - 1) / blockPairs;
  const std::uint64_t rowLanes = std::uint64_t{blocks} * blockLanes;
  return (kLines + 3) * RegisterBytes(rowLanes) + NumberBytes(2 * rowLanes) +
         NumberBytes(rowLanes / 2);
}

void MakeSimdPlan(const ScaleJob& job, const SimdShape& shape, SimdPlan& plan) {
  const std::size_t blocks = BlocksOf(job.Chroma.Count, BlockPairs(shape));
  const std::size_t lanes = 2 * blocks * shape.Lanes;
  std::uint8_t* memory = job.Work;
  const auto take = [&memory](std::uint64_t bytes) {
    std::uint8_t* const taken = memory;
    memory += bytes;
    return taken;
  };
  for (std::int16_t*& line : plan.Lines) {
    line = reinterpret_cast<std::int16_t*>(take(RegisterBytes(lanes)));
  }
  plan.Weights = reinterpret_cast<std::int16_t*>(take(RegisterBytes(lanes)));
  plan.Shuffles = take(2 * RegisterBytes(lanes));
  plan.MoreShuffles = plan.Shuffles + lanes * kLaneBytes;
  plan.Offsets = reinterpret_cast<std::int32_t*>(take(NumberBytes(2 * lanes)));
  plan.MoreOffsets = plan.Offsets + lanes;
  plan.Places = reinterpret_cast<std::int32_t*>(take(NumberBytes(blocks)));
  plan.Row = {.Blocks = blocks, .OneLoadBlocks = blocks, .Places = plan.Places};
  plan.Kind = Gather::None;
  if (blocks == 0) return;
  plan.Kind = Planner(job, shape, plan).Fill(shape.WindowShuffles);
}

void ScaleWithPlan(const ScaleJob& job, const SimdShape& shape, PlannedScale scale,
                   ScaleFunction other) {
  if (IsPlainCopy(job)) {
    CopyPicture(job);
    return;
  }
  SimdPlan plan;
  MakeSimdPlan(job, shape, plan);
  if (!scale(job, plan)) other(job);
}

}  // namespace lidcam
