#include "driver/frame/resampler/jobs/scale_reference.h"

// The scaler as it is defined, for every processor and every job.

#include <algorithm>
#include <cstddef>
#include <utility>

#include "driver/frame/resampler/jobs/aligned_memory.h"
#include "driver/frame/resampler/jobs/source_bytes.h"

namespace lidcam {
namespace {

// A sample between the two passes has 6 more fraction bits than a byte.
constexpr std::uint32_t kHorizontalShift = 8;
constexpr std::uint32_t kHorizontalHalf = 0x80;
constexpr std::uint32_t kVerticalShift = 20;
constexpr std::uint32_t kVerticalHalf = 0x80000;

/// The horizontally scaled form of one source row.
struct LineBuffer {
  std::uint16_t* Y;
  std::uint16_t* U;
  std::uint16_t* V;
};

/// Columns of an axis in packed YUY2.
constexpr std::int64_t kLumaSpacing = 2;
constexpr std::int64_t kChromaSpacing = 4;
constexpr std::int64_t kPlaceOfU = 1;
constexpr std::int64_t kPlaceOfV = 3;

struct PlainRow {
  const std::uint8_t* Bytes;
  [[nodiscard]] std::uint32_t At(std::int64_t place) const { return Bytes[place]; }
};

struct BoundedRow {
  const SourceBytes* Source;
  std::int64_t First;
  [[nodiscard]] std::uint32_t At(std::int64_t place) const { return Source->At(First + place); }
};

template <typename Row>
std::uint16_t Blend(const Row& row, std::int64_t left, std::int64_t right, std::uint32_t weight) {
  const std::uint32_t sum = weight * row.At(right) + (kWeightOne - weight) * row.At(left);
  return static_cast<std::uint16_t>((sum + kHorizontalHalf) >> kHorizontalShift);
}

template <typename Row>
void ScaleColumns(const ScaleJob& job, const Row& row, const LineBuffer& line) {
  for (std::uint32_t k = 0; k < job.Luma.Count; ++k) {
    const std::int64_t left = kLumaSpacing * job.Luma.Index[k];
    line.Y[k] = Blend(row, left, left + kLumaSpacing, job.Luma.Weight[k]);
  }
  for (std::uint32_t j = 0; j < job.Chroma.Count; ++j) {
    const std::int64_t left = kChromaSpacing * job.Chroma.Index[j];
    const std::int64_t right = left + kChromaSpacing;
    line.U[j] = Blend(row, left + kPlaceOfU, right + kPlaceOfU, job.Chroma.Weight[j]);
    line.V[j] = Blend(row, left + kPlaceOfV, right + kPlaceOfV, job.Chroma.Weight[j]);
  }
}

/// Source rows of a job: plain reads where all of a row's reads are known to be good.
class RowScaler {
 public:
  explicit RowScaler(const ScaleJob& job)
      : job_(job),
        source_{job.ReadBegin, job.ReadEnd - job.ReadBegin, FirstPlace(job)},
        leftmost_(std::min(kLumaSpacing * job.Luma.Index[0], kChromaSpacing * job.Chroma.Index[0])),
        rightmost_(
            std::max(kLumaSpacing * (std::int64_t{job.Luma.Index[job.Luma.Count - 1]} + 1),
                     kChromaSpacing * (std::int64_t{job.Chroma.Index[job.Chroma.Count - 1]} + 1) +
                         kPlaceOfV)) {}

  void Scale(std::int32_t row, const LineBuffer& line) const {
    const std::int64_t first = source_.First + std::int64_t{row} * job_.SourceStep;
    if (first + leftmost_ >= 0 && first + rightmost_ < source_.Length) {
      ScaleColumns(job_, PlainRow{MovedBy(source_.Begin, first)}, line);
    } else {
      ScaleColumns(job_, BoundedRow{&source_, first}, line);
    }
  }

 private:
  static std::int64_t FirstPlace(const ScaleJob& job) {
    return static_cast<std::ptrdiff_t>(reinterpret_cast<std::uintptr_t>(job.Source) -
                                       reinterpret_cast<std::uintptr_t>(job.ReadBegin));
  }

  const ScaleJob& job_;
  SourceBytes source_;
  std::int64_t leftmost_;
  std::int64_t rightmost_;
};

std::uint8_t BlendRows(std::uint32_t upper, std::uint32_t lower, std::uint32_t weight) {
  const std::uint32_t sum = upper * (kWeightOne - weight) + lower * weight;
  return static_cast<std::uint8_t>((sum + kVerticalHalf) >> kVerticalShift);
}

void WriteRow(const LineBuffer& upper, const LineBuffer& lower, std::uint32_t weight,
              std::uint32_t bytes, std::uint8_t* destination) {
  for (std::uint32_t pair = 0; pair < bytes / 4; ++pair) {
    const std::uint32_t k = 2 * pair;
    destination[4 * pair] = BlendRows(upper.Y[k], lower.Y[k], weight);
    destination[4 * pair + 1] = BlendRows(upper.U[pair], lower.U[pair], weight);
    destination[4 * pair + 2] = BlendRows(upper.Y[k + 1], lower.Y[k + 1], weight);
    destination[4 * pair + 3] = BlendRows(upper.V[pair], lower.V[pair], weight);
  }
}

// Writes the bytes of a pair that a narrow destination row cuts.
void WriteCutPair(const LineBuffer& upper, const LineBuffer& lower, std::uint32_t weight,
                  std::uint32_t pair, std::uint32_t bytes, std::uint8_t* destination) {
  if (bytes == 0) return;
  std::uint8_t whole[4];
  WriteRow({upper.Y + 2 * pair, upper.U + pair, upper.V + pair},
           {lower.Y + 2 * pair, lower.U + pair, lower.V + pair}, weight, sizeof(whole), whole);
  std::copy_n(whole, bytes, destination + 4 * pair);
}

std::uint64_t LineBytes(std::uint32_t pairs) {
  return AlignedMemory::Padded(std::uint64_t{4} * pairs * sizeof(std::uint16_t));
}

LineBuffer LineAt(std::uint8_t* memory, std::uint64_t pairs) {
  auto* const samples = reinterpret_cast<std::uint16_t*>(memory);
  return {samples, samples + 2 * pairs, samples + 3 * pairs};
}

}  // namespace

// Where destination rows are narrower than the pixels, each row's excess would be overwritten by
// the next row: it is not written, and neither is that of the last row.
void ScaleByReference(const ScaleJob& job) {
  const std::uint64_t pairs = job.Chroma.Count;
  LineBuffer upper = LineAt(job.Work, pairs);
  LineBuffer lower = LineAt(job.Work + LineBytes(job.Chroma.Count), pairs);

  const auto rowBytes = static_cast<std::uint32_t>(
      std::min<std::uint64_t>(4 * pairs, static_cast<std::uint64_t>(job.DestinationStep)));
  const RowScaler rows(job);
  std::int32_t held = 0;
  for (std::uint32_t r = 0; r < job.Rows.Count; ++r) {
    const std::int32_t row = job.Rows.Index[r];
    if (r == 0 || row > held + 1) {
      rows.Scale(row, upper);
      rows.Scale(row + 1, lower);
    } else if (row == held + 1) {
      std::swap(upper, lower);
      rows.Scale(row + 1, lower);
    }
    held = row;
    std::uint8_t* const destination =
        MovedBy(job.Destination, std::int64_t{r} * job.DestinationStep);
    const std::uint32_t weight = job.Rows.Weight[r];
    WriteRow(upper, lower, weight, rowBytes, destination);
    WriteCutPair(upper, lower, weight, rowBytes / 4, rowBytes % 4, destination);
  }
}

std::uint64_t ReferenceWorkBytes(std::uint32_t pairs) {
  return 2 * LineBytes(pairs);
}

}  // namespace lidcam
