#pragma once

#include <spa/pod/pod.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "integrations/camera/camera_description.h"
#include "integrations/camera/shared_camera.h"

namespace lidcam::integrations::pipewire {

/// PipeWire's parameters of a node, each in memory of its own.
class Pods {
 public:
  /// Copies a parameter.
  void Add(const spa_pod* pod);
  void Add(const Pods& pods);
  /// As PipeWire takes them, valid while this object lives unchanged.
  [[nodiscard]] std::vector<const spa_pod*> Addresses() const;

 private:
  // Of words, since a parameter begins at a multiple of 8 bytes.
  std::vector<std::vector<std::uint64_t>> pods_;
};

/// The formats that are offered: YUY2, a size each, up to 30 frames a second.
[[nodiscard]] Pods FormatPods(const std::vector<PictureSize>& sizes);

/// Reads a format that was agreed upon; nothing for one that the node does not offer.
[[nodiscard]] std::optional<StreamShape> ReadFormat(const spa_pod* format);

/// Of a picture.
[[nodiscard]] std::size_t BytesOf(const StreamShape& shape);

/// What buffers of a format are like: shared memory for a picture, with its header.
///
/// @param most  as many as there may be
[[nodiscard]] Pods BufferPods(const StreamShape& shape, std::size_t most);

/// What the controls are (PropInfo).
[[nodiscard]] Pods ControlDescriptions(const std::vector<CameraControl>& controls);

/// Which values they have (Props).
[[nodiscard]] Pods ControlValues(const std::vector<CameraControl>& controls);

struct NewValue {
  std::string Name;
  std::int32_t Value = 0;
};

/// The values that an application sets (Props). Properties that are no controls of the camera are skipped.
[[nodiscard]] std::vector<NewValue> ReadNewValues(const spa_pod* properties,
                                                  const std::vector<CameraControl>& controls);

}  // namespace lidcam::integrations::pipewire
