#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace lidcam::camera_model {

/// Screen values: red, green and blue of eight bits each, rows without padding.
struct RgbImage {
  std::uint32_t Width = 0;
  std::uint32_t Height = 0;
  std::vector<std::uint8_t> Pixels;

  void Resize(std::uint32_t width, std::uint32_t height);
  [[nodiscard]] std::uint8_t* Row(std::uint32_t y) { return Pixels.data() + RowOffset(y); }
  [[nodiscard]] const std::uint8_t* Row(std::uint32_t y) const {
    return Pixels.data() + RowOffset(y);
  }

 private:
  [[nodiscard]] std::size_t RowOffset(std::uint32_t y) const { return std::size_t{y} * Width * 3; }
};

/// The scene in front of the lens.
class Scene {
 public:
  Scene() = default;
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;
  virtual ~Scene() = default;

  /// Renders the scene at one frame.
  /// @param frame  the sensor's frame counter, 30 per second
  /// @param image  has the requested size; every pixel is written
  virtual void Render(std::uint64_t frame, RgbImage& image) = 0;
};

/// Opens a picture (PNG, JPEG) or video (Y4M, repeated endlessly) as a scene, recognised by its
/// content.
/// @throws std::runtime_error naming the file and the reason
[[nodiscard]] std::unique_ptr<Scene> OpenSceneFile(const std::string& path);

}  // namespace lidcam::camera_model
