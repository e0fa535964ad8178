#pragma once

#include <cstddef>
#include <cstdint>

#include "driver/frame/resampler/jobs/scale_job.h"
#include "driver/frame/resampler/simd/scale_simd_plan.h"

// The loop over the rows of a picture that all vector kernels share. Each kernel brings its
// operations (`Isa`) and its way of scaling a row horizontally (`Rows`), both with internal linkage,
// so that nothing in here is ever shared between kernels built for different processors.
//
// Why 16 bits are enough, for samples s0 and s1 of 8 bits, weights of 14 fraction bits, and `>>`
// rounding down:
//
//   horizontal  (w1 * s1 + (16384 - w1) * s0 + 128) >> 8
//             = 64 * s0 + (((s0 - s1) * 64 * (-2 * w1) + 16384) >> 15)
//     and the second term is the rounded high half of a product of two 16-bit numbers.
//
//   vertical    (a * (16384 - w) + b * w + 0x80000) >> 20
//             = (a + (((a - b) * (-4 * w)) >> 16) + 32) >> 6
//     and -4 * w fits in 16 bits while w <= 8192, which holds for the farther one of the two rows.

namespace lidcam {

/// How much of the farther row an output row takes.
struct RowBlend {
  bool LowerNearer;
  std::int16_t Multiplier;  ///< -4 times the weight of the farther row
};

/// The weights of a row as the kernels use them.
template <typename Isa>
struct RowWeights {
  static RowBlend BlendOf(std::uint16_t lowerWeight) {
    const bool lowerNearer = lowerWeight > kWeightOne / 2;
    const int farther = lowerNearer ? static_cast<int>(kWeightOne) - lowerWeight : lowerWeight;
    return {lowerNearer, static_cast<std::int16_t>(-4 * farther)};
  }

  /// The multiplier for upper minus lower: where the lower row is nearer, the sign is turned.
  static std::int16_t UpperMultiplier(std::uint16_t lowerWeight) {
    const RowBlend blend = RowWeights<Isa>::BlendOf(lowerWeight);
    const int multiplier = blend.LowerNearer ? -blend.Multiplier : blend.Multiplier;
    return static_cast<std::int16_t>(multiplier);
  }
};

/// Which of two freshly scaled rows goes into a line buffer.
enum class Keep : std::uint8_t { Neither, Nearer, Farther };

/// What register v holds of two rows.
template <typename Isa>
struct TwoOf {
  typename Isa::Vector First;
  typename Isa::Vector Second;
};

/// Inner loops over the blocks of a row. `Rows::Scaled<more>(source, v)` scales what register v
/// holds, with two loads for each lane if `more`; `Rows::ScaledTwo<more>(first, second, v)` does so for
/// two source rows, and reads the tables once. `Rows::kBlendsShareTables`: that is faster for two
/// rows that are blended, too, which needs more registers.
template <typename Isa, typename Rows>
class BlockLoops {
 public:
  using Vector = typename Isa::Vector;

  BlockLoops(const Rows& rows, const BlockRow& row) : rows_(rows), row_(row) {}

  /// Scales a source row into a line buffer.
  void ScaleRow(const std::uint8_t* source, std::int16_t* line) const {
    const Rows rows = rows_;
    const std::size_t oneLoad = 2 * row_.OneLoadBlocks;
    const std::size_t all = 2 * row_.Blocks;
    std::size_t v = 0;
    for (; v < oneLoad; ++v) {
      Isa::Store(line + v * Isa::kSamples, rows.template Scaled<false>(source, v));
    }
    for (; v < all; ++v) {
      Isa::Store(line + v * Isa::kSamples, rows.template Scaled<true>(source, v));
    }
  }

  /// Scales two source rows into line buffers.
  void ScaleTwoRows(const std::uint8_t* first, const std::uint8_t* second, std::int16_t* firstLine,
                    std::int16_t* secondLine) const {
    const Rows rows = rows_;
    const std::size_t oneLoad = 2 * row_.OneLoadBlocks;
    const std::size_t all = 2 * row_.Blocks;
    const auto store = [=](std::size_t v, TwoOf<Isa> scaled) {
      Isa::Store(firstLine + v * Isa::kSamples, scaled.First);
      Isa::Store(secondLine + v * Isa::kSamples, scaled.Second);
    };
    std::size_t v = 0;
    for (; v < oneLoad; ++v) store(v, rows.template ScaledTwo<false>(first, second, v));
    for (; v < all; ++v) store(v, rows.template ScaledTwo<true>(first, second, v));
  }

  /// Blends two source rows without a line buffer in between.
  template <Keep keep>
  void BlendRows(const std::uint8_t* nearer, const std::uint8_t* farther, std::int16_t multiplier,
                 std::int16_t* kept, std::uint8_t* out) const {
    const Rows rows = rows_;
    const Vector factor = Isa::Every(multiplier);
    ForEachBlock(out, [&]<bool more>(std::size_t v) {
      const auto [a, b] = BothScaled<more>(rows, nearer, farther, v);
      if constexpr (keep == Keep::Nearer) Isa::Store(kept + v * Isa::kSamples, a);
      if constexpr (keep == Keep::Farther) Isa::Store(kept + v * Isa::kSamples, b);
      return Blended(a, Isa::Subtract(a, b), factor);
    });
  }

  /// Blends a line buffer and the source row below it, which goes into the other line buffer.
  template <bool lowerNearer>
  void BlendLineAndRow(const std::int16_t* upper, const std::uint8_t* source,
                       std::int16_t multiplier, std::int16_t* lower, std::uint8_t* out) const {
    const Rows rows = rows_;
    const Vector factor = Isa::Every(multiplier);
    ForEachBlock(out, [&]<bool more>(std::size_t v) {
      const Vector a = Isa::Load(upper + v * Isa::kSamples);
      const Vector b = rows.template Scaled<more>(source, v);
      Isa::Store(lower + v * Isa::kSamples, b);
      if constexpr (lowerNearer) return Blended(b, Isa::Subtract(b, a), factor);
      return Blended(a, Isa::Subtract(a, b), factor);
    });
  }

  /// Blends two line buffers.
  void BlendLines(const std::int16_t* nearer, const std::int16_t* farther, std::int16_t multiplier,
                  std::uint8_t* out) const {
    const Vector factor = Isa::Every(multiplier);
    ForEachBlock(out, [&]<bool more>(std::size_t v) {
      const Vector a = Isa::Load(nearer + v * Isa::kSamples);
      const Vector b = Isa::Load(farther + v * Isa::kSamples);
      return Blended(a, Isa::Subtract(a, b), factor);
    });
  }

  /// Blends two line buffers for several output rows at once, the first `uppers` of which are
  /// nearer to the upper row.
  template <std::size_t rows, std::size_t uppers>
  void BlendLinesTogether(const std::int16_t* upper, const std::int16_t* lower,
                          const std::uint16_t* lowerWeights, std::uint8_t* out,
                          std::ptrdiff_t outStep) const {
    Vector factors[rows];
    for (std::size_t row = 0; row < rows; ++row) {
      factors[row] = Isa::Every(RowWeights<Isa>::UpperMultiplier(lowerWeights[row]));
    }
    const std::int32_t* const places = row_.Places;
    const std::size_t blocks = row_.Blocks;
    for (std::size_t block = 0; block < blocks; ++block) {
      const std::size_t x = 2 * block * Isa::kSamples;
      const Vector up0 = Isa::Load(upper + x);
      const Vector lo0 = Isa::Load(lower + x);
      const Vector up1 = Isa::Load(upper + x + Isa::kSamples);
      const Vector lo1 = Isa::Load(lower + x + Isa::kSamples);
      const Vector d0 = Isa::Subtract(up0, lo0);
      const Vector d1 = Isa::Subtract(up1, lo1);
      std::uint8_t* to = out + places[block];
#pragma GCC unroll 4
      for (std::size_t row = 0; row < rows; ++row) {
        Isa::StoreBytes(to, Rows::Pack(Blended(row < uppers ? up0 : lo0, d0, factors[row]),
                                       Blended(row < uppers ? up1 : lo1, d1, factors[row])));
        to += outStep;
      }
    }
  }

 private:
  template <bool more>
  static TwoOf<Isa> BothScaled(const Rows& rows, const std::uint8_t* first,
                               const std::uint8_t* second, std::size_t v) {
    if constexpr (Rows::kBlendsShareTables) {
      return rows.template ScaledTwo<more>(first, second, v);
    } else {
      return {rows.template Scaled<more>(first, v), rows.template Scaled<more>(second, v)};
    }
  }

  static Vector Blended(Vector nearer, Vector difference, Vector factor) {
    return Isa::RoundToBytes(Isa::Add(nearer, Isa::MultiplyHigh(difference, factor)));
  }

  template <typename Blend>
  void ForEachBlock(std::uint8_t* out, const Blend& blend) const {
    const BlockRow row = row_;
    std::size_t block = 0;
    for (; block < row.OneLoadBlocks; ++block) {
      const Vector first = blend.template operator()<false>(2 * block);
      const Vector second = blend.template operator()<false>(2 * block + 1);
      Isa::StoreBytes(out + row.Places[block], Rows::Pack(first, second));
    }
    for (; block < row.Blocks; ++block) {
      const Vector first = blend.template operator()<true>(2 * block);
      const Vector second = blend.template operator()<true>(2 * block + 1);
      Isa::StoreBytes(out + row.Places[block], Rows::Pack(first, second));
    }
  }

  Rows rows_;
  BlockRow row_;
};

/// The line buffers and which source rows they hold: each row is scaled once at most, for the
/// rows of the table never go back. The third one holds the row below the lower one, where two were
/// scaled at a time.
template <typename Isa, typename Rows>
class PictureScaler {
 public:
  PictureScaler(const ScaleJob& job, const Rows& rows, const BlockRow& row,
                std::int16_t* const (&lines)[kLines])
      : job_(job),
        loops_(rows, row),
        upper_{lines[0], kNoRow},
        lower_{lines[1], kNoRow},
        below_{lines[2], kNoRow} {}

  void Run() {
    std::uint8_t* out = job_.Destination;
    for (std::uint32_t row = 0; row < job_.Rows.Count;) {
      const std::uint32_t rows = RowsTogether(row);
      if (lower_.Row == job_.Rows.Index[row]) MoveDown();
      if (rows == 1) {
        WriteRow(row, out);
      } else {
        WriteRows(row, rows, out);
      }
      row += rows;
      out += static_cast<std::ptrdiff_t>(rows) * job_.DestinationStep;
    }
  }

 private:
  static constexpr std::int32_t kNoRow = -2;

  struct Line {
    std::int16_t* Samples;
    std::int32_t Row;
  };

  [[nodiscard]] const std::uint8_t* SourceRow(std::int32_t row) const {
    return job_.Source + row * job_.SourceStep;
  }

  [[nodiscard]] bool IsUpperOfNextRow(std::uint32_t row, std::int32_t sourceRow) const {
    return row + 1 < job_.Rows.Count && job_.Rows.Index[row + 1] == sourceRow;
  }

  // How many output rows from this one on lie between the same source rows, going down: 4, 2 or 1.
  [[nodiscard]] std::uint32_t RowsTogether(std::uint32_t row) const {
    const std::int32_t* const index = job_.Rows.Index + row;
    const std::uint16_t* const weight = job_.Rows.Weight + row;
    const std::uint32_t most = job_.Rows.Count - row < 4 ? job_.Rows.Count - row : 4;
    std::uint32_t rows = 1;
    while (rows < most && index[rows] == index[0] && weight[rows] >= weight[rows - 1]) ++rows;
    return rows == 3 ? 2 : rows;
  }

  void WriteRow(std::uint32_t row, std::uint8_t* out) {
    const std::int32_t upperRow = job_.Rows.Index[row];
    const RowBlend blend = RowWeights<Isa>::BlendOf(job_.Rows.Weight[row]);
    if (upper_.Row != upperRow) {
      BlendFreshRows(row, upperRow, blend, out);
    } else if (lower_.Row != upperRow + 1) {
      BlendFreshLower(upperRow + 1, blend, out);
    } else {
      BlendHeldLines(blend, out);
    }
  }

  void WriteRows(std::uint32_t row, std::uint32_t rows, std::uint8_t* out) {
    const std::int32_t upperRow = job_.Rows.Index[row];
    HoldBoth(upperRow, IsUpperOfNextRow(row + rows - 1, upperRow + 1));
    const std::uint16_t* const weights = job_.Rows.Weight + row;
    std::uint32_t uppers = 0;
    while (uppers < rows && !RowWeights<Isa>::BlendOf(weights[uppers]).LowerNearer) ++uppers;
    if (rows == 2) {
      switch (uppers) {
        case 0:
          BlendTogether<2, 0>(weights, out);
          break;
        case 1:
          BlendTogether<2, 1>(weights, out);
          break;
        default:
          BlendTogether<2, 2>(weights, out);
          break;
      }
    } else {
      switch (uppers) {
        case 0:
          BlendTogether<4, 0>(weights, out);
          break;
        case 1:
          BlendTogether<4, 1>(weights, out);
          break;
        case 2:
          BlendTogether<4, 2>(weights, out);
          break;
        case 3:
          BlendTogether<4, 3>(weights, out);
          break;
        default:
          BlendTogether<4, 4>(weights, out);
          break;
      }
    }
  }

  template <std::size_t rows, std::size_t uppers>
  void BlendTogether(const std::uint16_t* weights, std::uint8_t* out) const {
    loops_.template BlendLinesTogether<rows, uppers>(upper_.Samples, lower_.Samples, weights, out,
                                                     job_.DestinationStep);
  }

  // Two source rows at a time, if the next output rows lie between the lower one and that below it.
  void HoldBoth(std::int32_t upperRow, bool needsRowBelow) {
    const bool hasUpper = upper_.Row == upperRow;
    const bool hasLower = lower_.Row == upperRow + 1;
    if (!hasUpper && !hasLower) {
      ScaleTwo(upper_, lower_, upperRow);
    } else if (!hasLower && needsRowBelow) {
      ScaleTwo(lower_, below_, upperRow + 1);
    } else {
      if (!hasUpper) ScaleOne(upper_, upperRow);
      if (!hasLower) ScaleOne(lower_, upperRow + 1);
    }
  }

  void ScaleOne(Line& line, std::int32_t row) const {
    loops_.ScaleRow(SourceRow(row), line.Samples);
    line.Row = row;
  }

  void ScaleTwo(Line& line, Line& next, std::int32_t row) const {
    loops_.ScaleTwoRows(SourceRow(row), SourceRow(row + 1), line.Samples, next.Samples);
    line.Row = row;
    next.Row = row + 1;
  }

  void MoveDown() {
    const Line line = upper_;
    upper_ = lower_;
    lower_ = below_;
    below_ = line;
  }

  void BlendFreshRows(std::uint32_t row, std::int32_t upperRow, RowBlend blend, std::uint8_t* out) {
    const std::uint8_t* const upper = SourceRow(upperRow);
    const std::uint8_t* const lower = SourceRow(upperRow + 1);
    const std::uint8_t* const nearer = blend.LowerNearer ? lower : upper;
    const std::uint8_t* const farther = blend.LowerNearer ? upper : lower;
    if (!IsUpperOfNextRow(row, upperRow + 1)) {
      loops_.template BlendRows<Keep::Neither>(nearer, farther, blend.Multiplier, nullptr, out);
      return;
    }
    lower_.Row = upperRow + 1;
    if (blend.LowerNearer) {
      loops_.template BlendRows<Keep::Nearer>(nearer, farther, blend.Multiplier, lower_.Samples,
                                              out);
    } else {
      loops_.template BlendRows<Keep::Farther>(nearer, farther, blend.Multiplier, lower_.Samples,
                                               out);
    }
  }

  void BlendFreshLower(std::int32_t lowerRow, RowBlend blend, std::uint8_t* out) {
    const std::uint8_t* const source = SourceRow(lowerRow);
    lower_.Row = lowerRow;
    if (blend.LowerNearer) {
      loops_.template BlendLineAndRow<true>(upper_.Samples, source, blend.Multiplier,
                                            lower_.Samples, out);
    } else {
      loops_.template BlendLineAndRow<false>(upper_.Samples, source, blend.Multiplier,
                                             lower_.Samples, out);
    }
  }

  void BlendHeldLines(RowBlend blend, std::uint8_t* out) {
    const std::int16_t* const nearer = blend.LowerNearer ? lower_.Samples : upper_.Samples;
    const std::int16_t* const farther = blend.LowerNearer ? upper_.Samples : lower_.Samples;
    loops_.BlendLines(nearer, farther, blend.Multiplier, out);
  }

  ScaleJob job_;
  BlockLoops<Isa, Rows> loops_;
  Line upper_;
  Line lower_;
  Line below_;
};

}  // namespace lidcam
