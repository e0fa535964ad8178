#pragma once

#include <cstddef>
#include <cstdint>

#include "driver/frame/resampler/simd/scale_simd_kernels.h"
#include "driver/frame/resampler/simd/scale_simd_plan.h"
#include "driver/frame/resampler/simd/scale_simd_rows.h"

// Scaling a row horizontally with byte shuffles, for every register width.

namespace lidcam {

/// From two source bytes each to 16-bit samples with 6 fraction bits.
template <typename Isa>
class PairScaling {
 public:
  using Vector = typename Isa::Vector;

  explicit PairScaling(const SimdPlan& plan) : weights_(plan.Weights) {}

 protected:
  [[nodiscard]] Vector Scale(Vector bytePairs, std::size_t v) const {
    const Vector weights = Isa::Load(weights_ + v * Isa::kSamples);
    const Vector difference = Isa::SumOfPairs(bytePairs, difference_);
    return Isa::Add(Isa::SumOfPairs(bytePairs, base_), Isa::MultiplyRound(difference, weights));
  }

 private:
  const std::int16_t* weights_;
  Vector base_ = Isa::EveryPair(64, 0);
  Vector difference_ = Isa::EveryPair(64, -64);
};

/// Every second source pair starts an output pair.
template <typename Isa>
class HalvingRows : public PairScaling<Isa> {
 public:
  using Vector = typename Isa::Vector;

  explicit HalvingRows(const SimdPlan& plan) : PairScaling<Isa>(plan), offsets_(plan.Offsets) {}

  template <bool more>
  [[nodiscard]] Vector Scaled(const std::uint8_t* source, std::size_t v) const {
    return this->Scale(Isa::Shuffle(Isa::LoadBytes(source + offsets_[v]), shuffle_), v);
  }

  static Vector Pack(Vector first, Vector second) { return Isa::PackInOrder(first, second); }

 private:
  const std::int32_t* offsets_;
  Vector shuffle_ = Isa::HalvingShuffle();
};

/// Each lane has loads of its own.
template <typename Isa>
class LoadRows : public PairScaling<Isa> {
 public:
  using Vector = typename Isa::Vector;

  explicit LoadRows(const SimdPlan& plan)
      : PairScaling<Isa>(plan),
        offsets_(plan.Offsets),
        moreOffsets_(plan.MoreOffsets),
        shuffles_(plan.Shuffles),
        moreShuffles_(plan.MoreShuffles) {}

  template <bool more>
  [[nodiscard]] Vector Scaled(const std::uint8_t* source, std::size_t v) const {
    const Vector first = Gathered(source, offsets_, shuffles_, v);
    if constexpr (!more) return this->Scale(first, v);
    return this->Scale(Isa::Or(first, Gathered(source, moreOffsets_, moreShuffles_, v)), v);
  }

  static Vector Pack(Vector first, Vector second) { return Isa::PackAlternating(first, second); }

 private:
  static Vector Gathered(const std::uint8_t* source, const std::int32_t* offsets,
                         const std::uint8_t* shuffles, std::size_t v) {
    return Isa::Shuffle(Isa::LoadLanes(source, offsets + v * Isa::kLanes),
                        Isa::Load(shuffles + v * Isa::kBytes));
  }

  const std::int32_t* offsets_;
  const std::int32_t* moreOffsets_;
  const std::uint8_t* shuffles_;
  const std::uint8_t* moreShuffles_;
};

/// Each register has a window of its own into the source row.
template <typename Isa, std::size_t windowBytes>
class WindowRows : public PairScaling<Isa> {
 public:
  using Vector = typename Isa::Vector;

  explicit WindowRows(const SimdPlan& plan)
      : PairScaling<Isa>(plan), offsets_(plan.Offsets), shuffles_(plan.Shuffles) {}

  template <bool more>
  [[nodiscard]] Vector Scaled(const std::uint8_t* source, std::size_t v) const {
    const std::uint8_t* const window = source + offsets_[v];
    const Vector indices = Isa::Load(shuffles_ + v * Isa::kBytes);
    if constexpr (windowBytes == 64) return this->Scale(Isa::ShuffleWindow64(window, indices), v);
    return this->Scale(Isa::ShuffleWindow128(window, indices), v);
  }

  static Vector Pack(Vector first, Vector second) { return Isa::PackInOrder(first, second); }

 private:
  const std::int32_t* offsets_;
  const std::uint8_t* shuffles_;
};

template <typename Isa, typename Rows>
void ScalePlanned(const ScaleJob& job, const SimdPlan& plan) {
  PictureScaler<Isa, Rows>(job, Rows(plan), plan.Row, plan.Lines[0], plan.Lines[1]).Run();
}

/// Scales with shuffles inside lanes.
/// @return false if it can't use the plan
template <typename Isa>
bool ScaleByShuffles(const ScaleJob& job, const SimdPlan& plan) {
  switch (plan.Kind) {
    case Gather::Halving:
      ScalePlanned<Isa, HalvingRows<Isa>>(job, plan);
      return true;
    case Gather::Loads:
      ScalePlanned<Isa, LoadRows<Isa>>(job, plan);
      return true;
    default:
      return false;
  }
}

/// Scales with shuffles across lanes.
/// @return false if it can't use the plan
template <typename Isa>
bool ScaleByWindows(const ScaleJob& job, const SimdPlan& plan) {
  switch (plan.Kind) {
    case Gather::Halving:
      ScalePlanned<Isa, HalvingRows<Isa>>(job, plan);
      return true;
    case Gather::Window64:
      ScalePlanned<Isa, WindowRows<Isa, 64>>(job, plan);
      return true;
    case Gather::Window128:
      ScalePlanned<Isa, WindowRows<Isa, 128>>(job, plan);
      return true;
    default:
      return false;
  }
}

template <typename Isa>
constexpr SimdShape kLaneShape{.Lanes = Isa::kLanes, .WindowShuffles = false};

template <typename Isa>
constexpr SimdShape kWindowShape{.Lanes = Isa::kLanes, .WindowShuffles = true};

}  // namespace lidcam
