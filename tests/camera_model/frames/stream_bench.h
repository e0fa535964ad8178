#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "camera_model/frames/raw_frame_stream.h"
#include "camera_model/scene/test_card.h"
#include "tests/camera_model/camera_bench.h"

namespace lidcam::camera_model {

/// A uniform grey wall.
class GreyWall final : public Scene {
 public:
  explicit GreyWall(std::uint8_t grey) : grey_{grey} {}
  void Render(std::uint64_t, RgbImage& image) override {
    image.Pixels.assign(image.Pixels.size(), grey_);
  }

 private:
  std::uint8_t grey_;
};

/// The stream of a camera, collected packet by packet.
class StreamBench {
 public:
  explicit StreamBench(SensorModel model = SensorModel::VGA0708, std::uint64_t seed = 1,
                       std::shared_ptr<Scene> view = std::make_shared<TestCard>())
      : camera{model}, scene{std::move(view)}, stream{camera.bridge, *scene, seed} {
    stream.Restart(0);
  }

  StreamPacket Next() { return stream.Packet(++now, limit); }

  /// Collects the bytes from the next marker up to the one after it.
  std::vector<std::uint8_t> Frame() {
    while (head_.empty()) TakeHead();
    std::vector<std::uint8_t> frame = std::move(head_);
    head_.clear();
    packets.assign(1, frame.size());
    while (true) {
      const auto bytes = Next().Bytes;
      if (IsHead(bytes)) {
        head_.assign(bytes.begin(), bytes.end());
        headAt = now;
        return frame;
      }
      if (!bytes.empty()) packets.push_back(bytes.size());
      frame.insert(frame.end(), bytes.begin(), bytes.end());
    }
  }

  /// Collects the next frame to its last byte, without beginning the one after it.
  std::vector<std::uint8_t> WholeFrame() {
    std::vector<std::uint8_t> frame;
    while (true) {
      const auto bytes = Next().Bytes;
      if (frame.empty() && !IsHead(bytes)) continue;
      if (frame.empty()) headAt = now;
      frame.insert(frame.end(), bytes.begin(), bytes.end());
      if (bytes.size() < limit) return frame;
    }
  }

  void WriteLines(unsigned lines) {
    camera.WriteSensor(0x04, static_cast<std::uint8_t>(lines & 0xFF));
    camera.WriteSensor(0x03, static_cast<std::uint8_t>(lines >> 8));
  }

  static bool IsHead(std::span<const std::uint8_t> bytes) {
    return bytes.size() >= 2 && bytes[0] == 0xFF && bytes[1] == 0xD8;
  }

  CameraBench camera;
  std::shared_ptr<Scene> scene;
  RawFrameStream stream;
  std::uint32_t limit = 3072;
  std::uint64_t now = 0;
  std::uint64_t headAt = 0;
  std::vector<std::size_t> packets;

 private:
  void TakeHead() {
    const auto bytes = Next().Bytes;
    if (!IsHead(bytes)) return;
    head_.assign(bytes.begin(), bytes.end());
    headAt = now;
  }

  std::vector<std::uint8_t> head_;
};

/// The header's luminance for a frame that no control changed: the mean of its luma, from 0 at
/// black (16) to 255 at white (235), rounded down.
inline int MeanLuminance(const std::vector<std::uint8_t>& frame) {
  std::uint64_t sum = 0;
  std::uint64_t count = 0;
  for (std::size_t at = 64; at + 2 < frame.size(); at += 2, ++count) sum += frame[at];
  return static_cast<int>((sum - 16 * count) * 255 / (219 * count));
}

}  // namespace lidcam::camera_model
