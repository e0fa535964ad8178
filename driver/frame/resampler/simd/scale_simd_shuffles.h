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
  [[nodiscard]] const std::int16_t* WeightsOf(std::size_t v) const {
    return weights_ + v * Isa::kSamples;
  }

  [[nodiscard]] Vector Scale(Vector bytePairs, Vector weights) const {
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

  static constexpr bool kBlendsShareTables = true;

  explicit HalvingRows(const SimdPlan& plan) : PairScaling<Isa>(plan), offsets_(plan.Offsets) {}

  template <bool more>
  [[nodiscard]] Vector Scaled(const std::uint8_t* source, std::size_t v) const {
    return this->Scale(Gathered(source, offsets_[v]), Isa::Load(this->WeightsOf(v)));
  }

  template <bool more>
  [[nodiscard]] TwoOf<Isa> ScaledTwo(const std::uint8_t* first, const std::uint8_t* second,
                                     std::size_t v) const {
    const Vector weights = Isa::LoadOnce(this->WeightsOf(v));
    const std::int32_t offset = offsets_[v];
    return {this->Scale(Gathered(first, offset), weights),
            this->Scale(Gathered(second, offset), weights)};
  }

  static Vector Pack(Vector first, Vector second) { return Isa::PackInOrder(first, second); }

 private:
  [[nodiscard]] Vector Gathered(const std::uint8_t* source, std::int32_t offset) const {
    return Isa::Shuffle(Isa::LoadBytes(source + offset), shuffle_);
  }

  const std::int32_t* offsets_;
  Vector shuffle_ = Isa::HalvingShuffle();
};

/// Each lane has loads of its own.
template <typename Isa>
class LoadRows : public PairScaling<Isa> {
 public:
  using Vector = typename Isa::Vector;

  static constexpr bool kBlendsShareTables = Isa::kBlendsShareTables;

  explicit LoadRows(const SimdPlan& plan)
      : PairScaling<Isa>(plan),
        offsets_(plan.Offsets),
        moreOffsets_(plan.MoreOffsets),
        shuffles_(plan.Shuffles),
        moreShuffles_(plan.MoreShuffles) {}

  template <bool more>
  [[nodiscard]] Vector Scaled(const std::uint8_t* source, std::size_t v) const {
    Vector pairs = Gathered(source, offsets_, Isa::Load(shuffles_ + v * Isa::kBytes), v);
    if constexpr (more) {
      const Vector shuffle = Isa::Load(moreShuffles_ + v * Isa::kBytes);
      pairs = Isa::Or(pairs, Gathered(source, moreOffsets_, shuffle, v));
    }
    return this->Scale(pairs, Isa::Load(this->WeightsOf(v)));
  }

  template <bool more>
  [[nodiscard]] TwoOf<Isa> ScaledTwo(const std::uint8_t* first, const std::uint8_t* second,
                                     std::size_t v) const {
    const Vector shuffle = Isa::LoadOnce(shuffles_ + v * Isa::kBytes);
    Vector firstPairs = Gathered(first, offsets_, shuffle, v);
    Vector secondPairs = Gathered(second, offsets_, shuffle, v);
    if constexpr (more) {
      const Vector moreShuffle = Isa::LoadOnce(moreShuffles_ + v * Isa::kBytes);
      firstPairs = Isa::Or(firstPairs, Gathered(first, moreOffsets_, moreShuffle, v));
      secondPairs = Isa::Or(secondPairs, Gathered(second, moreOffsets_, moreShuffle, v));
    }
    const Vector weights = Isa::LoadOnce(this->WeightsOf(v));
    return {this->Scale(firstPairs, weights), this->Scale(secondPairs, weights)};
  }

  static Vector Pack(Vector first, Vector second) { return Isa::PackAlternating(first, second); }

 private:
  static Vector Gathered(const std::uint8_t* source, const std::int32_t* offsets, Vector shuffle,
                         std::size_t v) {
    return Isa::Shuffle(Isa::LoadLanes(source, offsets + v * Isa::kLanes), shuffle);
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

  static constexpr bool kBlendsShareTables = true;

  explicit WindowRows(const SimdPlan& plan)
      : PairScaling<Isa>(plan), offsets_(plan.Offsets), shuffles_(plan.Shuffles) {}

  template <bool more>
  [[nodiscard]] Vector Scaled(const std::uint8_t* source, std::size_t v) const {
    const Vector indices = Isa::Load(shuffles_ + v * Isa::kBytes);
    return this->Scale(Gathered(source + offsets_[v], indices), Isa::Load(this->WeightsOf(v)));
  }

  template <bool more>
  [[nodiscard]] TwoOf<Isa> ScaledTwo(const std::uint8_t* first, const std::uint8_t* second,
                                     std::size_t v) const {
    const Vector indices = Isa::LoadOnce(shuffles_ + v * Isa::kBytes);
    const Vector weights = Isa::LoadOnce(this->WeightsOf(v));
    const std::int32_t offset = offsets_[v];
    return {this->Scale(Gathered(first + offset, indices), weights),
            this->Scale(Gathered(second + offset, indices), weights)};
  }

  static Vector Pack(Vector first, Vector second) { return Isa::PackInOrder(first, second); }

 private:
  static Vector Gathered(const std::uint8_t* window, Vector indices) {
    if constexpr (windowBytes == 64) return Isa::ShuffleWindow64(window, indices);
    return Isa::ShuffleWindow128(window, indices);
  }

  const std::int32_t* offsets_;
  const std::uint8_t* shuffles_;
};

template <typename Isa, typename Rows>
void ScalePlanned(const ScaleJob& job, const SimdPlan& plan) {
  PictureScaler<Isa, Rows>(job, Rows(plan), plan.Row, plan.Lines).Run();
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
