#pragma once

#include <cstdint>

#include "camera_model/scene/scene.h"

namespace lidcam::camera_model {

/// The default scene: eight colour bars, a grey ramp, a zone plate, the word UP with an arrow, a
/// ball that moves from left to right in four seconds, and the frame number in large digits.
class TestCard final : public Scene {
 public:
  void Render(std::uint64_t frame, RgbImage& image) override;

 private:
  void DrawBackground(std::uint32_t width, std::uint32_t height);

  RgbImage background_;
};

}  // namespace lidcam::camera_model
