#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace lidcam::camera_model {

/// Noise of a sensor's pixels, as a fraction of the light that gives white.
///
/// The number of electrons has a standard deviation of its square root (shot noise); reading the
/// pixel adds a constant one (read noise). The amplifier scales both with the picture.
struct PixelNoise {
  double LightOfElectron = 0;  ///< value of one electron after the amplifier; 0: no shot noise
  double ReadVariance = 0;
  double DarkLight = 0;  ///< dark current

  [[nodiscard]] double Variance(double light) const {
    return light * LightOfElectron + ReadVariance;
  }
  friend bool operator==(const PixelNoise&, const PixelNoise&) = default;
};

/// Deviations of luma samples, in steps of the eight bits, from a table of standard deviations.
class LumaNoise {
 public:
  /// Standard deviation for each luma.
  using Deviations = std::array<double, 256>;

  LumaNoise() = default;
  explicit LumaNoise(const Deviations& deviations);

  /// @return true if no sample can change by a whole step
  [[nodiscard]] bool IsSilent() const { return samples_.empty(); }

  /// Adds noise to a line. Deviations below a whole step are dropped; results stay within 16 to
  /// 235.
  /// @param seed  the same seed gives the same noise
  void AddTo(std::span<std::uint8_t> luma, std::uint64_t seed) const;

 private:
  /// For each luma, and for each draw from the bell curve, the sample with its noise. Empty: no noise.
  std::vector<std::uint8_t> samples_;
};

}  // namespace lidcam::camera_model
