#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "camera_model/chips/bridge.h"
#include "camera_model/optics/line_filter.h"
#include "camera_model/optics/pixel_noise.h"
#include "camera_model/scene/scene.h"

namespace lidcam::camera_model {

/// The picture settings in the registers of bridge and sensor.
struct PictureSettings {
  /// Three curves (red, green, blue) of 15 knots each.
  std::array<std::array<std::uint8_t, 15>, 3> GammaKnots{};
  std::int8_t Brightness = 0;             ///< twice the offset of the luma
  std::uint8_t Contrast = 0x80;           ///< 0x80 is 1.0
  std::uint8_t ShadowContrast = 0xA0;     ///< 0xA0 is 1.0
  std::uint8_t HighlightContrast = 0xD0;  ///< 0xD0 is 1.0
  std::uint8_t SaturationU = 0xA0;        ///< 0xA0 is 1.0
  std::uint8_t SaturationV = 0xA0;
  std::uint8_t Sharpness = 0x40;  ///< bit 6: on; bits 0 to 5: amount in eighths
  std::uint8_t Effects = 0;
  std::uint8_t TintU = 0;
  std::uint8_t TintV = 0;
  bool IsMirrored = false;
  bool IsFlipped = false;
  bool RedAndBlueSwapped = false;

  friend bool operator==(const PictureSettings&, const PictureSettings&) = default;
};

/// Pixels of a row, from Begin to before End.
struct PixelRange {
  std::size_t Begin = 0;
  std::size_t End = 0;

  [[nodiscard]] bool IsEmpty() const { return Begin == End; }
};

[[nodiscard]] PictureSettings ReadPictureSettings(const Bridge& bridge);

/// Converts the light of a scene to the YUY2 picture that the bridge sends.
///
/// Light and noise give a luma, which is filtered and then changed by the controls. Rows whose
/// light and settings have not changed since the last picture are cached without the noise, so that
/// a still scene costs little.
class PictureProcessor {
 public:
  /// @param scene     the scene in screen values; converted to linear light first
  /// @param exposure  factor on the light for each row, 1.0 for a correct exposure; one entry for
  ///                  all rows or one for each
  /// @param noise     of the sensor's pixels
  /// @param seed      the same seed gives the same noise
  void Process(const RgbImage& scene, const PictureSettings& settings,
               std::span<const double> exposure, const PixelNoise& noise = {},
               std::uint64_t seed = 0);

  /// The picture: Width times Height times 2 bytes in the order Y, U, Y, V. No byte is 0xFF, so that
  /// only the head of a frame can look like its marker.
  [[nodiscard]] std::span<const std::uint8_t> Yuy2() const { return picture_; }

  /// Mean luminance of the picture as the sensor gave it, with noise, before filters and controls:
  /// 0 for black to 255 for white, rounded down.
  [[nodiscard]] std::uint8_t MeanLuminance() const;

 private:
  using Curve = std::array<std::uint8_t, 256>;
  struct Curves {
    int Exposure = 0;  ///< as returned by StepOf
    std::array<Curve, 3> Channels{};
  };

  void BuildTables();
  void BuildNoise();
  const Curves& CurvesFor(double exposure);
  void ExposeRow(const std::uint8_t* scene, const PixelRange& changed, const Curves& curves,
                 std::uint32_t y);
  void FinishRow(std::uint32_t y, std::uint64_t seed);
  [[nodiscard]] LineFilter Filter() const;

  PictureSettings settings_;
  PixelNoise noise_;
  bool hasPicture_ = false;
  RgbImage lastScene_;
  std::vector<int> lastExposure_;
  std::vector<std::uint8_t> lumaPlane_;  ///< the exposed scene, before noise and filters
  std::vector<std::uint32_t> lumaSums_;  ///< of each row with its noise
  std::vector<std::uint8_t> picture_;
  std::vector<Curves> curves_;
  Curve lumaCurve_{};
  Curve curveU_{};
  Curve curveV_{};
  LumaNoise lumaNoise_;
  bool pictureIsNoisy_ = false;
  std::vector<std::uint8_t> luma_;
  std::vector<std::uint8_t> filtered_;
};

}  // namespace lidcam::camera_model
